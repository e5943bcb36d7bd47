#include "DownloadTestSupport.h"
#include "HttpTestServer.h"
#include "TestRegistry.h"

#include "core/ComponentAccessors.h"
#include "core/DownloadComponent.h"
#include "core/ErrorCode.h"
#include "core/Timing.h"

#include <QDateTime>
#include <QNetworkReply>
#include <QUrlQuery>
#include <QtTest>

#include <memory>

using namespace DownloadTest;
using Morvantix::GetDownloadComponent;

namespace {
constexpr int kTimeDivisor = 10; // a fetch attempt lasts 500 ms, the pause between attempts 100 ms

struct Answer
{
    int calls = 0;
    QString content;
    int code = -1;
};

std::function<void(const QString&, int)> recordInto(Answer& answer)
{
    return [&answer](const QString& content, int code) {
        ++answer.calls;
        answer.content = content;
        answer.code = code;
    };
}
} // namespace

// The text and image fetches through the component, against a real server.
class TestContentFetch : public QObject
{
    Q_OBJECT
private slots:
    void initTestCase();
    void cleanupTestCase();
    void init();
    void cleanup();

    void timestampJoinsTheQuery_data();
    void timestampJoinsTheQuery();
    void bodyChoosesTheMethod_data();
    void bodyChoosesTheMethod();
    void textSplitBetweenReadsStaysWhole();
    void failedAttemptsAreRetried();
    void persistentFailureEndsWithItsCode_data();
    void persistentFailureEndsWithItsCode();
    void waitingFetchReturnsAfterTheAttempt();
    void overlappingFetchesKeepTheirOwnAnswers();
    void imageArrivesOnlyOnSuccess_data();
    void imageArrivesOnlyOnSuccess();

private:
    std::unique_ptr<HttpTestServer> m_server;
};

void TestContentFetch::initTestCase()
{
    Morvantix::Timing::setTimeDivisorForTesting(kTimeDivisor);
}

void TestContentFetch::cleanupTestCase()
{
    Morvantix::Timing::setTimeDivisorForTesting(1);
}

void TestContentFetch::init()
{
    m_server = std::make_unique<HttpTestServer>();
}

void TestContentFetch::cleanup()
{
    m_server.reset();
}

void TestContentFetch::timestampJoinsTheQuery_data()
{
    QTest::addColumn<QString>("path");
    QTest::addColumn<QString>("firstItems");
    QTest::newRow("no query") << QStringLiteral("/info.json") << QString();
    QTest::newRow("with a query") << QStringLiteral("/info.json?a=1") << QStringLiteral("a=1&");
}

void TestContentFetch::timestampJoinsTheQuery()
{
    QFETCH(QString, path);
    QFETCH(QString, firstItems);
    m_server->setRoute("/info.json", "{}");
    Answer answer;
    const qint64 before = QDateTime::currentSecsSinceEpoch();
    GetDownloadComponent()->GetContentByUrl(m_server->url(path), recordInto(answer), QString(), false);
    QTRY_COMPARE(answer.calls, 1);
    const qint64 after = QDateTime::currentSecsSinceEpoch();

    QCOMPARE(answer.code, 0);
    QCOMPARE(answer.content, QStringLiteral("{}"));
    const QString query = QString::fromLatin1(m_server->requests().at(0).query);
    QVERIFY2(query.startsWith(firstItems + QStringLiteral("timestamp=")), qPrintable(query));
    const qint64 stamp = query.mid(query.indexOf(QStringLiteral("timestamp=")) + 10).toLongLong();
    QVERIFY(stamp >= before && stamp <= after);
}

void TestContentFetch::bodyChoosesTheMethod_data()
{
    QTest::addColumn<QString>("postData");
    QTest::addColumn<QByteArray>("method");
    QTest::newRow("no body") << QString() << QByteArray("GET");
    QTest::newRow("body") << QStringLiteral("channel=IOS&名字=值") << QByteArray("POST");
}

void TestContentFetch::bodyChoosesTheMethod()
{
    QFETCH(QString, postData);
    QFETCH(QByteArray, method);
    m_server->setRoute("/report", "ok");
    Answer answer;
    GetDownloadComponent()->GetContentByUrl(m_server->url("/report"), recordInto(answer), postData, false);
    QTRY_COMPARE(answer.calls, 1);

    QCOMPARE(answer.content, QStringLiteral("ok"));
    const auto request = m_server->requests().at(0);
    QCOMPARE(request.method, method);
    QCOMPARE(request.body, postData.toUtf8());
}

void TestContentFetch::textSplitBetweenReadsStaysWhole()
{
    // One byte at a time: every three-byte character arrives in pieces.
    const QString text = QStringLiteral("维护公告：服务器将于今晚停机维护。");
    HttpTestServer::Behaviour trickle;
    trickle.chunkSize = 1;
    trickle.chunkDelayMs = 2;
    m_server->setRoute("/notice.txt", text.toUtf8(), trickle);
    Answer answer;
    GetDownloadComponent()->GetContentByUrl(
        m_server->url("/notice.txt"), recordInto(answer), QString(), false);
    QTRY_COMPARE(answer.calls, 1);
    QCOMPARE(answer.code, 0);
    QCOMPARE(answer.content, text);
}

void TestContentFetch::failedAttemptsAreRetried()
{
    HttpTestServer::Behaviour failing;
    failing.status = 503;
    HttpTestServer::Behaviour silent;
    silent.silent = true;
    m_server->setRoute("/manifest.txt", "1.0.0.2|patch.zip");
    m_server->setFirstBehaviours("/manifest.txt", { failing, silent, failing });
    Answer answer;
    GetDownloadComponent()->GetContentByUrl(
        m_server->url("/manifest.txt"), recordInto(answer), QString(), false);

    QTRY_COMPARE_WITH_TIMEOUT(answer.calls, 1, 5000);
    QCOMPARE(answer.code, 0);
    QCOMPARE(answer.content, QStringLiteral("1.0.0.2|patch.zip"));
    QCOMPARE(m_server->requests().size(), 4);
    QTest::qWait(Morvantix::Timing::fetchAttemptMs());
    QCOMPARE(answer.calls, 1);
}

void TestContentFetch::persistentFailureEndsWithItsCode_data()
{
    QTest::addColumn<bool>("silent");
    QTest::addColumn<int>("status");
    QTest::addColumn<int>("code");
    QTest::newRow("never answers") << true << 200 << int(Morvantix::ContentTimeout);
    QTest::newRow("not found") << false << 404 << int(QNetworkReply::ContentNotFoundError);
}

void TestContentFetch::persistentFailureEndsWithItsCode()
{
    QFETCH(bool, silent);
    QFETCH(int, status);
    QFETCH(int, code);
    HttpTestServer::Behaviour behaviour;
    behaviour.silent = silent;
    behaviour.status = status;
    m_server->setRoute("/info.json", "{}", behaviour);
    Answer answer;
    GetDownloadComponent()->GetContentByUrl(
        m_server->url("/info.json"), recordInto(answer), QString(), false);

    // Five attempts of 500 ms with 100 ms between them.
    QTRY_COMPARE_WITH_TIMEOUT(answer.calls, 1, 6000);
    QCOMPARE(answer.code, code);
    QCOMPARE(answer.content, QString());
    QCOMPARE(m_server->requests().size(), 5);
    QTest::qWait(2 * Morvantix::Timing::fetchAttemptMs());
    QCOMPARE(answer.calls, 1);
    QCOMPARE(m_server->requests().size(), 5);
}

void TestContentFetch::waitingFetchReturnsAfterTheAttempt()
{
    HttpTestServer::Behaviour slow;
    slow.chunkSize = 4;
    slow.chunkDelayMs = 20;
    m_server->setRoute("/info.json", "{\"bInfoSwitch\":true}", slow);
    Answer answer;
    GetDownloadComponent()->GetContentByUrl(m_server->url("/info.json"), recordInto(answer), QString(), true);
    QCOMPARE(answer.calls, 1);
    QCOMPARE(answer.code, 0);
    QCOMPARE(answer.content, QStringLiteral("{\"bInfoSwitch\":true}"));
}

void TestContentFetch::overlappingFetchesKeepTheirOwnAnswers()
{
    HttpTestServer::Behaviour slow;
    slow.chunkSize = 8;
    slow.chunkDelayMs = 20;
    m_server->setRoute("/slow.txt", "the slow one's text", slow);
    m_server->setRoute("/fast.txt", "fast");
    Answer slowAnswer;
    Answer fastAnswer;
    auto component = GetDownloadComponent();
    component->GetContentByUrl(m_server->url("/slow.txt"), recordInto(slowAnswer), QString(), false);
    component->GetContentByUrl(m_server->url("/fast.txt"), recordInto(fastAnswer), QString(), false);

    QTRY_COMPARE(slowAnswer.calls, 1);
    QTRY_COMPARE(fastAnswer.calls, 1);
    QCOMPARE(slowAnswer.content, QStringLiteral("the slow one's text"));
    QCOMPARE(fastAnswer.content, QStringLiteral("fast"));
}

void TestContentFetch::imageArrivesOnlyOnSuccess_data()
{
    QTest::addColumn<int>("status");
    QTest::newRow("found") << 200;
    QTest::newRow("not found") << 404;
}

void TestContentFetch::imageArrivesOnlyOnSuccess()
{
    QFETCH(int, status);
    const QByteArray png = makeData(70000, 7);
    HttpTestServer::Behaviour behaviour;
    behaviour.status = status;
    m_server->setRoute("/bg.png", png, behaviour);
    int calls = 0;
    QByteArray received;
    GetDownloadComponent()->GetImageByUrl(m_server->url("/bg.png"), [&](const char* data, int size) {
        ++calls;
        received = QByteArray(data, size);
    });

    QTRY_COMPARE(m_server->requests().size(), 1);
    QVERIFY(m_server->requests().at(0).query.startsWith("timestamp="));
    if (status == 200) {
        QTRY_COMPARE(calls, 1);
        QCOMPARE(received, png);
    } else {
        QTest::qWait(200);
        QCOMPARE(calls, 0);
    }
}

CORE_TEST_CLASS(TestContentFetch)
#include "tst_contentfetch.moc"

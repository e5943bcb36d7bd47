#include "HttpTestServer.h"
#include "TestRegistry.h"

#include "core/ComponentAccessors.h"
#include "core/DownloadComponent.h"
#include "core/ErrorCode.h"
#include "core/Timing.h"

#include <QDateTime>
#include <QNetworkReply>
#include <QtTest>

#include <memory>

using namespace Morvantix;
using Behaviour = HttpTestServer::Behaviour;
Q_DECLARE_METATYPE(QVector<Behaviour>)

namespace {
constexpr int kTimeDivisor = 10; // an attempt lasts 500 ms, the pause between attempts 100 ms

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

Behaviour failing(int status, bool silent = false)
{
    Behaviour behaviour;
    behaviour.status = status;
    behaviour.silent = silent;
    return behaviour;
}
} // namespace

// The text and image fetches, reached through the component, against a real server.
class TestContentFetch : public QObject
{
    Q_OBJECT
private slots:
    void initTestCase() { Timing::setTimeDivisorForTesting(kTimeDivisor); }
    void cleanupTestCase() { Timing::setTimeDivisorForTesting(1); }
    void init() { m_server = std::make_unique<HttpTestServer>(); }
    void cleanup() { m_server.reset(); }

    void requestCarriesTimestampAndBody_data();
    void requestCarriesTimestampAndBody();
    void textSplitBetweenReadsStaysWhole();
    void attemptsEndInOneAnswer_data();
    void attemptsEndInOneAnswer();
    void waitingFetchReturnsWithTheAnswer();
    void overlappingFetchesKeepTheirOwnAnswers();
    void imageArrivesOnlyOnSuccess_data();
    void imageArrivesOnlyOnSuccess();

private:
    std::unique_ptr<HttpTestServer> m_server;
};

void TestContentFetch::requestCarriesTimestampAndBody_data()
{
    QTest::addColumn<QString>("path");
    QTest::addColumn<QString>("postData");
    QTest::addColumn<QString>("queryHead"); // what precedes the timestamp
    QTest::addColumn<QByteArray>("method");
    QTest::newRow("no query") << "/info.json" << QString() << "" << QByteArray("GET");
    QTest::newRow("with a query") << "/info.json?a=1" << QString() << "a=1&" << QByteArray("GET");
    QTest::newRow("with a body") << "/info.json" << QStringLiteral("channel=IOS&名字=值") << ""
                                 << QByteArray("POST");
}

void TestContentFetch::requestCarriesTimestampAndBody()
{
    QFETCH(QString, path);
    QFETCH(QString, postData);
    QFETCH(QString, queryHead);
    QFETCH(QByteArray, method);
    m_server->setRoute("/info.json", "{}");
    Answer answer;
    const qint64 before = QDateTime::currentSecsSinceEpoch();
    GetDownloadComponent()->GetContentByUrl(m_server->url(path), recordInto(answer), postData, false);
    QTRY_COMPARE(answer.calls, 1);
    const qint64 after = QDateTime::currentSecsSinceEpoch();

    QCOMPARE(answer.code, 0);
    QCOMPARE(answer.content, QStringLiteral("{}"));
    const auto request = m_server->requests().at(0);
    QCOMPARE(request.method, method);
    QCOMPARE(request.body, postData.toUtf8());
    const QString query = QString::fromLatin1(request.query);
    QVERIFY2(query.startsWith(queryHead + QStringLiteral("timestamp=")), qPrintable(query));
    const qint64 stamp = query.mid(queryHead.size() + 10).toLongLong();
    QVERIFY(stamp >= before && stamp <= after);
}

void TestContentFetch::textSplitBetweenReadsStaysWhole()
{
    // One byte at a time: every three-byte character arrives in pieces.
    const QString text = QStringLiteral("维护公告：停机");
    Behaviour trickle;
    trickle.chunkSize = 1;
    trickle.chunkDelayMs = 5;
    m_server->setRoute("/notice.txt", text.toUtf8(), trickle);
    Answer answer;
    GetDownloadComponent()->GetContentByUrl(
        m_server->url("/notice.txt"), recordInto(answer), QString(), false);
    QTRY_COMPARE(answer.calls, 1);
    QCOMPARE(answer.code, 0);
    QCOMPARE(answer.content, text);
}

void TestContentFetch::attemptsEndInOneAnswer_data()
{
    QTest::addColumn<QVector<Behaviour>>("attempts"); // the server's behaviour per request
    QTest::addColumn<int>("code");
    QTest::addColumn<int>("requests");
    const Behaviour silent = failing(200, true);
    QTest::newRow("three failures, then the text")
        << QVector<Behaviour> { failing(503), silent, failing(503), Behaviour() } << 0 << 4;
    QTest::newRow("never answers") << QVector<Behaviour>(5, silent) << int(ContentTimeout) << 5;
    QTest::newRow("not found") << QVector<Behaviour>(5, failing(404))
                               << int(QNetworkReply::ContentNotFoundError) << 5;
}

void TestContentFetch::attemptsEndInOneAnswer()
{
    QFETCH(QVector<Behaviour>, attempts);
    QFETCH(int, code);
    QFETCH(int, requests);
    m_server->setRoute("/manifest.txt", "1.0.0.2|patch.zip");
    m_server->setFirstBehaviours("/manifest.txt", attempts);
    Answer answer;
    GetDownloadComponent()->GetContentByUrl(
        m_server->url("/manifest.txt"), recordInto(answer), QString(), false);

    // At most five attempts of 500 ms with 100 ms between them.
    QTRY_COMPARE_WITH_TIMEOUT(answer.calls, 1, 6000);
    QCOMPARE(answer.code, code);
    QCOMPARE(answer.content, code == 0 ? QStringLiteral("1.0.0.2|patch.zip") : QString());
    QCOMPARE(m_server->requests().size(), requests);
    QTest::qWait(2 * Timing::fetchAttemptMs());
    QCOMPARE(answer.calls, 1);
    QCOMPARE(m_server->requests().size(), requests);
}

void TestContentFetch::waitingFetchReturnsWithTheAnswer()
{
    Behaviour slow;
    slow.chunkSize = 4;
    slow.chunkDelayMs = 20;
    m_server->setRoute("/info.json", "{\"bInfoSwitch\":true}", slow);
    Answer answer;
    GetDownloadComponent()->GetContentByUrl(m_server->url("/info.json"), recordInto(answer), QString(), true);
    QCOMPARE(answer.calls, 1);
    QCOMPARE(answer.content, QStringLiteral("{\"bInfoSwitch\":true}"));
}

void TestContentFetch::overlappingFetchesKeepTheirOwnAnswers()
{
    Behaviour slow;
    slow.chunkSize = 8;
    slow.chunkDelayMs = 20;
    m_server->setRoute("/slow.txt", "the slow one's text", slow);
    m_server->setRoute("/fast.txt", "fast");
    Answer slowAnswer;
    Answer fastAnswer;
    GetDownloadComponent()->GetContentByUrl(
        m_server->url("/slow.txt"), recordInto(slowAnswer), QString(), false);
    GetDownloadComponent()->GetContentByUrl(
        m_server->url("/fast.txt"), recordInto(fastAnswer), QString(), false);
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
    QByteArray png(70000, Qt::Uninitialized);
    for (int i = 0; i < png.size(); ++i)
        png[i] = char(i * 7 + i / 251);
    m_server->setRoute("/bg.png", png, failing(status));
    int calls = 0;
    QByteArray received;
    GetDownloadComponent()->GetImageByUrl(m_server->url("/bg.png"), [&](const char* data, int size) {
        ++calls;
        received = QByteArray(data, size);
    });

    QTRY_COMPARE(m_server->requests().size(), 1);
    QVERIFY(m_server->requests().at(0).query.startsWith("timestamp="));
    QTest::qWait(200);
    QCOMPARE(calls, status == 200 ? 1 : 0);
    QCOMPARE(received, status == 200 ? png : QByteArray());
}

CORE_TEST_CLASS(TestContentFetch)
#include "tst_contentfetch.moc"

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

namespace {
constexpr int kTimeDivisor = 10; // an attempt lasts 500 ms, the pause between attempts 100 ms

struct Answer
{
    int calls = 0;
    QString content;
    int code = -1;
};

// Starts a text fetch; its answers land in the returned record.
std::shared_ptr<Answer> fetch(const QString& url, const QString& postData = QString(), bool sync = false)
{
    const auto answer = std::make_shared<Answer>();
    const auto record = [answer](const QString& text, int code) {
        *answer = { answer->calls + 1, text, code };
    };
    GetDownloadComponent()->GetContentByUrl(url, record, postData, sync);
    return answer;
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
    void textArrivesWholeToItsOwnCaller_data();
    void textArrivesWholeToItsOwnCaller();
    void attemptsEndInOneAnswer_data();
    void attemptsEndInOneAnswer();
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
    QTest::newRow("no query") << "/info.json" << QString() << "";
    QTest::newRow("with a query") << "/info.json?a=1" << QString() << "a=1&";
    QTest::newRow("percent-encoded query") << "/info.json?dir=a%2Fb" << QString() << "dir=a%2Fb&";
    QTest::newRow("with a body") << "/info.json" << QStringLiteral("channel=IOS&名字=值") << "";
}

void TestContentFetch::requestCarriesTimestampAndBody()
{
    QFETCH(QString, path);
    QFETCH(QString, postData);
    QFETCH(QString, queryHead);
    m_server->setRoute("/info.json", "{}");
    const qint64 before = QDateTime::currentSecsSinceEpoch();
    const auto answer = fetch(m_server->url(path), postData);
    QTRY_COMPARE(answer->calls, 1);
    const qint64 after = QDateTime::currentSecsSinceEpoch();

    QCOMPARE(answer->code, 0);
    QCOMPARE(answer->content, QStringLiteral("{}"));
    const auto request = m_server->requests().at(0);
    QCOMPARE(request.method, postData.isEmpty() ? QByteArray("GET") : QByteArray("POST"));
    QCOMPARE(request.body, postData.toUtf8());
    const QString query = QString::fromLatin1(request.query);
    QVERIFY2(query.startsWith(queryHead + QStringLiteral("timestamp=")), qPrintable(query));
    const qint64 stamp = query.mid(queryHead.size() + 10).toLongLong();
    QVERIFY(stamp >= before && stamp <= after);
}

void TestContentFetch::textArrivesWholeToItsOwnCaller_data()
{
    QTest::addColumn<bool>("sync");
    QTest::newRow("answered later") << false;
    QTest::newRow("caller waits") << true;
}

void TestContentFetch::textArrivesWholeToItsOwnCaller()
{
    // One byte at a time: every three-byte character arrives in pieces, while a quicker fetch
    // started before it ends first.
    QFETCH(bool, sync);
    const QString text = QStringLiteral("维护公告：停机");
    m_server->setRoute("/notice.txt", text.toUtf8(), { { 200, false, 1, 5 } });
    m_server->setRoute("/fast.txt", "fast");
    const auto fast = fetch(m_server->url("/fast.txt"));
    const auto slow = fetch(m_server->url("/notice.txt"), QString(), sync);
    if (sync)
        QCOMPARE(slow->calls, 1);
    QTRY_COMPARE(slow->calls, 1);
    QCOMPARE(fast->calls, 1);
    QCOMPARE(slow->content, text);
    QCOMPARE(fast->content, QStringLiteral("fast"));
}

void TestContentFetch::attemptsEndInOneAnswer_data()
{
    QTest::addColumn<QVector<Behaviour>>("attempts"); // the server's behaviour per request
    QTest::addColumn<int>("code");
    QTest::addColumn<int>("requests");
    const Behaviour silent { 200, true };
    QTest::newRow("three failures, then the text")
        << QVector<Behaviour> { { 503 }, silent, { 503 }, {} } << 0 << 4;
    // Each attempt's reply is dropped unanswered, and a dropped reply may never say "finished".
    QTest::newRow("never answers") << QVector<Behaviour> { silent } << int(ContentTimeout) << 5;
    QTest::newRow("not found") << QVector<Behaviour> { { 404 } } << int(QNetworkReply::ContentNotFoundError)
                               << 5;
}

void TestContentFetch::attemptsEndInOneAnswer()
{
    QFETCH(QVector<Behaviour>, attempts);
    QFETCH(int, code);
    QFETCH(int, requests);
    m_server->setRoute("/manifest.txt", "1.0.0.2|patch.zip", attempts);
    const auto answer = fetch(m_server->url("/manifest.txt"));

    // At most five attempts of 500 ms with 100 ms between them.
    QTRY_COMPARE_WITH_TIMEOUT(answer->calls, 1, 6000);
    QCOMPARE(answer->code, code);
    QCOMPARE(answer->content, code == 0 ? QStringLiteral("1.0.0.2|patch.zip") : QString());
    QTest::qWait(2 * Timing::fetchAttemptMs());
    QCOMPARE(answer->calls, 1);
    QCOMPARE(m_server->requests().size(), requests);
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
    const QByteArray png = QByteArray("\x89PNG image bytes ").repeated(4000);
    m_server->setRoute("/bg.png", png, { { status } });
    QByteArrayList received;
    GetDownloadComponent()->GetImageByUrl(
        m_server->url("/bg.png"), [&](const char* data, int size) { received << QByteArray(data, size); });

    QTRY_COMPARE(m_server->requests().size(), 1);
    QVERIFY(m_server->requests().at(0).query.startsWith("timestamp="));
    QTest::qWait(200);
    QCOMPARE(received, status == 200 ? QByteArrayList { png } : QByteArrayList());
}

CORE_TEST_CLASS(TestContentFetch)
#include "tst_contentfetch.moc"

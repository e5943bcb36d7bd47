#include "HttpTestServer.h"
#include "ScopedTimeDivisor.h"
#include "TestRegistry.h"

#include "core/ComponentAccessors.h"
#include "core/DownloadComponent.h"
#include "core/ErrorCode.h"

#include <QDateTime>
#include <QNetworkReply>
#include <QtTest>

#include <memory>

using namespace Morvantix;
using Behaviour = HttpTestServer::Behaviour;

namespace {

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
    const ScopedTimeDivisor m_divisor { 10 }; // an attempt lasts 500 ms, the pause between attempts 100 ms
    std::unique_ptr<HttpTestServer> m_server;

private slots:
    void init() { m_server = std::make_unique<HttpTestServer>(); }
    void cleanup() { m_server.reset(); }

    void textFetchAnswersOnce_data()
    {
        QTest::addColumn<QString>("query"); // the caller's own, which the time stamp must follow
        QTest::addColumn<bool>("sync");
        QTest::addColumn<QString>("postData");
        QTest::addColumn<QVector<Behaviour>>("attempts"); // the server's behaviour per request
        QTest::addColumn<int>("code");
        QTest::addColumn<int>("requests");
        using Attempts = QVector<Behaviour>;
        // One byte at a time: every three-byte character arrives in pieces.
        const Behaviour pieces { 200, false, 1, 2 };
        const Behaviour silent { 200, true };
        QTest::newRow("no query") << "" << false << "" << Attempts { pieces } << 0 << 1;
        QTest::newRow("with a query, caller waits") << "a=1" << true << "" << Attempts { pieces } << 0 << 1;
        QTest::newRow("percent-encoded query") << "dir=a%2Fb" << false << "" << Attempts { pieces } << 0 << 1;
        QTest::newRow("with a body") << "" << false << QStringLiteral("channel=IOS&名字=值")
                                     << Attempts { pieces } << 0 << 1;
        QTest::newRow("three failures, then the text")
            << "" << false << "" << Attempts { { 503 }, silent, { 503 }, pieces } << 0 << 4;
        // Each attempt's reply is dropped unanswered, and a dropped reply may never say "finished".
        QTest::newRow("never answers")
            << "" << false << "" << Attempts { silent } << int(ContentTimeout) << 5;
        QTest::newRow("not found") << "" << false << "" << Attempts { { 404 } }
                                   << int(QNetworkReply::ContentNotFoundError) << 5;
    }

    void textFetchAnswersOnce()
    {
        QFETCH(QString, query);
        QFETCH(bool, sync);
        QFETCH(QString, postData);
        QFETCH(QVector<Behaviour>, attempts);
        QFETCH(int, code);
        QFETCH(int, requests);
        const QString text = QStringLiteral("维护公告：停机");
        m_server->setRoute("/notice.txt", text.toUtf8(), attempts);
        m_server->setRoute("/fast.txt", "fast");
        const qint64 before = QDateTime::currentSecsSinceEpoch();
        // A quicker fetch started before it must end first, and with its own text.
        const auto fast = fetch(m_server->url("/fast.txt"));
        const auto answer
            = fetch(m_server->url("/notice.txt" + (query.isEmpty() ? "" : '?' + query)), postData, sync);
        if (sync)
            QCOMPARE(answer->calls, 1);
        // At most five attempts of 500 ms with 100 ms between them.
        QTRY_COMPARE_WITH_TIMEOUT(answer->calls, 1, 6000);
        const qint64 after = QDateTime::currentSecsSinceEpoch();
        QCOMPARE(fast->calls, 1);
        QCOMPARE(fast->content, QStringLiteral("fast"));
        QCOMPARE(answer->code, code);
        QCOMPARE(answer->content, code == 0 ? text : QString());
        // Long enough for one attempt too many to start after its pause.
        QTest::qWait(3 * Timing::fetchRetryPauseMs());
        QCOMPARE(answer->calls, 1);
        QCOMPARE(m_server->requests("/notice.txt").size(), requests);
        for (const auto& request : m_server->requests("/notice.txt")) {
            QCOMPARE(request.method, postData.isEmpty() ? QByteArray("GET") : QByteArray("POST"));
            QCOMPARE(request.body, postData.toUtf8());
            const QString head = query.isEmpty() ? "timestamp=" : query + "&timestamp=";
            QVERIFY2(request.query.startsWith(head.toLatin1()), request.query.constData());
            const qint64 stamp = request.query.mid(head.size()).toLongLong();
            QVERIFY(stamp >= before && stamp <= after);
        }
    }

    void imageArrivesOnlyOnSuccess_data()
    {
        QTest::addColumn<int>("status");
        QTest::newRow("found") << 200;
        QTest::newRow("not found") << 404;
    }

    void imageArrivesOnlyOnSuccess()
    {
        QFETCH(int, status);
        const QByteArray png = QByteArray("\x89PNG image bytes ").repeated(4000);
        m_server->setRoute("/bg.png", png, { { status } });
        QByteArrayList received;
        GetDownloadComponent()->GetImageByUrl(m_server->url("/bg.png"),
            [&](const char* data, int size) { received << QByteArray(data, size); });

        QTRY_COMPARE(m_server->requests().size(), 1);
        QVERIFY(m_server->requests().at(0).query.startsWith("timestamp="));
        QTest::qWait(200);
        QCOMPARE(received, status == 200 ? QByteArrayList { png } : QByteArrayList());
    }
};

CORE_TEST_CLASS(TestContentFetch)
#include "tst_contentfetch.moc"

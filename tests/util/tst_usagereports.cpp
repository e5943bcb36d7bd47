#include "HttpTestServer.h"
#include "ScopedTimeDivisor.h"
#include "TestDirs.h"
#include "TestFiles.h"
#include "TestRegistry.h"

#include "util/UsageReporter.h"

#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QSignalSpy>
#include <QtTest>

namespace {

QStringList codesIn(const QByteArray& body)
{
    QStringList codes;
    for (const QJsonValue& event : QJsonDocument::fromJson(body).object()["events"].toArray())
        codes << event["code"].toString();
    return codes;
}

} // namespace

// Usage reports queued in the log folder and posted to the real test server.
class TestUsageReports : public QObject
{
    Q_OBJECT
private slots:
    void queuedWhileDownSentOnceUp()
    {
        ScopedWorkingDir workDir;
        ScopedTimeDivisor faster(20);
        UsageReporter* reporter = UsageReporter::GetInstance();
        reporter->SetQueueLimit(64 * 1024);
        HttpTestServer server;
        server.setRoute("/report", "ok");
        server.setListening(false);
        const QString url = server.url("/report");
        QSignalSpy finished(reporter, &UsageReporter::SendFinished);

        QVERIFY(!reporter->Record("1999"));
        for (const char* code : { "2001", "2007", "2018" })
            QVERIFY(reporter->Record(code, { { "version", "1.0.0.2" } }));
        reporter->Send(url);
        QCOMPARE(finished.count(), 0); // the caller never waits for the server
        QTRY_COMPARE(finished.count(), 1);
        QCOMPARE(finished.takeFirst(), (QVariantList { false, 3 }));
        QCOMPARE(reporter->QueuedCount(), 3);

        server.setListening(true);
        QVERIFY(reporter->Record("2002"));
        reporter->Send(url);
        reporter->Send(url); // ignored: one post at a time
        QTRY_COMPARE(finished.count(), 1);
        QCOMPARE(finished.takeFirst(), (QVariantList { true, 4 }));
        const QVector<HttpTestServer::Request> posts = server.requests("/report");
        QCOMPARE(posts.size(), 1);
        QCOMPARE(posts.first().method + ' ' + posts.first().header("content-type"), "POST application/json");
        QCOMPARE(codesIn(posts.first().body), (QStringList { "2001", "2007", "2018", "2002" }));
        QCOMPARE(reporter->QueuedCount(), 0);
    }

    void queueNeverBeyondItsBound()
    {
        const qint64 limit = 700; // room for a few events
        ScopedWorkingDir workDir;
        UsageReporter* reporter = UsageReporter::GetInstance();
        reporter->SetQueueLimit(limit);
        for (int i = 0; i < 60; ++i) {
            QVERIFY(reporter->Record("2005", { { "n", i } }));
            QVERIFY(QFileInfo(reporter->QueueFilePath()).size() <= limit);
        }
        QVERIFY(!reporter->Record("2005", { { "big", QString(int(limit), 'x') } }));
        const QByteArray queue = TestFiles::readFile(reporter->QueueFilePath());
        QVERIFY(queue.contains("\"n\":59}") && !queue.contains("\"n\":0}")); // the oldest went first
        QVERIFY(reporter->QueuedCount() > 1);
        reporter->SetQueueLimit(256 * 1024);
    }
};

CORE_TEST_CLASS(TestUsageReports)
#include "tst_usagereports.moc"

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
    const QJsonArray events
        = QJsonDocument::fromJson(body).object().value(QStringLiteral("events")).toArray();
    for (const QJsonValue& event : events)
        codes << event.toObject().value(QStringLiteral("code")).toString();
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
        QSignalSpy finished(reporter, &UsageReporter::SendFinished);

        QVERIFY(!reporter->Record(QStringLiteral("1999")));
        for (const char* code : { "2001", "2007", "2018" })
            QVERIFY(
                reporter->Record(QString::fromLatin1(code), { { QStringLiteral("version"), "1.0.0.2" } }));
        reporter->Send(server.url(QStringLiteral("/report")));
        QCOMPARE(finished.count(), 0); // the caller never waits for the server
        QTRY_COMPARE(finished.count(), 1);
        QCOMPARE(finished.takeFirst(), (QVariantList { false, 3 }));
        QCOMPARE(reporter->QueuedCount(), 3);

        server.setListening(true);
        QVERIFY(reporter->Record(QStringLiteral("2002")));
        reporter->Send(server.url(QStringLiteral("/report")));
        reporter->Send(server.url(QStringLiteral("/report"))); // ignored: one post at a time
        QTRY_COMPARE(finished.count(), 1);
        QCOMPARE(finished.takeFirst(), (QVariantList { true, 4 }));
        const QVector<HttpTestServer::Request> posts = server.requests("/report");
        QCOMPARE(posts.size(), 1);
        QCOMPARE(posts.first().method, QByteArray("POST"));
        QCOMPARE(posts.first().header("content-type"), QByteArray("application/json"));
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
            QVERIFY(reporter->Record(QStringLiteral("2005"), { { QStringLiteral("n"), i } }));
            QVERIFY(QFileInfo(reporter->QueueFilePath()).size() <= limit);
        }
        QVERIFY(!reporter->Record(
            QStringLiteral("2005"), { { QStringLiteral("big"), QString(int(limit), 'x') } }));
        const QByteArray queue = TestFiles::readFile(reporter->QueueFilePath());
        QVERIFY(queue.contains("\"n\":59}") && !queue.contains("\"n\":0}")); // the oldest went first
        QVERIFY(reporter->QueuedCount() > 1);
        reporter->SetQueueLimit(256 * 1024);
    }
};

CORE_TEST_CLASS(TestUsageReports)
#include "tst_usagereports.moc"

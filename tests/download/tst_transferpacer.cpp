#include "HttpTestServer.h"
#include "ScopedTimeDivisor.h"
#include "TestRegistry.h"

#include "core/Timing.h"
#include "download/TransferPacer.h"
#include "download/downloader.h"

#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QTemporaryDir>
#include <QtTest>

// The arithmetic of the pace: the budget of a pass, the read buffer of a reply, and the one queued
// pass that the requests fold into; the limit reaching the replies, and the job's clocks. The loop
// itself moves real bytes in the manager's tests.
class TestTransferPacer : public QObject
{
    Q_OBJECT

private slots:
    void budgetFollowsTheLimit_data()
    {
        QTest::addColumn<int>("limit"); // KB/s, -1 none
        QTest::addColumn<qint64>("msecs");
        QTest::addColumn<qint64>("budget");
        const qint64 unlimited = Q_INT64_C(4294967295) * 1024;
        QTest::newRow("no limit, a tick") << -1 << qint64(5) << unlimited;
        QTest::newRow("no limit, no time") << -1 << qint64(0) << unlimited;
        QTest::newRow("100 KB/s, a tick") << 100 << qint64(5) << qint64(512);
        QTest::newRow("100 KB/s, a second") << 100 << qint64(1000) << qint64(102400);
        QTest::newRow("100 KB/s, under a byte") << 100 << qint64(0) << qint64(0);
        QTest::newRow("held") << 0 << qint64(1000) << qint64(0);
    }

    void budgetFollowsTheLimit()
    {
        QFETCH(int, limit);
        QFETCH(qint64, msecs);
        QFETCH(qint64, budget);
        QCOMPARE(TransferPacer::Budget(limit, msecs), budget);
        // A pass without transfers waits for data; held, it only asks for the next pass: nothing may
        // move, yet the job is not stalled.
        if (limit <= 0) {
            TransferPacer pacer;
            pacer.SetLimit(limit);
            pacer.RestartClock();
            QCOMPARE(pacer.Pass({}, [] { return false; }),
                limit < 0 ? PassEnd::WaitForData : PassEnd::BudgetSpent);
        }
    }

    void requestsFoldIntoOnePass()
    {
        TransferPacer pacer;
        pacer.SetLimit(-1);
        QCOMPARE(pacer.TickMs(), 0); // nothing to pace: at once
        QVERIFY(pacer.MarkScheduled());
        QVERIFY(!pacer.MarkScheduled());
        pacer.ClearScheduled();
        QVERIFY(pacer.MarkScheduled());
        pacer.SetLimit(100);
        QCOMPARE(pacer.TickMs(), 5);
    }

    // The read buffer each reply of a running transfer gets: no more unread than the limit in force
    // allows.
    void limitReachesTheReplies_data()
    {
        QTest::addColumn<int>("limit"); // KB/s, -1 none
        QTest::addColumn<int>("running");
        QTest::addColumn<qint64>("size");
        const qint64 mib = 1024 * 1024;
        QTest::newRow("no limit, one transfer") << -1 << 1 << 4 * mib;
        QTest::newRow("no limit, none yet") << -1 << 0 << 4 * mib;
        QTest::newRow("no limit, four share 16 MiB") << -1 << 4 << 4 * mib;
        QTest::newRow("no limit, five share 16 MiB") << -1 << 5 << 16 * mib / 5;
        QTest::newRow("four seconds of 100 KB/s") << 100 << 3 << qint64(409600);
        // Four seconds of nothing would read as unbounded to the network layer.
        QTest::newRow("held") << 0 << 1 << 4 * mib;
    }

    void limitReachesTheReplies()
    {
        QFETCH(int, limit);
        QFETCH(int, running);
        QFETCH(qint64, size);
        QCOMPARE(TransferPacer::ReadBufferSize(limit, running), size);
        HttpTestServer server;
        server.setRoute("/f", QByteArray(1 << 20, 'f'), { { 200, false, 1000, 50 } });
        QTemporaryDir dir;
        QNetworkAccessManager network;
        qint64 received = 0;
        QVector<QSharedPointer<downloader>> transfers;
        QVector<QPointer<downloader>> open;
        for (int i = 0; i < running; ++i) {
            transfers.append(QSharedPointer<downloader>(new downloader(nullptr, &network, &received)));
            transfers.last()->SetRequest(dir.filePath(QString::number(i)), QUrl(server.url("/f")), 1 << 20);
            transfers.last()->ReStartDownload();
            open.append(transfers.last().data());
        }
        TransferPacer pacer;
        pacer.ApplyLimit(limit, open);
        QCOMPARE(pacer.Limit(), limit);
        const QList<QNetworkReply*> replies = network.findChildren<QNetworkReply*>();
        QCOMPARE(replies.size(), running);
        for (const QNetworkReply* reply : replies)
            QCOMPARE(reply->readBufferSize(), size);
        for (const auto& transfer : qAsConst(transfers))
            transfer->Release();
    }

    // The job's clocks, read after the steps: "start" a file, "stop" the job, "ask" for a pass, "wait"
    // 700 ms. The stall time is 1000 ms here and a sample is due each second.
    void clocksRunWhileTheJobDoes_data()
    {
        QTest::addColumn<QString>("steps");
        QTest::addColumn<int>("passes");
        QTest::addColumn<int>("stalls");
        QTest::addColumn<int>("samples");
        QTest::newRow("a started file stalls") << "start wait wait" << 0 << 1 << 1;
        QTest::newRow("a pass asked for puts the stall off") << "start wait ask wait" << 1 << 0 << 1;
        QTest::newRow("passes asked for fold into one") << "ask ask ask wait" << 1 << 0 << 0;
        QTest::newRow("a stopped job stays silent") << "start wait stop wait" << 0 << 0 << 0;
    }

    void clocksRunWhileTheJobDoes()
    {
        QFETCH(QString, steps);
        QFETCH(int, passes);
        QFETCH(int, stalls);
        QFETCH(int, samples);
        const ScopedTimeDivisor divisor(20);
        QCOMPARE(Morvantix::Timing::stallTimeoutMs(), 1000);
        int passCount = 0, stallCount = 0, sampleCount = 0;
        TransferPacer pacer({ [&] { ++passCount; }, [&] { ++stallCount; }, [&] { ++sampleCount; } });
        pacer.SetLimit(100);
        for (const QString& step : steps.split(' ')) {
            if (step == "start")
                pacer.StartClocks();
            else if (step == "stop")
                pacer.StopClocks();
            else if (step == "ask")
                pacer.Schedule();
            else
                QTest::qWait(700);
        }
        QCOMPARE(passCount, passes);
        QCOMPARE(stallCount, stalls);
        QCOMPARE(sampleCount, samples);
    }
};

CORE_TEST_CLASS(TestTransferPacer)
#include "tst_transferpacer.moc"

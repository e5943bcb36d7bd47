#include "TestRegistry.h"

#include "download/TransferPacer.h"

#include <QtTest>

// The arithmetic of the pace: the budget of a pass, the read buffer of a reply, and the one queued
// pass that the requests fold into. The loop itself moves real bytes in the manager's tests.
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
    }

    void readBufferStaysBounded_data()
    {
        QTest::addColumn<int>("limit");
        QTest::addColumn<int>("running");
        QTest::addColumn<qint64>("size");
        const qint64 mib = 1024 * 1024;
        QTest::newRow("no limit, one transfer") << -1 << 1 << 4 * mib;
        QTest::newRow("no limit, none yet") << -1 << 0 << 4 * mib;
        QTest::newRow("no limit, four share 16 MiB") << -1 << 4 << 4 * mib;
        QTest::newRow("no limit, five share 16 MiB") << -1 << 5 << 16 * mib / 5;
        QTest::newRow("four seconds of 100 KB/s") << 100 << 5 << qint64(409600);
        // Four seconds of nothing would read as unbounded to the network layer.
        QTest::newRow("held") << 0 << 1 << 4 * mib;
    }

    void readBufferStaysBounded()
    {
        QFETCH(int, limit);
        QFETCH(int, running);
        QFETCH(qint64, size);
        QCOMPARE(TransferPacer::ReadBufferSize(limit, running), size);
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

    void passWithoutTransfersWaits_data()
    {
        QTest::addColumn<int>("limit");
        QTest::addColumn<int>("end");
        QTest::newRow("no limit") << -1 << int(PassEnd::WaitForData);
        // A limit of nothing only asks for the next pass: nothing may move, yet the job is not stalled.
        QTest::newRow("held") << 0 << int(PassEnd::BudgetSpent);
    }

    void passWithoutTransfersWaits()
    {
        QFETCH(int, limit);
        QFETCH(int, end);
        TransferPacer pacer;
        pacer.SetLimit(limit);
        pacer.RestartClock();
        QCOMPARE(int(pacer.Pass({}, [] { return false; })), end);
    }
};

CORE_TEST_CLASS(TestTransferPacer)
#include "tst_transferpacer.moc"

#include "TestRegistry.h"

#include "download/DownloadReport.h"
#include "download/SpeedMeter.h"

#include <QtTest>

using Morvantix::DownloadCallbackInfo;

// One ending per run, told in a record that outlives runs and must never read as an earlier ending.
class TestDownloadReport : public QObject
{
    Q_OBJECT

private slots:
    void oneEndingPerRun_data()
    {
        // events: o a new run, f a failure, c a completion. taken: + or - per ending, whether it counted.
        QTest::addColumn<QString>("events");
        QTest::addColumn<QString>("taken");
        QTest::addColumn<bool>("complete"); // what the record says at the end
        QTest::newRow("failure, then a late completion") << QString("ofc") << QString("+-") << false;
        QTest::newRow("completion, then a late failure") << QString("ocf") << QString("+-") << true;
        QTest::newRow("two failures") << QString("off") << QString("+-") << false;
        QTest::newRow("completion, then a failing run") << QString("ocof") << QString("++") << false;
        QTest::newRow("failure, then a completing run") << QString("ofoc") << QString("++") << true;
    }

    void oneEndingPerRun()
    {
        QFETCH(QString, events);
        QFETCH(QString, taken);
        QFETCH(bool, complete);
        DownloadReport report;
        QVector<DownloadCallbackInfo> told;
        report.Register([&told](DownloadCallbackInfo& info) { told.append(info); });
        SpeedMeter meter;
        meter.SetJob(100, 100);
        QString seen;
        for (const QChar event : events) {
            if (event == 'o') {
                report.Open();
                continue;
            }
            const bool bTaken = event == 'f'
                ? report.EndFailed(Morvantix::StallTimeout, QStringLiteral("stalled"))
                : report.EndComplete(meter);
            seen += bTaken ? '+' : '-';
            if (bTaken)
                report.Send();
        }
        QCOMPARE(seen, taken);
        QCOMPARE(told.size(), taken.count('+'));
        QCOMPARE(told.last().bComplete, complete);
        QCOMPARE(told.last().bError, !complete);
        if (complete) {
            QCOMPARE(told.last().totalBytes, qint64(100));
        } else {
            QCOMPARE(told.last().errorCode, Morvantix::StallTimeout);
            QCOMPARE(told.last().errorMsg, QStringLiteral("stalled"));
        }
    }
};

CORE_TEST_CLASS(TestDownloadReport)
#include "tst_downloadreport.moc"

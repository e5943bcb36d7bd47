#include "TestRegistry.h"

#include "download/SpeedMeter.h"

#include <QtTest>

using Morvantix::DownloadCallbackInfo;

// The figures a download reports, fed by hand: the smoothing of the speed, what counts as on disk,
// and the time left.
class TestSpeedMeter : public QObject
{
    Q_OBJECT

private slots:
    void speedIsTheAverageOfTheRecord_data()
    {
        QTest::addColumn<QVector<qint64>>("samples"); // bytes per one-second sample
        QTest::addColumn<qint64>("speed"); // after the last one
        QVector<qint64> rising;
        for (int i = 1; i <= 14; ++i)
            rising.append(i);
        QVector<qint64> heldThirteenth(12, 0);
        heldThirteenth.append(1300);
        heldThirteenth += QVector<qint64>(30, 0);
        QTest::newRow("first sample") << QVector<qint64> { 100 } << qint64(100);
        QTest::newRow("two samples") << QVector<qint64> { 100, 300 } << qint64(200);
        QTest::newRow("fourteen values once full") << rising << qint64(105 / 14);
        QTest::newRow("fifteenth replaces the first")
            << (rising + QVector<qint64> { 15 }) << qint64(119 / 14);
        // Only twelve entries rotate: the thirteenth stays until the record is cleared.
        QTest::newRow("thirteenth never rotates out") << heldThirteenth << qint64(1300 / 14);
    }

    void speedIsTheAverageOfTheRecord()
    {
        QFETCH(QVector<qint64>, samples);
        QFETCH(qint64, speed);
        SpeedMeter meter;
        meter.SetJob(Q_INT64_C(1) << 40, 0);
        DownloadCallbackInfo info;
        for (qint64 bytes : samples) {
            *meter.ReceivedCounter() += bytes;
            meter.Report(meter.TakeDelta(), info);
        }
        QCOMPARE(info.speed, speed);

        // A cleared record starts the average again.
        meter.ClearRecord();
        *meter.ReceivedCounter() += 7;
        meter.Report(meter.TakeDelta(), info);
        QCOMPARE(info.speed, qint64(7));
    }

    void progressCountsWhatIsOnDisk()
    {
        SpeedMeter meter;
        meter.Restart();
        meter.SetJob(1000, 200); // a partial file of 200 bytes found at the start
        DownloadCallbackInfo info;
        info.remainTime = 99;
        meter.Report(meter.TakeDelta(), info);
        QCOMPARE(info.receivedBytes, qint64(200));
        QCOMPARE(info.percent, 0.2f);
        QCOMPARE(info.remainTime, 99); // no speed yet: the time left keeps its value

        *meter.ReceivedCounter() += 300;
        meter.Report(meter.TakeDelta(), info);
        QCOMPARE(info.receivedBytes, qint64(500));
        QCOMPARE(info.totalBytes, qint64(1000));
        QCOMPARE(info.percent, 0.5f);
        QCOMPARE(info.speed, qint64(150)); // the empty first sample counts
        QCOMPARE(info.remainTime, 500 / 150);

        // The partial file is thrown away, and its 200 bytes arrive again: no gain.
        meter.Discard(500);
        QVERIFY(!meter.GainedSinceRestart());
        *meter.ReceivedCounter() += 250;
        QVERIFY(meter.GainedSinceRestart());

        // The completion carries what arrived since the last sample.
        meter.ReportFinal(info);
        QCOMPARE(info.receivedBytes, qint64(250));
        QCOMPARE(meter.OnDisk(), qint64(250));
    }

    void emptyJobIsWhole()
    {
        SpeedMeter meter;
        meter.SetJob(0, 0);
        DownloadCallbackInfo info;
        meter.ReportFinal(info);
        QCOMPARE(info.percent, 1.0f);
        QCOMPARE(info.totalBytes, qint64(0));
    }
};

CORE_TEST_CLASS(TestSpeedMeter)
#include "tst_speedmeter.moc"

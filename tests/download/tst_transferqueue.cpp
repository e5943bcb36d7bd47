#include "TestRegistry.h"

#include "download/TransferQueue.h"
#include "download/downloader.h"

#include <QNetworkAccessManager>
#include <QtTest>

using Morvantix::DownloadFileInfo;

Q_DECLARE_METATYPE(TransferState)

// The files of a job and their states, with transfers that are never started: the order files start
// in, which one a completion is for, and that every file leaving "running" lets go of its transfer.
class TestTransferQueue : public QObject
{
    Q_OBJECT

private slots:
    void stopsEveryRunningFile_data()
    {
        QTest::addColumn<TransferState>("why");
        QTest::newRow("paused") << TransferState::Paused;
        QTest::newRow("stalled") << TransferState::Stalled;
        QTest::newRow("restarting") << TransferState::Restarting;
        QTest::newRow("failed") << TransferState::Failed;
    }

    void stopsEveryRunningFile()
    {
        QFETCH(TransferState, why);
        TransferQueue queue;
        queue.Reset(files({ "a", "b", "c", "d" }));
        QCOMPARE(queue.NextWaiting(), 0);
        const QPointer<downloader> a = start(queue);
        const QPointer<downloader> b = start(queue);
        const QPointer<downloader> c = start(queue);
        QCOMPARE(queue.RunningCount(), 3);
        QCOMPARE(queue.RunningTransfers(), (QVector<QPointer<downloader>> { a, b, c }));

        QVERIFY(queue.Finish("/cache/b"));
        QCOMPARE(queue.State(1), TransferState::Done);
        QCOMPARE(queue.RunningTransfers(), (QVector<QPointer<downloader>> { a, c }));

        queue.StopRunning(why);
        QCOMPARE(queue.RunningCount(), 0);
        QVERIFY(queue.RunningTransfers().isEmpty());
        const QVector<TransferState> states { why, TransferState::Done, why, TransferState::Waiting };
        for (int i = 0; i < states.size(); ++i)
            QCOMPARE(queue.State(i), states.at(i));
        QCOMPARE(queue.NextWaiting(), 3);
        // The transfers go once the event loop is back.
        QTRY_VERIFY(!a && !b && !c);
    }

    void completionFindsTheRunningFile()
    {
        TransferQueue queue;
        queue.Reset(files({ "same", "same", "other" }));
        QVERIFY(!queue.Finish("/cache/same")); // nothing runs yet
        start(queue);
        start(queue);
        QVERIFY(queue.Finish("/cache/same"));
        QCOMPARE(queue.State(0), TransferState::Done);
        QCOMPARE(queue.State(1), TransferState::Running);
        QVERIFY(!queue.Finish("/cache/other"));
        QVERIFY(queue.Finish("/cache/same"));
        QCOMPARE(queue.State(1), TransferState::Done);
        QVERIFY(queue.HasWaiting());
    }

    void resetStartsTheListAgain()
    {
        TransferQueue queue;
        queue.Reset(files({ "a", "b" }));
        const QPointer<downloader> a = start(queue);
        start(queue);
        QVERIFY(!queue.HasWaiting());
        queue.Reset(files({ "c" }));
        QCOMPARE(queue.Size(), 1);
        QCOMPARE(queue.RunningCount(), 0);
        QCOMPARE(queue.NextWaiting(), 0);
        QCOMPARE(queue.File(0).localPath, QStringLiteral("/cache/c"));
        QTRY_VERIFY(!a);
        queue.Reset({});
        QVERIFY(!queue.HasWaiting());
        QCOMPARE(queue.NextWaiting(), -1);
    }

private:
    static QVector<DownloadFileInfo> files(const QStringList& names)
    {
        QVector<DownloadFileInfo> list;
        for (const QString& name : names)
            list.append({ name, "/cache/" + name, 10, "http://127.0.0.1:1/" + name, QString() });
        return list;
    }

    QPointer<downloader> start(TransferQueue& queue)
    {
        const int index = queue.NextWaiting();
        QSharedPointer<downloader> transfer(
            new downloader(nullptr, &m_network, &m_received), &QObject::deleteLater);
        transfer->SetRequest(
            queue.File(index).localPath, QUrl(queue.File(index).url), queue.File(index).size);
        queue.Start(index, transfer);
        [&] { QCOMPARE(queue.State(index), TransferState::Running); }();
        return transfer.data();
    }

    QNetworkAccessManager m_network;
    qint64 m_received = 0;
};

CORE_TEST_CLASS(TestTransferQueue)
#include "tst_transferqueue.moc"

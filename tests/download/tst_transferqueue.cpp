#include "TestFiles.h"
#include "TestRegistry.h"

#include "download/TransferQueue.h"
#include "download/downloader.h"

#include <QNetworkAccessManager>
#include <QTemporaryDir>
#include <QtTest>

using Morvantix::DownloadFileInfo;
using Morvantix::ErrorCode;

Q_DECLARE_METATYPE(TransferState)

// The files of a job and their states, with transfers that are never started: the order files start
// in, which one a completion is for, and that every file leaving "running" lets go of its transfer.
class TestTransferQueue : public QObject
{
    Q_OBJECT

private slots:
    // Filling the slots as the manager does, with a file complete on disk finishing inside its own
    // start: files start in list order, never more than five run, the job completes once, and no file
    // starts inside another's report (thousands of complete files would nest as deep).
    void fillsSlotsInListOrder_data()
    {
        QTest::addColumn<QString>("files"); // per file: c complete on disk, f still to fetch
        QTest::addColumn<bool>("stopped"); // the job was stopped before the fill
        QTest::addColumn<int>("started");
        QTest::addColumn<int>("running");
        QTest::addColumn<int>("opened"); // starts that left a request open
        QTest::addColumn<int>("completions");
        QTest::newRow("nothing listed") << "" << false << 0 << 0 << 0 << 1;
        QTest::newRow("seven to fetch, five run") << "fffffff" << false << 5 << 5 << 5 << 0;
        QTest::newRow("complete files make room") << "ccfffffff" << false << 7 << 5 << 5 << 0;
        // The last start ends the job inside the first one's: none of them goes on as running.
        QTest::newRow("every file complete") << "ccc" << false << 3 << 0 << 0 << 1;
        QTest::newRow("a stopped job starts nothing") << "ff" << true << 0 << 0 << 0 << 0;
        const QString manyComplete(3000, 'c');
        QTest::newRow("thousands complete") << manyComplete << false << 3000 << 0 << 0 << 1;
        QTest::newRow("thousands complete, then five to fetch")
            << manyComplete + "fffff" << false << 3005 << 5 << 5 << 0;
    }

    void fillsSlotsInListOrder()
    {
        QFETCH(QString, files);
        QFETCH(bool, stopped);
        QFETCH(int, started);
        QFETCH(int, running);
        QFETCH(int, opened);
        QFETCH(int, completions);
        QTemporaryDir dir;
        QVector<DownloadFileInfo> list;
        for (int i = 0; i < files.size(); ++i) {
            const QString path = dir.filePath(QString::number(i));
            if (files.at(i) == 'c')
                QVERIFY(TestFiles::writeFile(path, QByteArray(10, 'c')));
            list.append(
                { QString::number(i), path, 10, "http://127.0.0.1:1/" + QString::number(i), QString() });
        }
        bool bRunning = !stopped;
        QStringList made;
        int openedCount = 0, completionCount = 0;
        int reportsOnStack = 0, deepestStart = 0;
        TransferQueue* queue = nullptr;
        TransferQueue::Starter starter {
            [&](const DownloadFileInfo& file) {
                made << file.name;
                deepestStart = qMax(deepestStart, reportsOnStack);
                QSharedPointer<downloader> transfer(
                    new downloader(nullptr, &m_network, &m_received), &QObject::deleteLater);
                connect(transfer.data(), &downloader::DownloadResult, this,
                    [&](ErrorCode code, const QString&, const QString& path) {
                        ++reportsOnStack;
                        if (code == ErrorCode::FileFinished && queue->Finish(path))
                            queue->FillSlots();
                        --reportsOnStack;
                    });
                return transfer;
            },
            [&] { return bRunning; },
            [&](const DownloadFileInfo& file, qint64 bytesOnDisk) {
                QCOMPARE(bytesOnDisk, qint64(files.at(file.name.toInt()) == 'c' ? 10 : 0));
                ++openedCount;
            },
            [&] {
                ++completionCount;
                bRunning = false;
            },
        };
        TransferQueue filled(starter);
        queue = &filled;
        filled.Reset(list);
        filled.FillSlots();

        QStringList inOrder;
        for (int i = 0; i < started; ++i)
            inOrder << QString::number(i);
        QCOMPARE(made, inOrder);
        QCOMPARE(filled.RunningCount(), running);
        QCOMPARE(openedCount, opened);
        QCOMPARE(completionCount, completions);
        QCOMPARE(deepestStart, 0);
        for (int i = 0; i < files.size(); ++i) {
            const TransferState expected = i >= started ? TransferState::Waiting
                : files.at(i) == 'c'                    ? TransferState::Done
                                                        : TransferState::Running;
            QCOMPARE(filled.State(i), expected);
        }
        filled.StopRunning(TransferState::Paused);
    }

    // A file leaving "running" lets go of its transfer, however it leaves: a completion for the
    // running file of its path, a stop of every running one, or a new list.
    void filesLeaveRunning_data()
    {
        QTest::addColumn<TransferState>("why"); // Waiting: the list is replaced instead
        QTest::newRow("paused") << TransferState::Paused;
        QTest::newRow("stalled") << TransferState::Stalled;
        QTest::newRow("restarting") << TransferState::Restarting;
        QTest::newRow("failed") << TransferState::Failed;
        QTest::newRow("a new list") << TransferState::Waiting;
    }

    void filesLeaveRunning()
    {
        QFETCH(TransferState, why);
        TransferQueue queue;
        queue.Reset(files({ "same", "same", "other", "last" }));
        QVERIFY(!queue.Finish("/cache/same")); // nothing runs yet
        const QPointer<downloader> a = start(queue), b = start(queue), c = start(queue);
        QCOMPARE(queue.RunningTransfers(), (QVector<QPointer<downloader>> { a, b, c }));
        QVERIFY(queue.Finish("/cache/same"));
        QCOMPARE(queue.State(0), TransferState::Done);
        QCOMPARE(queue.State(1), TransferState::Running);
        QVERIFY(!queue.Finish("/cache/last"));
        QVERIFY(queue.Finish("/cache/same"));
        QCOMPARE(queue.RunningTransfers(), (QVector<QPointer<downloader>> { c }));

        const TransferState done = TransferState::Done, waiting = TransferState::Waiting;
        if (why == waiting)
            queue.Reset(files({ "new" }));
        else
            queue.StopRunning(why);
        const QVector<TransferState> states = why == waiting
            ? QVector<TransferState> { waiting }
            : QVector<TransferState> { done, done, why, waiting };
        QCOMPARE(queue.Size(), states.size());
        for (int i = 0; i < states.size(); ++i)
            QCOMPARE(queue.State(i), states.at(i));
        QCOMPARE(queue.RunningCount(), 0);
        QVERIFY(queue.RunningTransfers().isEmpty());
        QCOMPARE(queue.File(queue.NextWaiting()).localPath, why == waiting ? "/cache/new" : "/cache/last");
        // The transfers go once the event loop is back.
        QTRY_VERIFY(!a && !b && !c);
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

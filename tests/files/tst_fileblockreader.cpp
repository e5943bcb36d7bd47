#include "TestFiles.h"
#include "TestRegistry.h"

#include "files/FileBlockReader.h"

#include <QFile>
#include <QTemporaryDir>
#include <QtTest>

#ifndef Q_OS_WIN
#include <sys/stat.h>
#endif

Q_DECLARE_METATYPE(FileBlockReader::End)

// What the digests read of a file: its bytes in the caller's blocks, up to a limit, never a pipe.
class TestFileBlockReader : public QObject
{
    Q_OBJECT

private slots:
    void readsUpToTheLimit_data()
    {
        QTest::addColumn<int>("fileBytes");
        QTest::addColumn<int>("bufferBytes");
        QTest::addColumn<qint64>("limit");
        QTest::addColumn<int>("expected"); // bytes handed on
        QTest::addColumn<int>("blocks");
        const qint64 open = FileBlockReader::kOpenSize;
        QTest::newRow("whole, in blocks") << 10000 << 4096 << open << 10000 << 3;
        QTest::newRow("empty file") << 0 << 4096 << open << 0 << 0;
        QTest::newRow("block-sized file") << 4096 << 4096 << open << 4096 << 1;
        QTest::newRow("stops at the limit") << 10000 << 4096 << qint64(5000) << 5000 << 2;
        QTest::newRow("limit past the end") << 100 << 4096 << qint64(5000) << 100 << 1;
        QTest::newRow("a limit of nothing") << 100 << 64 << qint64(0) << 0 << 0;
    }

    void readsUpToTheLimit()
    {
        QFETCH(int, fileBytes);
        QFETCH(int, bufferBytes);
        QFETCH(qint64, limit);
        QFETCH(int, expected);
        QFETCH(int, blocks);
        QTemporaryDir dir;
        const QByteArray content = TestFiles::patternBytes(fileBytes);
        const QString path = dir.filePath("f.bin");
        QVERIFY(TestFiles::writeFile(path, content));
        QByteArray buffer(bufferBytes, Qt::Uninitialized);
        QByteArray seen;
        int calls = 0;
        const FileBlockReader::Result result
            = FileBlockReader::Read(path, buffer, limit, nullptr, [&](const char* data, qint64 size) {
                  seen.append(data, int(size));
                  ++calls;
              });
        QCOMPARE(result.end, FileBlockReader::End::Read);
        QCOMPARE(result.bytes, qint64(expected));
        QCOMPARE(seen, content.left(expected));
        QCOMPARE(calls, blocks);
    }

    void refusesWhatIsNoRegularFile_data()
    {
        QTest::addColumn<QString>("kind");
        QTest::newRow("missing") << "missing";
        QTest::newRow("folder") << "folder";
        QTest::newRow("no buffer") << "no buffer";
        QTest::newRow("empty path") << "empty path";
#ifndef Q_OS_WIN
        QTest::newRow("pipe") << "pipe"; // opening it would block until a writer came
#endif
    }

    void refusesWhatIsNoRegularFile()
    {
        QFETCH(QString, kind);
        QTemporaryDir dir;
        QString path = dir.filePath("f.bin");
        QByteArray buffer(64, Qt::Uninitialized);
        QVERIFY(TestFiles::writeFile(path, TestFiles::patternBytes(100)));
        if (kind == "missing")
            path = dir.filePath("none");
        else if (kind == "folder")
            path = dir.path();
        else if (kind == "no buffer")
            buffer.clear();
        else if (kind == "empty path")
            path.clear();
#ifndef Q_OS_WIN
        else if (kind == "pipe")
            QCOMPARE(mkfifo(QFile::encodeName(path = dir.filePath("pipe")).constData(), 0600), 0);
#endif
        bool bCalled = false;
        const FileBlockReader::Result result = FileBlockReader::Read(
            path, buffer, FileBlockReader::kOpenSize, nullptr, [&](const char*, qint64) { bCalled = true; });
        QCOMPARE(result.end, FileBlockReader::End::Unreadable);
        QVERIFY(!bCalled);
    }

    void stopsBetweenBlocks()
    {
        QTemporaryDir dir;
        const QString path = dir.filePath("f.bin");
        QVERIFY(TestFiles::writeFile(path, TestFiles::patternBytes(1000)));
        QByteArray buffer(100, Qt::Uninitialized);
        std::atomic<bool> stop { false };
        int calls = 0;
        const FileBlockReader::Result result = FileBlockReader::Read(
            path, buffer, FileBlockReader::kOpenSize, &stop, [&](const char*, qint64) {
                if (++calls == 3)
                    stop = true;
            });
        QCOMPARE(result.end, FileBlockReader::End::Stopped);
        QCOMPARE(result.bytes, qint64(300));
    }
};

CORE_TEST_CLASS(TestFileBlockReader)
#include "tst_fileblockreader.moc"

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
    void reads_data()
    {
        QTest::addColumn<QString>("twist"); // what stands in place of the file, or "stop" after 3 blocks
        QTest::addColumn<int>("fileBytes");
        QTest::addColumn<int>("bufferBytes");
        QTest::addColumn<qint64>("limit");
        QTest::addColumn<FileBlockReader::End>("end");
        QTest::addColumn<int>("expected"); // bytes handed on
        QTest::addColumn<int>("blocks");
        using End = FileBlockReader::End;
        const qint64 open = FileBlockReader::kOpenSize;
        QTest::newRow("whole, in blocks") << "" << 10000 << 4096 << open << End::Read << 10000 << 3;
        QTest::newRow("empty file") << "" << 0 << 4096 << open << End::Read << 0 << 0;
        QTest::newRow("block-sized file") << "" << 4096 << 4096 << open << End::Read << 4096 << 1;
        QTest::newRow("stops at the limit") << "" << 10000 << 4096 << qint64(5000) << End::Read << 5000 << 2;
        QTest::newRow("limit past the end") << "" << 100 << 4096 << qint64(5000) << End::Read << 100 << 1;
        QTest::newRow("a limit of nothing") << "" << 100 << 64 << qint64(0) << End::Read << 0 << 0;
        QTest::newRow("stopped between blocks") << "stop" << 1000 << 100 << open << End::Stopped << 300 << 3;
        // A pipe is refused before it is opened: opening it would block until a writer came.
        for (const char* twist : { "missing", "folder", "no buffer", "empty path", "pipe" })
            QTest::newRow(twist) << twist << 100 << 64 << open << End::Unreadable << 0 << 0;
    }

    void reads()
    {
        QFETCH(QString, twist);
        QFETCH(int, fileBytes);
        QFETCH(int, bufferBytes);
        QFETCH(qint64, limit);
        QFETCH(FileBlockReader::End, end);
        QFETCH(int, expected);
        QFETCH(int, blocks);
        QTemporaryDir dir;
        const QByteArray content = TestFiles::patternBytes(fileBytes);
        QString path = dir.filePath("f.bin");
        QVERIFY(TestFiles::writeFile(path, content));
        QByteArray buffer(bufferBytes, Qt::Uninitialized);
        if (twist == "missing")
            path = dir.filePath("none");
        else if (twist == "folder")
            path = dir.path();
        else if (twist == "no buffer")
            buffer.clear();
        else if (twist == "empty path")
            path.clear();
        else if (twist == "pipe")
#ifdef Q_OS_WIN
            QSKIP("Windows has no FIFO in the file system");
#else
            QCOMPARE(mkfifo(QFile::encodeName(path = dir.filePath("pipe")).constData(), 0600), 0);
#endif
        std::atomic<bool> stop { false };
        QByteArray seen;
        int calls = 0;
        const FileBlockReader::Result result = FileBlockReader::Read(
            path, buffer, limit, twist == "stop" ? &stop : nullptr, [&](const char* data, qint64 size) {
                seen.append(data, int(size));
                stop = ++calls == 3;
            });
        QCOMPARE(result.end, end);
        QCOMPARE(result.bytes, qint64(expected));
        QCOMPARE(seen, content.left(expected));
        QCOMPARE(calls, blocks);
    }
};

CORE_TEST_CLASS(TestFileBlockReader)
#include "tst_fileblockreader.moc"

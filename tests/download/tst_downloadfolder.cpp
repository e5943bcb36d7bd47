#include "TestFiles.h"
#include "TestRegistry.h"

#include "download/DownloadFolder.h"

#include <QDir>
#include <QFile>
#include <QTemporaryDir>
#include <QtTest>

using Morvantix::DownloadFileInfo;

// Where a server's list may make the download write, and what partial files a resumed job keeps.
class TestDownloadFolder : public QObject
{
    Q_OBJECT

private slots:
    void wipesOnlyTheCacheItself_data()
    {
        QTest::addColumn<QString>("folder");
        QTest::addColumn<QString>("cache");
        QTest::addColumn<bool>("isCache");
        const auto row = [](const char* name, const char* folder, const char* cache, bool isCache) {
            QTest::newRow(name) << QString(folder) << QString(cache) << isCache;
        };
        row("the cache", "/x/cache", "/x/cache", true);
        row("written differently", "/x/cache/", "/x/./cache", true);
        row("inside it", "/x/cache/sub", "/x/cache", false);
        row("its parent", "/x", "/x/cache", false);
        row("no cache named", "/x/cache", "", false);
        row("a root", "/", "/", false);
    }

    void wipesOnlyTheCacheItself()
    {
        QFETCH(QString, folder);
        QFETCH(QString, cache);
        QFETCH(bool, isCache);
        QCOMPARE(DownloadFolder::IsCacheFolder(folder, cache), isCache);
    }

    void measureDropsPartialsLongerThanTheFile()
    {
        QTemporaryDir dir;
        const QVector<DownloadFileInfo> files { file(dir.filePath("none.bin"), 100),
            file(dir.filePath("short.bin"), 100), file(dir.filePath("whole.bin"), 50),
            file(dir.filePath("long.bin"), 20) };
        const int kept[] = { 0, 30, 50, 21 }; // bytes already in the cache: none, short, whole, too long
        for (int i = 1; i < 4; ++i)
            QVERIFY(TestFiles::writeFile(files[i].localPath, QByteArray(kept[i], 'x')));

        const DownloadFolder::Holdings holdings = DownloadFolder::Measure(files);
        QCOMPARE(holdings.totalBytes, qint64(270));
        QCOMPARE(holdings.onDiskBytes, qint64(80));
        QVERIFY(QFile::exists(files[1].localPath) && QFile::exists(files[2].localPath));
        QVERIFY(!QFile::exists(files[3].localPath));
        QCOMPARE(QDir::cleanPath(DownloadFolder::FolderOf(files)), dir.path());
        QCOMPARE(DownloadFolder::FolderOf({}), QString());
    }

    // A run's folder before anything is fetched: only the cache itself is wiped, and only on a fresh
    // run; a missing folder is made; a list that leaves the cache is refused with nothing touched.
    void preparesTheRunsFolder_data()
    {
        QTest::addColumn<QStringList>("paths"); // under the temporary folder; "cache" is the cache
        QTest::addColumn<bool>("fresh");
        QTest::addColumn<QString>("refused"); // the path refused, empty when none is
        QTest::addColumn<bool>("strayKept"); // "cache/stray.tmp", left by an earlier job
        QTest::addColumn<qint64>("onDisk"); // "cache/a.bin" holds 4 of its 10 bytes
        const auto row = [](const char* name, const QStringList& paths, bool fresh, const char* refused,
                             bool strayKept, qint64 onDisk) {
            QTest::newRow(name) << paths << fresh << QString(refused) << strayKept << onDisk;
        };
        row("fresh run", { "cache/a.bin" }, true, "", false, 0);
        row("resumed run", { "cache/a.bin" }, false, "", true, 4);
        row("fresh run into a subfolder", { "cache/sub/b.bin", "cache/a.bin" }, true, "", true, 4);
        row("one entry beside the cache", { "cache/a.bin", "game/x.pak" }, true, "game/x.pak", true, 0);
        row("the cache itself", { "cache/a.bin", "cache" }, true, "cache", true, 0);
        row("climbs out", { "cache/../a.bin" }, true, "cache/../a.bin", true, 0);
        row("name shares the prefix", { "cache2/a.bin" }, true, "cache2/a.bin", true, 0);
    }

    void preparesTheRunsFolder()
    {
        QFETCH(QStringList, paths);
        QFETCH(bool, fresh);
        QFETCH(QString, refused);
        QFETCH(bool, strayKept);
        QFETCH(qint64, onDisk);
        QTemporaryDir dir;
        QVERIFY(TestFiles::writeFile(dir.filePath("cache/stray.tmp"), "earlier"));
        QVERIFY(TestFiles::writeFile(dir.filePath("cache/a.bin"), "head"));
        QVector<DownloadFileInfo> files;
        for (const QString& path : paths)
            files.append(file(dir.filePath(path), 10));

        const DownloadFolder::Prepared prepared
            = DownloadFolder::Prepare(files, dir.filePath("cache"), fresh);
        QCOMPARE(prepared.refused, refused.isEmpty() ? QString() : dir.filePath(refused));
        QCOMPARE(QFile::exists(dir.filePath("cache/stray.tmp")), strayKept);
        QCOMPARE(prepared.holdings.onDiskBytes, onDisk);
        QCOMPARE(prepared.holdings.totalBytes, refused.isEmpty() ? qint64(10 * paths.size()) : qint64(0));
        // The folder of the first file is there to write into, and nothing was made outside the cache.
        QVERIFY(!refused.isEmpty() || QFileInfo(QFileInfo(files.first().localPath).path()).isDir());
        QVERIFY(!QFileInfo::exists(dir.filePath("game")) && !QFileInfo::exists(dir.filePath("cache2")));
    }

private:
    static DownloadFileInfo file(const QString& path, qint64 size)
    {
        return { QString(), path, size, QStringLiteral("http://127.0.0.1:1/f"), QString() };
    }
};

CORE_TEST_CLASS(TestDownloadFolder)
#include "tst_downloadfolder.moc"

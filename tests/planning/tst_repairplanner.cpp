#include "TestFiles.h"
#include "TestRegistry.h"

#include "core/GlobalVar.h"
#include "install/PatchInfo.h"
#include "planning/RepairPlanner.h"

#include <QTemporaryDir>

#include <QtTest>
#include <utility>

using namespace Morvantix;

namespace {

const QString kManifest = QStringLiteral("Paks/a.pak|aa|10\n"
                                         "文件/说明.txt|bb|4\n"
                                         "top.bin|cc|7\n");

GameUpdateContext contextIn(const QString& root)
{
    GameUpdateContext ctx;
    ctx.m_updateSetting.gamePath = root + "/MorvantixGame";
    ctx.m_updateSetting.cachePath = root + "/MorvantixCache";
    ctx.m_updateSetting.tempMergePath = root + "/MorvantixCache/TempMerge";
    return ctx;
}

} // namespace

class TestRepairPlanner : public QObject
{
    Q_OBJECT
private slots:
    void initTestCase()
    {
        m_previousHost = std::exchange(Global::Var::HostAndChannel, "http://127.0.0.1:9/ch");
    }
    void cleanupTestCase() { Global::Var::HostAndChannel = m_previousHost; }
    void refusesUnsafeNames_data();
    void refusesUnsafeNames();
    void plansDownloadsIntoCache();
    void partManifestChecksCachedCopies();
    void freshRoundDiscardsCachedCopies();

private:
    QString m_previousHost;
};

void TestRepairPlanner::refusesUnsafeNames_data()
{
    QTest::addColumn<QString>("manifest");
    QTest::addColumn<QStringList>("failed");
    QTest::newRow("climbs out") << kManifest + "../../etc/x|dd|1\n" << QStringList { "top.bin" };
    QTest::newRow("absolute") << kManifest + "/etc/x|dd|1\n" << QStringList { "top.bin" };
    QTest::newRow("backslash climb") << kManifest + "a\\..\\..\\x|dd|1\n" << QStringList { "top.bin" };
    QTest::newRow("failed file not listed") << kManifest << QStringList { "other.bin" };
    QTest::newRow("patch info name") << kManifest + "MANIFEST.txt|dd|1\n" << QStringList { "MANIFEST.txt" };
}

void TestRepairPlanner::refusesUnsafeNames()
{
    QFETCH(QString, manifest);
    QFETCH(QStringList, failed);
    QTemporaryDir dir;
    GameUpdateContext ctx = contextIn(dir.path());
    const bool unsafeManifest = !failed.contains("other.bin") && !failed.contains("MANIFEST.txt");
    QCOMPARE(SolveRepairManifest(manifest, ctx), !unsafeManifest);
    ctx.m_manifestContent = manifest;
    if (!unsafeManifest)
        QVERIFY(!GetRepairDownloadVec(ctx, failed, "1.0.0.3"));
    QVERIFY(ctx.m_downloadFileList.isEmpty());
    QVERIFY(!QFile::exists(RepairFolder(ctx)));
}

void TestRepairPlanner::plansDownloadsIntoCache()
{
    QTemporaryDir dir;
    GameUpdateContext ctx = contextIn(dir.path());
    QVERIFY(SolveRepairManifest(kManifest, ctx));
    QCOMPARE(ctx.m_installPath, ctx.m_updateSetting.gamePath);
    QCOMPARE(ctx.m_updateType, 1);
    QVERIFY(ctx.m_bMd5Verify && !ctx.m_bVerifyZip);

    QVERIFY(GetRepairDownloadVec(ctx, { "文件/说明.txt", "Paks/a.pak" }, "1.0.0.3"));
    const QString cache = RepairFolder(ctx);
    QCOMPARE(ctx.m_downloadFileList.size(), 2);
    QCOMPARE(ctx.m_downloadFileList[0].url,
        "http://127.0.0.1:9/ch/1.0.0.3/files/%E6%96%87%E4%BB%B6/%E8%AF%B4%E6%98%8E.txt");
    QCOMPARE(ctx.m_downloadFileList[0].localPath, cache + "/文件/说明.txt");
    QCOMPARE(ctx.m_downloadFileList[1].size, qint64(10));
    QCOMPARE(ctx.m_patchDownloadSize, qint64(14));
    QVERIFY(QFileInfo(cache + "/Paks").isDir()); // the download manager does not make folders

    // The patcher's add step copies exactly the fetched files into the game folder.
    QCOMPARE(ctx.m_patchFolder, cache);
    QCOMPARE(ctx.m_mergeTargetPath, ctx.m_updateSetting.gamePath);
    QVERIFY(ctx.m_bSkipDiffMerge);
    const PatchInfo info = ReadPatchInfo(QString::fromUtf8(TestFiles::readFile(cache + "/manifest.txt")));
    QCOMPARE(info.newFiles.keys(), QStringList({ "Paks/a.pak", "文件/说明.txt" }));
    QVERIFY(info.delFiles.isEmpty() && info.patchFiles.isEmpty());
}

void TestRepairPlanner::partManifestChecksCachedCopies()
{
    QTemporaryDir dir;
    GameUpdateContext ctx = contextIn(dir.path());
    QVERIFY(SolvePartRepairManifest(kManifest, { "top.bin", "not/listed" }, ctx));
    QCOMPARE(ctx.m_installPath, RepairFolder(ctx));
    QCOMPARE(ReadFileList(ctx.m_manifestContent).keys(), QStringList { "top.bin" });
    QCOMPARE(ctx.m_updateType, 1);
}

void TestRepairPlanner::freshRoundDiscardsCachedCopies()
{
    QTemporaryDir dir;
    GameUpdateContext ctx = contextIn(dir.path());
    ctx.m_manifestContent = kManifest;
    const QString copy = RepairFolder(ctx) + "/top.bin";
    QVERIFY(TestFiles::writeFile(copy, "partial"));
    QVERIFY(GetRepairDownloadVec(ctx, { "top.bin", "Paks/a.pak" }, "1.0.0.3"));
    QVERIFY(QFile::exists(copy)); // resumed
    QVERIFY(GetRepairPartDownloadVec(ctx, { "top.bin" }, "1.0.0.3"));
    QVERIFY(!QFile::exists(copy));
    QCOMPARE(ctx.m_downloadFileList.size(), 1);
    // The part keeps the repair's copy list: both files still go into the game.
    const PatchInfo info
        = ReadPatchInfo(QString::fromUtf8(TestFiles::readFile(RepairFolder(ctx) + "/manifest.txt")));
    QCOMPARE(info.newFiles.size(), 2);
}

CORE_TEST_CLASS(TestRepairPlanner)
#include "tst_repairplanner.moc"

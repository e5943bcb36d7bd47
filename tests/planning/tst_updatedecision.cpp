#include "PlanningTestSupport.h"
#include "TestRegistry.h"

#include "core/Constants.h"
#include "core/GlobalVar.h"
#include "files/QFileUtils.h"
#include "planning/GuideManifestReader.h"
#include "planning/GuideManifestSolver.h"
#include "planning/UpdatePathPlanner.h"
#include "planning/VersionUtil.h"

#include <QCoreApplication>
#include <QScopeGuard>
#include <QSettings>
#include <QtTest>

using namespace Morvantix;

namespace {

QString describe(const QVector<PatchStep>& steps)
{
    QStringList out;
    for (const PatchStep& step : steps)
        out << VersionToString(step.from) + '>' + VersionToString(step.to) + ' '
                + step.files.value(0).fileName;
    return out.join(QStringLiteral(", "));
}

} // namespace

class TestUpdateDecision : public QObject
{
    Q_OBJECT
private slots:
    void plansCheapestChain_data();
    void plansCheapestChain();
    void decidesUpdate_data();
    void decidesUpdate();
    void refusesUnsafePaths_data();
    void refusesUnsafePaths();
};

void TestUpdateDecision::plansCheapestChain_data()
{
    QTest::addColumn<QStringList>("patches"); // "from->to size"; the n-th patch's file is pn.7z
    QTest::addColumn<QString>("expected"); // the planned steps, or the line a failure logs
    QTest::newRow("direct patch beats equal chain")
        << QStringList { "1.0.0.1->1.0.0.2 100", "1.0.0.2->1.0.0.4 100", "1.0.0.1->1.0.0.4 200" }
        << QStringLiteral("1.0.0.1>1.0.0.4 p2.7z");
    QTest::newRow("cheaper chain from a middle version") << QStringList {
        "1.0.0.0->1.0.0.1 5", "1.0.0.1->1.0.0.2 100", "1.0.0.2->1.0.0.4 100", "1.0.0.1->1.0.0.4 201"
    } << QStringLiteral("1.0.0.1>1.0.0.2 p1.7z, 1.0.0.2>1.0.0.4 p2.7z");
    QTest::newRow("lower split point wins a tie") << QStringList {
        "1.0.0.1->1.0.0.3 150", "1.0.0.3->1.0.0.4 50", "1.0.0.1->1.0.0.2 50", "1.0.0.2->1.0.0.4 150"
    } << QStringLiteral("1.0.0.1>1.0.0.2 p2.7z, 1.0.0.2>1.0.0.4 p3.7z");
    QTest::newRow("later duplicate's file") << QStringList { "1.0.0.1->1.0.0.4 150", "1.0.0.01->1.0.0.4 150" }
                                            << QStringLiteral("1.0.0.1>1.0.0.4 p1.7z");
    QTest::newRow("full packs only hold positions") << QStringList { "1.0.0.4->1.0.0.4 9",
        "1.0.0.1->1.0.0.4 500" } << QStringLiteral("1.0.0.1>1.0.0.4 p1.7z");
    QTest::newRow("sizes past 2^64 do not wrap") << QStringList { "1.0.0.1->1.0.0.2 9223372036854775808",
        "1.0.0.2->1.0.0.4 9223372036854775808", "1.0.0.1->1.0.0.4 10" }
                                                 << QStringLiteral("1.0.0.1>1.0.0.4 p2.7z");
    QTest::newRow("backward patch never used") << QStringList { "1.0.0.1->1.0.0.2 100", "1.0.0.4->1.0.0.2 1" }
                                               << QStringLiteral("StdUtil: not find the shortestPath ");
    QTest::newRow("target only in a full pack") << QStringList { "1.0.0.4->1.0.0.4 9",
        "1.0.0.1->1.0.0.2 1" } << QStringLiteral("StdUtil: Targetversion  1.0.0.4 is not match ");
    QTest::newRow("start unknown") << QStringList { "1.0.0.2->1.0.0.4 1" }
                                   << QStringLiteral(
                                          "StdUtil: StartVersion  1.0.0.1 is not match in the server ");
}

void TestUpdateDecision::plansCheapestChain()
{
    QFETCH(QStringList, patches);
    QFETCH(QString, expected);
    for (int n = 0; n < patches.size(); ++n)
        patches[n].replace(' ', QStringLiteral("|patch/p%1.7z|md5|").arg(n));
    GameUpdateContext ctx;
    ctx.m_updateSetting.currentGameVersion = QStringLiteral("1.0.0.1");
    ctx.m_updateSetting.cachePath = QStringLiteral("/cache");
    ctx.m_guideManifest.m_downloadList.resize(1); // an earlier plan, kept when no chain is found
    const bool failure = expected.startsWith(QLatin1String("StdUtil: "));
    bool found = failure;
    qint64 cost = 42;

    LogCapture log;
    PlanUpdatePath(ReadGuideManifest(manifestText("1.0.0.4", patches)), ctx, false, found, cost);
    QCOMPARE(found, !failure);
    QCOMPARE(cost, qint64(failure ? 0 : 42)); // the update decision relies on a chain leaving cost alone
    QCOMPARE(describe(ctx.m_guideManifest.m_downloadList), failure ? QString("0.0.0.0>0.0.0.0 ") : expected);
    const QString planned = QStringLiteral("StdUtil: show the shortest update path from 1.0.0.1 to 1.0.0.4");
    QVERIFY(log.lines().contains(failure ? expected : planned));
}

void TestUpdateDecision::decidesUpdate_data()
{
    QTest::addColumn<QStringList>("situation"); // newest; installed; target, also the transition; stage
    QTest::addColumn<QString>("expected"); // code | downloads | steps | total size | stage, and wiped folders
    const QString chain = QStringLiteral(" | p12.7z | 1.0.0.1>1.0.0.2 p12.7z, 1.0.0.2>1.0.0.3 p23.7z | 700");
    const QString fullPack = QStringLiteral(" | full.7z.001 full.7z.002 |  | 7000 | INITSTAGE");
    QTest::newRow("up to date") << QStringList { "1.0.0.3", "1.0.0.3", "", "INITSTAGE" }
                                << QStringLiteral("0 | earlier |  | -1 | INITSTAGE");
    QTest::newRow("installed newer") << QStringList { "1.0.0.3", "2.0.0.0", "", "INITSTAGE" }
                                     << QStringLiteral("6 | earlier |  | -1 | INITSTAGE");
    QTest::newRow("full pack missing") << QStringList { "1.0.0.4", "1.0.0.1", "", "INITSTAGE" }
                                       << QStringLiteral("7 | earlier |  | -1 | INITSTAGE");
    QTest::newRow("fresh install") << QStringList { "1.0.0.3", "", "", "INITSTAGE" } << "0" + fullPack;
    QTest::newRow("no chain") << QStringList { "1.0.0.3", "1.0.0.0", "", "INITSTAGE" } << "8" + fullPack;
    QTest::newRow("patch chain") << QStringList { "1.0.0.3", "1.0.0.1", "", "INITSTAGE" }
                                 << "0" + chain + " | INITSTAGE";
    QTest::newRow("patch stage goes on") << QStringList { "1.0.0.3", "1.0.0.1", "1.0.0.2",
        "PATCHSTAGE" } << QStringLiteral("0 | earlier | 1.0.0.2>1.0.0.3 p23.7z | -1 | PATCHSTAGE");
    QTest::newRow("new target restarts the chain")
        << QStringList { "1.0.0.3", "1.0.0.1", "1.0.0.2", "" } << "0" + chain + " | INITSTAGE";
    QTest::newRow("full install over older target")
        << QStringList { "1.0.0.3", "", "1.0.0.2", "PATCHSTAGE" } << "0" + fullPack + " wiped";
    QTest::newRow("no chain over older target")
        << QStringList { "1.0.0.3", "1.0.0.0", "1.0.0.2", "" } << "8" + fullPack + " wiped";
}

void TestUpdateDecision::decidesUpdate()
{
    QFETCH(QStringList, situation);
    QFETCH(QString, expected);
    // Settings saves land in config.ini beside the test program; it goes once the test is done.
    const QString config = QCoreApplication::applicationDirPath() + QStringLiteral("/config.ini");
    const auto removeConfig = qScopeGuard([config] { QFile::remove(config); });
    const QTemporaryDir dir;
    GameUpdateContext ctx;
    UpdateSetting& setting = ctx.m_updateSetting;
    setting.installPath = dir.path();
    setting.cachePath = dir.filePath(QLatin1String(Const::CacheFolderName));
    setting.gamePath = dir.filePath(QLatin1String(Const::GameFolderName));
    for (const QString& folder : { setting.cachePath, setting.gamePath })
        QFileUtils::WriteUTF8(folder + "/half.bin", QStringLiteral("half"), false);
    setting.currentGameVersion = situation[1];
    setting.transitionGameVersion = setting.targetGameVersion = situation[2];
    setting.currentStage = situation[3];
    ctx.m_downloadFileList.append(DownloadFileInfo { "earlier", {}, 1, {}, {} });
    ctx.m_patchDownloadSize = -1;

    LogCapture log;
    SolveGuideManifest(manifestText(situation[0]), ctx);
    QStringList downloads;
    for (const DownloadFileInfo& entry : ctx.m_downloadFileList) {
        downloads << entry.name;
        QVERIFY(
            entry.url.isEmpty() || entry.url.startsWith(Global::Var::Host) && entry.url.endsWith(entry.name));
        QVERIFY(
            entry.url.isEmpty() || entry.localPath == QFileUtils::CombinePath(setting.cachePath, entry.name));
    }
    const bool wiped = !QFile::exists(setting.cachePath) && !QFile::exists(setting.gamePath);
    QCOMPARE(QStringLiteral("%1 | %2 | %3 | %4 | %5%6")
                 .arg(ctx.m_solveResult)
                 .arg(downloads.join(' '), describe(ctx.m_guideManifest.m_downloadList))
                 .arg(ctx.m_patchDownloadSize)
                 .arg(setting.currentStage, wiped ? " wiped" : ""),
        expected);
    QCOMPARE(ctx.m_guideManifest.m_fullPackManifestUrl, "/" + situation[0] + "/manifest.txt");
    QVERIFY(log.lines().contains("config: the newest version " + situation[0]));
    if (setting.currentStage != situation[3])
        QCOMPARE(
            QSettings(config, QSettings::IniFormat).value("CurrentStage").toString(), setting.currentStage);
}

void TestUpdateDecision::refusesUnsafePaths_data()
{
    QTest::addColumn<QString>("path"); // replaces a volume of the newest full pack, then the patch p12
    QTest::addColumn<QString>("cache");
    const QString cache = QStringLiteral("/games/x/MorvantixCache");
    QTest::newRow("empty") << "" << cache;
    QTest::newRow("folder") << "full/1.0.0.3/" << cache;
    QTest::newRow("ends in parent") << "full/.." << cache;
    QTest::newRow("parents with backslashes") << "..\\..\\x.bin" << cache;
    QTest::newRow("parent mid-way") << "full/../../x.bin" << cache;
    QTest::newRow("absolute") << "/etc/x.bin" << cache;
    QTest::newRow("drive letter") << "C:x.bin" << cache;
    QTest::newRow("backslash in the name") << "full/sub\\x.bin" << cache;
    QTest::newRow("settings not read") << "full/1.0.0.3/x.bin"
                                       << "";
}

// A refused full pack stops the update as a missing one does; a refused patch is left out, so the
// chain takes the direct patch instead.
void TestUpdateDecision::refusesUnsafePaths()
{
    QFETCH(QString, path);
    QFETCH(QString, cache);
    for (const QString& replaced : { "full/1.0.0.3/full.7z.002", "patch/1.0.0.2/p12.7z" }) {
        const bool fullPack = replaced.startsWith(QLatin1String("full"));
        GameUpdateContext ctx;
        ctx.m_updateSetting.cachePath = cache;
        ctx.m_updateSetting.currentGameVersion = fullPack ? "" : "1.0.0.1";
        LogCapture log;
        SolveGuideManifest(manifestText("1.0.0.3").replace(replaced, path), ctx);
        QStringList downloads;
        for (const DownloadFileInfo& entry : ctx.m_downloadFileList)
            downloads << entry.localPath;
        const bool stops = fullPack || cache.isEmpty();
        QCOMPARE(ctx.m_solveResult, stops ? 7 : 0);
        QCOMPARE(downloads, stops ? QStringList() : QStringList { cache + "/p13.7z" });
        const QString reason = cache.isEmpty() ? "no cache path" : '"' + path + '"';
        QVERIFY(std::any_of(log.lines().cbegin(), log.lines().cend(),
            [&](const QString& line) { return line.contains(reason); }));
    }
}

CORE_TEST_CLASS(TestUpdateDecision)
#include "tst_updatedecision.moc"

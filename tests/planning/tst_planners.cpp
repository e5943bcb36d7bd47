#include "PlanningTestSupport.h"
#include "TestFiles.h"
#include "TestRegistry.h"

#include "core/Constants.h"
#include "core/GlobalVar.h"
#include "files/QFileUtils.h"
#include "install/PatchInfo.h"
#include "planning/GuideManifestReader.h"
#include "planning/GuideManifestSolver.h"
#include "planning/RepairPlanner.h"
#include "planning/UpdatePathPlanner.h"
#include "planning/VersionUtil.h"

#include <QCoreApplication>
#include <QRandomGenerator>
#include <QScopeGuard>
#include <QSettings>
#include <QtTest>

#include <functional>

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

QString edgeText(int from, int to, int position)
{
    return QStringLiteral("%1>%2@%3").arg(from).arg(to).arg(position);
}

// The planner as it was before it went sparse, kept as the judge of which chain is right: dense n by n
// tables filled row by row from the bottom, a cell lowered by a split point only when strictly cheaper
// as unsigned numbers, the lowest split point first, and the route read back from the split points.
QString referenceRoute(int n, int start, int target, const QVector<PatchEdge>& edges)
{
    constexpr quint64 none = ~quint64(0);
    QVector<QVector<quint64>> dist(n, QVector<quint64>(n, none));
    QVector<QVector<int>> split(n, QVector<int>(n, -1)), position = split;
    for (const PatchEdge& edge : edges) {
        // A later patch of the same pair replaces an earlier one, even a cost of -1 ("no patch").
        dist[edge.from][edge.to] = edge.from < edge.to ? quint64(edge.cost) : none;
        position[edge.from][edge.to] = edge.position;
    }
    for (int i = 0; i < n; ++i)
        dist[i][i] = 0;
    for (int i = target - 1; i >= 0; --i)
        for (int m = i + 1; m < target; ++m)
            for (int j = m + 1; j <= target && dist[i][m] != none; ++j)
                if (dist[m][j] != none && dist[i][m] + dist[m][j] < dist[i][j]) {
                    dist[i][j] = dist[i][m] + dist[m][j];
                    split[i][j] = m;
                }
    if (dist[start][target] == none)
        return QStringLiteral("none");
    QStringList steps;
    const std::function<void(int, int)> walk = [&](int i, int j) {
        if (split[i][j] >= 0) {
            walk(i, split[i][j]);
            walk(split[i][j], j);
        } else if (i != j) {
            steps << edgeText(i, j, position[i][j]);
        }
    };
    walk(start, target);
    return steps.join(' ');
}

QString route(int start, int target, const QVector<PatchEdge>& edges)
{
    QVector<PatchEdge> steps;
    if (!ShortestPath(start, target, edges, steps))
        return QStringLiteral("none");
    QStringList out;
    for (const PatchEdge& edge : steps)
        out << edgeText(edge.from, edge.to, edge.position);
    return out.join(' ');
}

const QString kManifest = QStringLiteral("Paks/a.pak|aa|10\n"
                                         "文件/说明.txt|bb|4\n"
                                         "top.bin|cc|7\n");

} // namespace

class TestPlanners : public QObject
{
    Q_OBJECT
private slots:
    void plansCheapestChain_data()
    {
        // Ties are the reference chain's to judge; these rows cover version texts, positions, sizes and logs.
        QTest::addColumn<QStringList>("patches"); // "from->to size"; the n-th patch's file is pn.7z
        QTest::addColumn<QString>("expected"); // the planned steps, or the line a failure logs (no ">")
        QTest::newRow("cheaper chain from a middle version") << QStringList {
            "1.0.0.0->1.0.0.1 5", "1.0.0.1->1.0.0.2 100", "1.0.0.2->1.0.0.4 100", "1.0.0.1->1.0.0.4 201"
        } << QStringLiteral("1.0.0.1>1.0.0.2 p1.7z, 1.0.0.2>1.0.0.4 p2.7z");
        QTest::newRow("later duplicate's file") << QStringList { "1.0.0.1->1.0.0.4 150",
            "1.0.0.01->1.0.0.4 150" } << QStringLiteral("1.0.0.1>1.0.0.4 p1.7z");
        QTest::newRow("full packs only hold positions") << QStringList { "1.0.0.4->1.0.0.4 9",
            "1.0.0.1->1.0.0.4 500" } << QStringLiteral("1.0.0.1>1.0.0.4 p1.7z");
        QTest::newRow("sizes past 2^64 do not wrap") << QStringList { "1.0.0.1->1.0.0.2 9223372036854775808",
            "1.0.0.2->1.0.0.4 9223372036854775808", "1.0.0.1->1.0.0.4 10" }
                                                     << QStringLiteral("1.0.0.1>1.0.0.4 p2.7z");
        QTest::newRow("backward patch never used") << QStringList { "1.0.0.1->1.0.0.2 100",
            "1.0.0.4->1.0.0.2 1" } << QStringLiteral("not find the shortestPath ");
        QTest::newRow("target only in a full pack") << QStringList { "1.0.0.4->1.0.0.4 9",
            "1.0.0.1->1.0.0.2 1" } << QStringLiteral("Targetversion  1.0.0.4 is not match ");
        QTest::newRow("start unknown") << QStringList { "1.0.0.2->1.0.0.4 1" }
                                       << QStringLiteral("StartVersion  1.0.0.1 is not match in the server ");
    }
    void plansCheapestChain()
    {
        QFETCH(QStringList, patches);
        QFETCH(QString, expected);
        for (int n = 0; n < patches.size(); ++n)
            patches[n].replace(' ', QStringLiteral("|patch/p%1.7z|md5|").arg(n));
        GameUpdateContext ctx;
        ctx.m_updateSetting.currentGameVersion = QStringLiteral("1.0.0.1");
        ctx.m_updateSetting.cachePath = QStringLiteral("/cache");
        ctx.m_guideManifest.m_downloadList.resize(1); // an earlier plan, kept when no chain is found
        const bool failure = !expected.contains('>');
        bool found = failure;
        qint64 cost = 42;

        const LogLines log;
        PlanUpdatePath(ReadGuideManifest(manifestText("1.0.0.4", patches)), ctx, false, found, cost);
        QCOMPARE(found, !failure);
        QCOMPARE(cost, qint64(failure ? 0 : 42)); // the update decision relies on a chain leaving cost alone
        QCOMPARE(
            describe(ctx.m_guideManifest.m_downloadList), failure ? QString("0.0.0.0>0.0.0.0 ") : expected);
        QVERIFY(
            log.all().contains(failure ? expected : "show the shortest update path from 1.0.0.1 to 1.0.0.4"));
    }

    // Small costs make ties everywhere; large ones (their sums still below 2^64) test the unsigned
    // order. Edges go any way, repeat pairs and sometimes cost -1, which reads as "no patch".
    void choosesTheReferenceChain()
    {
        const LogLines log; // keeps the planner's lines off the console
        QRandomGenerator random(7);
        for (int graph = 0; graph < 5000; ++graph) {
            const int n = graph % 10 == 0 ? 40 : random.bounded(1, 12);
            const bool large = graph % 3 == 0;
            QVector<PatchEdge> edges(random.bounded(4 * n + 1));
            for (int position = 0; position < edges.size(); ++position) {
                const int from = random.bounded(n);
                const int hop = from + random.bounded(1, 5);
                const int to = random.bounded(5) == 0 || hop >= n ? random.bounded(n) : hop;
                const qint64 cost = random.bounded(40) == 0 ? -1
                    : large                                 ? qint64(random.generate64() >> 8)
                                                            : qint64(random.bounded(7));
                edges[position] = { from, to, cost, position };
            }
            const bool anywhere = random.bounded(8) == 0;
            const int start = anywhere ? random.bounded(n) : random.bounded(n / 4 + 1);
            const int target = anywhere ? random.bounded(n) : n - 1 - random.bounded(n / 4 + 1);
            QCOMPARE(route(start, target, edges), referenceRoute(n, start, target, edges));
        }
    }

    void decidesUpdate_data()
    {
        QTest::addColumn<QStringList>("situation"); // newest; installed; target, also the transition; stage
        QTest::addColumn<QString>(
            "expected"); // code | downloads | steps | total size | stage, and wiped folders
        const QString chain
            = QStringLiteral(" | p12.7z | 1.0.0.1>1.0.0.2 p12.7z, 1.0.0.2>1.0.0.3 p23.7z | 700");
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
    void decidesUpdate()
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

        const LogLines log;
        SolveGuideManifest(manifestText(situation[0]), ctx);
        QStringList downloads;
        for (const DownloadFileInfo& entry : ctx.m_downloadFileList) {
            downloads << entry.name;
            QVERIFY(entry.url.isEmpty()
                || entry.url.startsWith(Global::Var::Host) && entry.url.endsWith(entry.name));
            QVERIFY(entry.url.isEmpty()
                || entry.localPath == QFileUtils::CombinePath(setting.cachePath, entry.name));
        }
        const bool wiped = !QFile::exists(setting.cachePath) && !QFile::exists(setting.gamePath);
        QCOMPARE(QStringLiteral("%1 | %2 | %3 | %4 | %5%6")
                     .arg(ctx.m_solveResult)
                     .arg(downloads.join(' '), describe(ctx.m_guideManifest.m_downloadList))
                     .arg(ctx.m_patchDownloadSize)
                     .arg(setting.currentStage, wiped ? " wiped" : ""),
            expected);
        QCOMPARE(ctx.m_guideManifest.m_fullPackManifestUrl, "/" + situation[0] + "/manifest.txt");
        QVERIFY(log.all().contains("the newest version " + situation[0]));
        if (setting.currentStage != situation[3])
            QCOMPARE(QSettings(config, QSettings::IniFormat).value("CurrentStage").toString(),
                setting.currentStage);
    }

    void refusesUnsafePaths_data()
    {
        QTest::addColumn<QString>("path"); // replaces a volume of the newest full pack, then the patch p12
        QTest::addColumn<QString>("cache");
        const QString cache = QStringLiteral("/games/x/MorvantixCache");
        QTest::newRow("folder") << "full/1.0.0.3/" << cache;
        QTest::newRow("ends in parent") << "full/.." << cache;
        QTest::newRow("parent mid-way") << "full/../../x.bin" << cache;
        QTest::newRow("backslash in the name") << "full/sub\\x.bin" << cache;
        QTest::newRow("settings not read") << "full/1.0.0.3/x.bin"
                                           << "";
    }
    // A refused full pack stops the update as a missing one does; a refused patch is left out, so the
    // chain takes the direct patch instead.
    void refusesUnsafePaths()
    {
        QFETCH(QString, path);
        QFETCH(QString, cache);
        for (const QString& replaced : { "full/1.0.0.3/full.7z.002", "patch/1.0.0.2/p12.7z" }) {
            const bool fullPack = replaced.startsWith(QLatin1String("full"));
            GameUpdateContext ctx;
            ctx.m_updateSetting.cachePath = cache;
            ctx.m_updateSetting.currentGameVersion = fullPack ? "" : "1.0.0.1";
            const LogLines log;
            SolveGuideManifest(manifestText("1.0.0.3").replace(replaced, path), ctx);
            QStringList downloads;
            for (const DownloadFileInfo& entry : ctx.m_downloadFileList)
                downloads << entry.localPath;
            const bool stops = fullPack || cache.isEmpty();
            QCOMPARE(ctx.m_solveResult, stops ? SolveResult::NoFullPack : SolveResult::Solved);
            QCOMPARE(downloads, stops ? QStringList() : QStringList { cache + "/p13.7z" });
            QVERIFY(log.contains(cache.isEmpty() ? "no cache path" : '"' + path + '"'));
        }
    }

    void refusesUnsafeRepairNames_data()
    {
        QTest::addColumn<QString>("manifest");
        QTest::addColumn<QStringList>("failed");
        QTest::newRow("climbs out") << kManifest + "../../etc/x|dd|1\n" << QStringList { "top.bin" };
        QTest::newRow("failed file not listed") << kManifest << QStringList { "other.bin" };
        QTest::newRow("patch info name") << kManifest + "MANIFEST.txt|dd|1\n"
                                         << QStringList { "MANIFEST.txt" };
    }
    void refusesUnsafeRepairNames()
    {
        QFETCH(QString, manifest);
        QFETCH(QStringList, failed);
        const QTemporaryDir dir;
        GameUpdateContext ctx;
        ctx.m_updateSetting.cachePath = dir.path();
        const bool unsafeManifest = !failed.contains("other.bin") && !failed.contains("MANIFEST.txt");
        QCOMPARE(SolveRepairManifest(manifest, ctx), !unsafeManifest);
        ctx.m_manifestContent = manifest;
        if (!unsafeManifest)
            QVERIFY(!GetRepairDownloadVec(ctx, failed, "1.0.0.3"));
        QVERIFY(ctx.m_downloadFileList.isEmpty());
        QVERIFY(!QFile::exists(RepairFolder(ctx)));
    }

    // One round as the repair job runs it: verify the game, fetch the failures into the cache, check the
    // fetched copies there, fetch again from scratch what failed that check.
    void plansOneRepairRound()
    {
        const QTemporaryDir dir;
        GameUpdateContext ctx;
        ctx.m_updateSetting.cachePath = dir.path();
        QVERIFY(SolveRepairManifest(kManifest, ctx));
        const QString cache = RepairFolder(ctx);
        QVERIFY(TestFiles::writeFile(cache + "/top.bin", "partial"));
        QVERIFY(GetRepairDownloadVec(ctx, { "文件/说明.txt", "top.bin" }, "1.0.0.3"));
        QCOMPARE(ctx.m_downloadFileList.size(), 2);
        QVERIFY(ctx.m_downloadFileList[0].url.endsWith(
            "/1.0.0.3/files/%E6%96%87%E4%BB%B6/%E8%AF%B4%E6%98%8E.txt"));
        QCOMPARE(ctx.m_downloadFileList[0].localPath, cache + "/文件/说明.txt");
        QCOMPARE(ctx.m_patchDownloadSize, qint64(11));
        QVERIFY(QFileInfo(cache + "/文件").isDir()); // the download manager does not make folders
        QVERIFY(QFile::exists(cache + "/top.bin")); // an interrupted copy is resumed

        // A passing check deletes the pak files a partial manifest does not list, so it must never run
        // over the game folder.
        QVERIFY(SolvePartRepairManifest(kManifest, { "top.bin", "not/listed" }, ctx));
        QCOMPARE(ctx.m_installPath, cache);
        QCOMPARE(ReadFileList(ctx.m_manifestContent).keys(), QStringList { "top.bin" });

        QVERIFY(GetRepairPartDownloadVec(ctx, { "top.bin" }, "1.0.0.3"));
        QVERIFY(!QFile::exists(cache + "/top.bin"));
        QCOMPARE(ctx.m_downloadFileList.size(), 1);
        // The part keeps the first plan's copy list: both files still go into the game, and only they.
        const PatchInfo info = ReadPatchInfo(QString::fromUtf8(TestFiles::readFile(cache + "/manifest.txt")));
        QCOMPARE(info.newFiles.keys(), QStringList({ "top.bin", "文件/说明.txt" }));
        QVERIFY(info.delFiles.isEmpty() && info.patchFiles.isEmpty());
    }
};

CORE_TEST_CLASS(TestPlanners)
#include "tst_planners.moc"

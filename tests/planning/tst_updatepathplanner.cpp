#include "PlanningTestSupport.h"
#include "TestRegistry.h"

#include "core/Constants.h"
#include "core/GlobalVar.h"
#include "planning/GuideManifestReader.h"
#include "planning/UpdatePathPlanner.h"
#include "planning/VersionUtil.h"

#include <QRandomGenerator>
#include <QSettings>
#include <QtTest>

using namespace Morvantix;

namespace {

QStringList describe(const QVector<PatchStep>& steps)
{
    QStringList out;
    for (const PatchStep& step : steps)
        out << VersionToString(step.from) + '>' + VersionToString(step.to) + ' '
                + (step.files.isEmpty() ? QString() : step.files.first().fileName);
    return out;
}

// The interval programme cell by cell, interval length by interval length, as the planner's
// reordered loops must reproduce it.
void referenceIntervals(
    int target, const SquareMatrix<qint64>& weight, SquareMatrix<qint64>& dist, SquareMatrix<int>& split)
{
    for (int length = 1; length <= target; ++length) {
        for (int i = 0; i <= target - length; ++i) {
            const int j = i + length;
            dist.at(i, j) = weight.at(i, j);
            for (int k = 1; k < length; ++k) {
                const qint64 a = dist.at(i, i + k);
                const qint64 b = dist.at(i + k, j);
                if (a != -1 && b != -1 && quint64(a + b) < quint64(dist.at(i, j))) {
                    dist.at(i, j) = a + b;
                    split.at(i, j) = k;
                }
            }
        }
    }
}

} // namespace

class TestUpdatePathPlanner : public QObject
{
    Q_OBJECT
private slots:
    void plansCheapestChain_data();
    void plansCheapestChain();
    void matchesIntervalProgramme();
    void decidesStageContinuation_data();
    void decidesStageContinuation();
    void takesStepIntoDownloadList_data();
    void takesStepIntoDownloadList();
};

void TestUpdatePathPlanner::plansCheapestChain_data()
{
    QTest::addColumn<QStringList>("packages");
    QTest::addColumn<QString>("start");
    QTest::addColumn<QStringList>("steps"); // empty: no chain
    QTest::addColumn<QString>("logLine");

    const QString planned = QStringLiteral("StdUtil: show the shortest update path from 1.0.0.1 to 1.0.0.3");
    const QStringList triangle { "1.0.0.1->1.0.0.2|a.7z|m|100", "1.0.0.2->1.0.0.3|b.7z|m|100" };
    QTest::newRow("direct patch beats equal chain")
        << triangle + QStringList { "1.0.0.1->1.0.0.3|c.7z|m|200" } << "1.0.0.1"
        << QStringList { "1.0.0.1>1.0.0.3 c.7z" } << planned;
    QTest::newRow("cheaper chain beats direct patch")
        << triangle + QStringList { "1.0.0.1->1.0.0.3|c.7z|m|201" } << "1.0.0.1"
        << QStringList { "1.0.0.1>1.0.0.2 a.7z", "1.0.0.2>1.0.0.3 b.7z" } << planned;
    QTest::newRow("lower split point wins a tie")
        << QStringList { "1.0.0.0->1.0.0.2|c.7z|m|150", "1.0.0.2->1.0.0.3|d.7z|m|50",
               "1.0.0.0->1.0.0.1|a.7z|m|50", "1.0.0.1->1.0.0.3|b.7z|m|150" }
        << "1.0.0.0" << QStringList { "1.0.0.0>1.0.0.1 a.7z", "1.0.0.1>1.0.0.3 b.7z" }
        << "StdUtil: show the shortest update path from 1.0.0.0 to 1.0.0.3";
    QTest::newRow("later duplicate replaces earlier cost")
        << triangle + QStringList { "1.0.0.1->1.0.0.3|c.7z|m|150", "1.0.0.01->1.0.0.3|e.7z|m|500" }
        << "1.0.0.1" << QStringList { "1.0.0.1>1.0.0.2 a.7z", "1.0.0.2>1.0.0.3 b.7z" } << planned;
    QTest::newRow("later duplicate's file is fetched")
        << triangle + QStringList { "1.0.0.1->1.0.0.3|c.7z|m|150", "1.0.0.01->1.0.0.3|e.7z|m|150" }
        << "1.0.0.1" << QStringList { "1.0.0.1>1.0.0.3 e.7z" } << planned;
    QTest::newRow("full packs count in positions only")
        << QStringList { "1.0.0.3->1.0.0.3|full.7z|m|9", "1.0.0.1->1.0.0.3|c.7z|m|500" } << "1.0.0.1"
        << QStringList { "1.0.0.1>1.0.0.3 c.7z" } << planned;
    QTest::newRow("backward patch never used")
        << QStringList { "1.0.0.1->1.0.0.2|a.7z|m|100", "1.0.0.3->1.0.0.2|x.7z|m|1" } << "1.0.0.1"
        << QStringList() << "StdUtil: not find the shortestPath ";
    QTest::newRow("target only in a full pack")
        << QStringList { "1.0.0.3->1.0.0.3|full.7z|m|9", "1.0.0.1->1.0.0.2|a.7z|m|1" } << "1.0.0.1"
        << QStringList() << "StdUtil: Targetversion  1.0.0.3 is not match ";
    QTest::newRow("start unknown to the server")
        << triangle << "1.0.0.9" << QStringList()
        << "StdUtil: StartVersion  1.0.0.9 is not match in the server ";
}

void TestUpdatePathPlanner::plansCheapestChain()
{
    QFETCH(QStringList, packages);
    QFETCH(QString, start);
    QFETCH(QStringList, steps);
    QFETCH(QString, logLine);
    const GuideManifestInfo manifest = ReadGuideManifest(manifestText(packages, QStringLiteral("1.0.0.3")));
    GameUpdateContext ctx;
    ctx.m_updateSetting.currentGameVersion = start;
    PatchStep previous;
    previous.name = QStringLiteral("previous plan");
    ctx.m_guideManifest.m_downloadList.append(previous);

    LogCapture log;
    bool found = steps.isEmpty();
    qint64 cost = 42;
    PlanUpdatePath(manifest, ctx, false, found, cost);

    QCOMPARE(found, !steps.isEmpty());
    QCOMPARE(cost, qint64(found ? 42 : 0)); // the update decision relies on a found chain leaving cost alone
    QVERIFY2(log.contains(logLine), qPrintable(LogCapture::lines().join('\n')));
    if (found)
        QCOMPARE(describe(ctx.m_guideManifest.m_downloadList), steps);
    else
        QCOMPARE(ctx.m_guideManifest.m_downloadList.first().name, previous.name);
}

void TestUpdatePathPlanner::matchesIntervalProgramme()
{
    LogCapture log;
    QRandomGenerator random(7);
    for (int round = 0; round < 300; ++round) {
        const int n = random.bounded(1, 14);
        SquareMatrix<qint64> weight(n, -1);
        for (int cell = 0; cell < n * n; ++cell) {
            const qint64 costs[] = { -1, -1, 1, 2, 3, 4, Q_INT64_C(-2) }; // few costs: many ties
            weight.at(cell / n, cell % n) = costs[random.bounded(7)];
        }
        const int start = random.bounded(n);
        const int target = random.bounded(n);
        SquareMatrix<qint64> dist(n, -1), expectedDist(n, -1);
        SquareMatrix<int> split(n, -1), expectedSplit(n, -1);
        QVector<int> path;
        const bool found = ShortestPath(start, target, weight, dist, split, path);
        referenceIntervals(target, weight, expectedDist, expectedSplit);
        for (int i = 0; i <= target; ++i) {
            for (int j = i + 1; j <= target; ++j) {
                QCOMPARE(dist.at(i, j), expectedDist.at(i, j));
                QCOMPARE(split.at(i, j), expectedSplit.at(i, j));
            }
        }
        QCOMPARE(found, start == target || (start < target && expectedDist.at(start, target) != -1));
        if (found) {
            QCOMPARE(path.first(), start);
            QCOMPARE(path.last(), target);
        }
    }
    QVERIFY(log.contains(QStringLiteral("StdUtil update: ") + QString(18, QChar(0x300B))));
}

void TestUpdatePathPlanner::decidesStageContinuation_data()
{
    QTest::addColumn<QString>("target");
    QTest::addColumn<QString>("transition");
    QTest::addColumn<QString>("stage");
    QTest::addColumn<bool>("continued");
    QTest::addColumn<QString>("stageAfter");
    QTest::addColumn<QString>("logLine");
    const QString patch = QLatin1String(Const::PatchStage);
    const QString init = QLatin1String(Const::InitStage);
    QTest::newRow("target unchanged")
        << "1.0.0.3"
        << "1.0.0.2" << patch << false << patch << "StdUtil: Update not Changed";
    QTest::newRow("no target yet") << ""
                                   << "1.0.0.2" << patch << false << patch << "StdUtil: Update not Changed";
    QTest::newRow("patch stage goes on") << "1.0.0.2"
                                         << "1.0.0.2" << patch << true << patch << "";
    QTest::newRow("new target restarts")
        << "1.0.0.2"
        << "1.0.0.2"
        << "" << false << init << "StdUtil: the version should be start from 1.0.0.1";
    QTest::newRow("nothing under way")
        << "1.0.0.2"
        << "" << patch << false << patch << "StdUtil: show all patch infomation!";
}

void TestUpdatePathPlanner::decidesStageContinuation()
{
    QFETCH(QString, target);
    QFETCH(QString, transition);
    QFETCH(QString, stage);
    QFETCH(bool, continued);
    QFETCH(QString, stageAfter);
    QFETCH(QString, logLine);
    const ConfigFileGuard config;
    const QTemporaryDir dir;
    GameUpdateContext ctx;
    UpdateSetting& setting = ctx.m_updateSetting;
    setting.installPath = dir.path();
    setting.currentGameVersion = QStringLiteral("1.0.0.1");
    setting.targetGameVersion = target;
    setting.transitionGameVersion = transition;
    setting.currentStage = stage;
    GetVersionByString(QStringLiteral("1.0.0.3"), ctx.m_guideManifest.m_newestVersion);

    LogCapture log;
    QCOMPARE(IsPatchStageContinued(ctx), continued);
    QCOMPARE(setting.currentStage, stageAfter);
    QVERIFY(logLine.isEmpty() || log.contains(logLine));
    if (stage != stageAfter)
        QCOMPARE(QSettings(ConfigFileGuard::path(), QSettings::IniFormat).value("CurrentStage").toString(),
            stageAfter);
}

void TestUpdatePathPlanner::takesStepIntoDownloadList_data()
{
    QTest::addColumn<QString>("version");
    QTest::addColumn<QString>("file"); // empty: the list stays as it was
    QTest::addColumn<QString>("installs");
    QTest::newRow("any first step") << ""
                                    << "a.7z"
                                    << "1.0.0.2";
    QTest::newRow("step from the version") << "1.0.0.2"
                                           << "b.7z"
                                           << "1.0.0.3";
    QTest::newRow("no step from there") << "1.0.0.9"
                                        << ""
                                        << "";
}

void TestUpdatePathPlanner::takesStepIntoDownloadList()
{
    QFETCH(QString, version);
    QFETCH(QString, file);
    QFETCH(QString, installs);
    LogCapture log;
    GameUpdateContext ctx;
    ctx.m_updateSetting.currentGameVersion = QStringLiteral("1.0.0.1");
    ctx.m_updateSetting.cachePath = QStringLiteral("/cache");
    ctx.m_downloadFileList.append(DownloadFileInfo { "earlier", {}, 1, {}, {} });
    bool found = false;
    qint64 cost = 0;
    const QStringList chain { "1.0.0.1->1.0.0.2|p/a.7z|ma|100", "1.0.0.2->1.0.0.3|p/b.7z|mb|100" };
    PlanUpdatePath(ReadGuideManifest(manifestText(chain, "1.0.0.3")), ctx, false, found, cost);
    QVERIFY(found);

    GetCurrentShortestDownloadFile(ctx, version);
    QCOMPARE(ctx.m_shortestDownloadFile, installs);
    QCOMPARE(ctx.m_downloadFileList.size(), 1);
    const DownloadFileInfo& entry = ctx.m_downloadFileList.first();
    QCOMPARE(entry.name, file.isEmpty() ? QStringLiteral("earlier") : file);
    if (!file.isEmpty()) {
        QCOMPARE(entry.localPath, "/cache/" + file);
        QCOMPARE(entry.url, Global::Var::Host + "/p/" + file);
        QCOMPARE(entry.md5, QStringLiteral("m") + file.at(0));
        QCOMPARE(entry.size, qint64(100));
    }
}

CORE_TEST_CLASS(TestUpdatePathPlanner)
#include "tst_updatepathplanner.moc"

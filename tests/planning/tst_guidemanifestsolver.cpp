#include "PlanningTestSupport.h"
#include "TestRegistry.h"

#include "core/Constants.h"
#include "core/GlobalVar.h"
#include "files/QFileUtils.h"
#include "planning/GuideManifestSolver.h"
#include "planning/VersionUtil.h"

#include <QScopeGuard>
#include <QSettings>
#include <QtTest>

using namespace Morvantix;

namespace {

QStringList describe(const GameUpdateContext& ctx)
{
    QStringList out;
    for (const DownloadFileInfo& entry : ctx.m_downloadFileList)
        out << QStringLiteral("%1 %2").arg(entry.url.mid(Global::Var::Host.size() + 1)).arg(entry.size);
    for (const PatchStep& step : ctx.m_guideManifest.m_downloadList)
        out << VersionToString(step.from) + '>' + VersionToString(step.to);
    return out;
}

} // namespace

class TestGuideManifestSolver : public QObject
{
    Q_OBJECT
private slots:
    void decidesUpdate_data();
    void decidesUpdate();
    void wipesHalfFinishedInstall_data();
    void wipesHalfFinishedInstall();
};

void TestGuideManifestSolver::decidesUpdate_data()
{
    QTest::addColumn<QStringList>("packages");
    QTest::addColumn<QString>("installed");
    QTest::addColumn<QString>("transition");
    QTest::addColumn<QString>("stage");
    QTest::addColumn<int>("result");
    QTest::addColumn<QStringList>("plan"); // download list ("url size"), then the chain's steps
    QTest::addColumn<qint64>("downloadSize");

    const QStringList all = publishedPatches() + newestFullPack();
    const QStringList untouched { " 1" };
    const QStringList fullPack { "full/1.0.0.3/full_1.0.0.3.7z.001 5000",
        "full/1.0.0.3/full_1.0.0.3.7z.002 2000" };
    const QString init = QLatin1String(Const::InitStage);
    const QString patch = QLatin1String(Const::PatchStage);
    QTest::newRow("up to date") << all << "1.0.0.3"
                                << "" << init << 0 << untouched << qint64(-1);
    QTest::newRow("installed newer") << all << "2.0.0.0"
                                     << "" << init << 6 << untouched << qint64(-1);
    QTest::newRow("full pack missing") << publishedPatches() << "1.0.0.1"
                                       << "" << init << 7 << untouched << qint64(-1);
    QTest::newRow("fresh install") << all << ""
                                   << "" << init << 0 << fullPack << qint64(7000);
    QTest::newRow("no chain") << all << "1.0.0.0"
                              << "" << init << 8 << fullPack << qint64(7000);
    QTest::newRow("patch chain") << all << "1.0.0.1"
                                 << "" << init << 0
                                 << QStringList { "patch/1.0.0.2/patch_1.0.0.1.7z 300", "1.0.0.1>1.0.0.2",
                                        "1.0.0.2>1.0.0.3" }
                                 << qint64(700);
    QTest::newRow("patch stage goes on")
        << all << "1.0.0.1"
        << "1.0.0.2" << patch << 0 << QStringList { " 1", "1.0.0.2>1.0.0.3" } << qint64(-1);
}

void TestGuideManifestSolver::decidesUpdate()
{
    QFETCH(QStringList, packages);
    QFETCH(QString, installed);
    QFETCH(QString, transition);
    QFETCH(QString, stage);
    QFETCH(int, result);
    QFETCH(QStringList, plan);
    QFETCH(qint64, downloadSize);
    const QString channel = Global::Var::HostAndChannel;
    const auto restoreChannel = qScopeGuard([&] { Global::Var::HostAndChannel = channel; });
    Global::Var::HostAndChannel = QStringLiteral("http://cdn.example/game");

    GameUpdateContext ctx;
    UpdateSetting& setting = ctx.m_updateSetting;
    setting.cachePath = QStringLiteral("/cache");
    setting.currentGameVersion = installed;
    setting.transitionGameVersion = transition;
    setting.targetGameVersion = transition; // an unfinished chain was heading for an older target
    setting.currentStage = stage;
    ctx.m_downloadFileList.append(DownloadFileInfo { "earlier", {}, 1, {}, {} });
    ctx.m_patchDownloadSize = -1;
    ctx.m_solveResult = -1;

    LogCapture log;
    SolveGuideManifest(manifestText(packages, QStringLiteral("1.0.0.3")), ctx);
    QCOMPARE(ctx.m_solveResult, result);
    QCOMPARE(describe(ctx), plan);
    for (const DownloadFileInfo& entry : ctx.m_downloadFileList) {
        QVERIFY(entry.url.isEmpty() || entry.url.endsWith('/' + entry.name));
        QVERIFY(entry.url.isEmpty() || entry.localPath == "/cache/" + entry.name);
    }
    QCOMPARE(ctx.m_patchDownloadSize, downloadSize);
    QCOMPARE(ctx.m_guideManifest.m_fullPackManifestUrl,
        QStringLiteral("http://cdn.example/game/1.0.0.3/manifest.txt"));
    QCOMPARE(ctx.m_fullPackSize, qint64(result == 7 ? 0 : 7000));
    QVERIFY(log.contains(QStringLiteral("config: the newest version 1.0.0.3")));
    QCOMPARE(log.contains(QStringLiteral(
                 "config: the newest version full pack is not exist, please check the manifest")),
        result == 7);
}

void TestGuideManifestSolver::wipesHalfFinishedInstall_data()
{
    QTest::addColumn<QString>("installed");
    QTest::addColumn<QString>("target");
    QTest::addColumn<int>("result");
    QTest::addColumn<bool>("wiped");
    QTest::newRow("fresh install, new target") << ""
                                               << "1.0.0.2" << 0 << true;
    QTest::newRow("no chain, new target") << "1.0.0.0"
                                          << "1.0.0.2" << 8 << true;
    QTest::newRow("same target kept") << ""
                                      << "1.0.0.3" << 0 << false;
}

void TestGuideManifestSolver::wipesHalfFinishedInstall()
{
    QFETCH(QString, installed);
    QFETCH(QString, target);
    QFETCH(int, result);
    QFETCH(bool, wiped);
    const ConfigFileGuard config;
    const QTemporaryDir dir;
    GameUpdateContext ctx;
    UpdateSetting& setting = ctx.m_updateSetting;
    setting.installPath = dir.path();
    setting.cachePath = dir.filePath(QLatin1String(Const::CacheFolderName));
    setting.gamePath = dir.filePath(QLatin1String(Const::GameFolderName));
    for (const QString& folder : { setting.cachePath, setting.gamePath }) {
        QVERIFY(QDir().mkpath(folder));
        QFileUtils::WriteText(folder + "/half.bin", QStringLiteral("half"));
    }
    setting.currentGameVersion = installed;
    setting.targetGameVersion = target;
    setting.currentStage = QLatin1String(Const::PatchStage);

    LogCapture log;
    SolveGuideManifest(manifestText(publishedPatches() + newestFullPack(), QStringLiteral("1.0.0.3")), ctx);
    QCOMPARE(ctx.m_solveResult, result);
    QCOMPARE(ctx.m_downloadFileList.size(), 2);
    QCOMPARE(QDir(setting.cachePath).exists(), !wiped);
    QCOMPARE(QDir(setting.gamePath).exists(), !wiped);
    QCOMPARE(setting.currentStage, QLatin1String(wiped ? Const::InitStage : Const::PatchStage));
    if (wiped)
        QCOMPARE(QSettings(ConfigFileGuard::path(), QSettings::IniFormat).value("CurrentStage").toString(),
            QLatin1String(Const::InitStage));
}

CORE_TEST_CLASS(TestGuideManifestSolver)
#include "tst_guidemanifestsolver.moc"

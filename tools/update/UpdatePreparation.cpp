#include "UpdatePreparation.h"

#include "FolderSwap.h"
#include "PackageChoice.h"
#include "ShownText.h"
#include "StageRunner.h"
#include "TrustGate.h"
#include "UpdateRun.h"

#include "core/Constants.h"
#include "core/DocumentCaps.h"
#include "core/ErrorCode.h"
#include "core/GlobalVar.h"
#include "core/RecordCodes.h"
#include "files/QFileUtils.h"
#include "planning/DownloadEntry.h"
#include "planning/GuideManifestReader.h"
#include "planning/GuideManifestSolver.h"
#include "planning/RemoteInfoReader.h"
#include "planning/UpdatePathPlanner.h"
#include "planning/VersionUtil.h"
#include "util/QtUtil.h"

#include <numeric>

using namespace Morvantix;

namespace {

QString constant(const char* text)
{
    return QString::fromLatin1(text);
}

} // namespace

UpdatePreparation::UpdatePreparation(UpdateRun& run, StageRunner* stages, TrustGate* trust, QObject* parent)
    : UpdatePart(run, stages, trust, parent)
{ }

void UpdatePreparation::start()
{
    if (readSettings() && finishInterruptedSwap())
        openChannel();
}

bool UpdatePreparation::readSettings()
{
    m_run.stage = Stage::Settings;
    const QString notice = m_run.readSettings();
    if (!notice.isEmpty())
        emit noticed(notice);
    const UpdateOptions& options = m_run.options;
    m_stages->setDownloadLimit(options.limitKBps > 0 ? options.limitKBps : m_run.storedLimit);
    if (options.bDryRun)
        return true;
    // Written before anything else happens: a run that could not record what it did would start
    // from the beginning every time, wiping what the last one installed.
    if (!m_run.save())
        return false;
    m_run.settle();
    return true;
}

// A full package that was unpacked beside the game when the last run stopped is put in place before
// anything else: the game folder must hold the version the settings name.
bool UpdatePreparation::finishInterruptedSwap()
{
    if (m_run.pending != PendingWork::Swap || m_run.options.bDryRun)
        return true;
    UpdateSetting& setting = m_run.ctx->m_updateSetting;
    startStage(Stage::Swap, setting.gamePath);
    const QString error = FolderSwap::Finish(setting.gamePath);
    if (!error.isEmpty()) {
        fail(Stage::Swap, 0, error, setting.gamePath);
        return false;
    }
    emit noticed(QStringLiteral("version %1, unpacked by a run that was stopped, is now in place")
                     .arg(setting.targetGameVersion));
    setting.currentGameVersion = setting.targetGameVersion;
    setting.transitionGameVersion.clear();
    setting.currentStage = constant(Const::InitStage);
    setting.bPatchFinished = true;
    m_run.pending = PendingWork::Verify;
    if (!m_run.save())
        return false;
    FolderSwap::RemoveLeftovers(setting.gamePath);
    m_run.pruneCache();
    m_run.summary.installedVersion = setting.currentGameVersion;
    m_run.summary.version = setting.currentGameVersion;
    return true;
}

void UpdatePreparation::openChannel()
{
    QString error;
    const bool bSettings = !m_run.options.bDryRun || m_run.hasSettingsFile();
    if (!m_trust->load(m_run.options.trustKeyPath, bSettings, error))
        return fail(Stage::Settings, 0, error);
    if (!m_trust->isActive()) {
        emit noticed(QStringLiteral("the channel is not verified: no trusted key (--trust FILE.pub)"));
        return fetchInfo();
    }
    startStage(Stage::Trust, ChannelTrust::DocumentName());
    m_trust->open(m_run.options.serverUrl, [this](bool bNetwork, const QString& error) {
        if (bNetwork)
            return fail(Stage::Server, 0, error);
        if (!error.isEmpty())
            return fail(Stage::Trust, 0, QStringLiteral("untrusted channel: %1").arg(error));
        fetchInfo();
    });
}

void UpdatePreparation::fetchInfo()
{
    startStage(Stage::Server, Global::Var::InfoName);
    m_stages->fetch(QFileUtils::CombinePath(m_run.options.serverUrl, Global::Var::InfoName),
        DocumentCaps::RemoteInfoBytes, [this](const QString& text, int code) { onInfo(text, code); });
}

void UpdatePreparation::onInfo(const QString& text, int code)
{
    const UpdateOptions& options = m_run.options;
    if (documentTooLarge(code, Global::Var::InfoName, DocumentCaps::RemoteInfoBytes))
        return;
    if (code != 0)
        return fail(Stage::Server, code,
            QStringLiteral("cannot read %1 from %2 (network error %3)")
                .arg(Global::Var::InfoName, options.serverUrl)
                .arg(code));
    if (!admit(Global::Var::InfoName, text))
        return;
    SolveRemoteInfo(text, *m_run.ctx);
    const RemoteInfo& info = m_run.ctx->m_remoteInfo;
    if (!info.m_maintainContent.isEmpty() || !info.m_maintainStart.isEmpty()) {
        emit noticed(ShownText(QStringLiteral("maintenance %1: %2 %3")
                                   .arg(info.m_maintainStart, info.m_maintainContent, info.m_maintainLink)
                                   .simplified()));
    }
    if (info.m_bReparing) {
        emit noticed(
            ShownText(QStringLiteral("the server is under maintenance: %1").arg(info.m_reparingTip)));
        if (!options.bYes)
            return fail(Stage::Server, 0,
                QStringLiteral("the server is under maintenance; try again later, or add --yes to go on"));
    }

    if (options.command == Command::Verify || options.command == Command::Repair) {
        const QString installed = m_run.ctx->m_updateSetting.currentGameVersion;
        if (installed.isEmpty())
            return fail(Stage::Settings, 0,
                QStringLiteral("nothing is installed in %1; run install first").arg(options.folder));
        return fetchManifests({ installed }, [this] { emit ready(Next::VerifyInstalled); });
    }
    fetchGuide();
}

void UpdatePreparation::fetchGuide()
{
    startStage(Stage::Server, Global::Var::GuideManifestName);
    m_stages->fetch(QFileUtils::CombinePath(m_run.options.serverUrl, Global::Var::GuideManifestName),
        DocumentCaps::GuideManifestBytes, [this](const QString& text, int code) {
            if (documentTooLarge(code, Global::Var::GuideManifestName, DocumentCaps::GuideManifestBytes))
                return;
            if (code != 0)
                return fail(Stage::Server, code,
                    QStringLiteral("cannot read the server's manifest (network error %1)").arg(code));
            if (admit(Global::Var::GuideManifestName, text))
                decide(text);
        });
}

void UpdatePreparation::decide(const QString& guide)
{
    m_run.stage = Stage::Plan;
    GameUpdateContext& ctx = *m_run.ctx;
    const GuideManifestInfo manifest = ReadGuideManifest(guide);
    // The planner passes over such a package as if it were not published; the host refuses the
    // whole document, which a broken or hostile server wrote.
    for (const PatchEntry& entry : manifest.patchList) {
        if (!IsStorablePackage(entry, ctx.m_updateSetting.cachePath))
            return fail(Stage::Plan, 0,
                QStringLiteral("the server's manifest names a package outside its folder: %1->%2")
                    .arg(entry.fromVersion, entry.toVersion));
    }

    UpdateSetting& setting = ctx.m_updateSetting;
    if (m_run.options.command == Command::Install && !setting.currentGameVersion.isEmpty()) {
        if (!m_run.options.bYes)
            return fail(Stage::Settings, 0,
                QStringLiteral(
                    "version %1 is installed in %2; add --yes to install again from the full package")
                    .arg(setting.currentGameVersion, m_run.options.folder));
        setting.currentGameVersion.clear();
    }
    // Planning resets a changed target and wipes the game folder for a half-finished install of it.
    // A full package is unpacked beside the game here, so there is no such half; and a chain goes on
    // from the version recorded after its last step. The target is never handed to it.
    setting.targetGameVersion.clear();

    SolveGuideManifest(guide, ctx);
    m_run.newest = VersionToString(ctx.m_guideManifest.m_newestVersion);
    m_run.summary.fullPackageBytes = ctx.m_fullPackSize;
    const QString installed = setting.currentGameVersion;
    if (ctx.m_solveResult == SolveResult::NoFullPack)
        return fail(Stage::Plan, 7,
            QStringLiteral("the server's manifest has no full package for its newest version %1")
                .arg(manifest.lastVersion));
    if (ctx.m_solveResult == SolveResult::InstalledNewer)
        return emit succeeded(Outcome::InstalledNewer,
            QStringLiteral("the installed version %1 is newer than the server's newest %2; nothing changed")
                .arg(installed, m_run.newest));
    if (installed == m_run.newest)
        return upToDate(installed);

    m_run.summary.version = m_run.newest;
    if (!installed.isEmpty() && ctx.m_solveResult != SolveResult::FullPack)
        preferFullPackageWhenSmaller();
    m_run.bFullInstall = installed.isEmpty() || ctx.m_solveResult == SolveResult::FullPack;
    QStringList versions;
    if (!m_run.bFullInstall) {
        const QVector<PatchStep>& steps = ctx.m_guideManifest.m_downloadList;
        if (steps.isEmpty())
            return upToDate(installed);
        // A chain taken up again after the server's newest version changed starts without a list.
        if (ctx.m_downloadFileList.isEmpty())
            GetCurrentShortestDownloadFile(ctx, VersionToString(steps.first().from));
        versions << VersionToString(steps.first().from);
        for (const PatchStep& step : steps)
            versions << VersionToString(step.to);
    }
    versions.removeAll(m_run.newest);
    versions << m_run.newest;
    fetchManifests(versions, [this] { planSteps(); });
}

// Never more than the full package: the planner gives the full package no cost, so a long chain or a
// major jump could download more than a fresh install would.
void UpdatePreparation::preferFullPackageWhenSmaller()
{
    GameUpdateContext& ctx = *m_run.ctx;
    QVector<qint64> chain;
    for (const PatchStep& step : ctx.m_guideManifest.m_downloadList) {
        // A step's package may be published in several parts; it costs all of them.
        qint64 stepSize = 0;
        for (const PackFileInfo& part : step.files)
            stepSize += part.size;
        chain << stepSize;
    }
    if (chain.isEmpty() || !IsFullPackageSmaller(chain, ctx.m_fullPackSize))
        return;
    emit noticed(
        QStringLiteral("the patch chain (%1 bytes in %2 packages) is not smaller than the full package "
                       "of %3 (%4 bytes): installing the full package")
            .arg(std::accumulate(chain.cbegin(), chain.cend(), qint64(0)))
            .arg(chain.size())
            .arg(m_run.newest)
            .arg(ctx.m_fullPackSize));
    PlanFullPack(ctx, ctx.m_guideManifest.m_fullPackFiles);
    ctx.m_solveResult = SolveResult::FullPack;
}

void UpdatePreparation::fetchManifests(QStringList versions, std::function<void()> then)
{
    if (versions.isEmpty())
        return then();
    const QString version = versions.takeFirst();
    const bool bRequired = versions.isEmpty();
    startStage(Stage::Server, QStringLiteral("%1/%2").arg(version, Global::Var::FullPackManifestName));
    const QString url = QFileUtils::CombinePath(
        QFileUtils::CombinePath(m_run.options.serverUrl, version), Global::Var::FullPackManifestName);
    m_stages->fetch(url, DocumentCaps::FileListBytes,
        [this, version, versions, bRequired, then](const QString& text, int code) {
            if (takeManifest(version, text, code, bRequired))
                fetchManifests(versions, then);
        });
}

bool UpdatePreparation::takeManifest(const QString& version, const QString& text, int code, bool bRequired)
{
    const QString name = QStringLiteral("%1/%2").arg(version, Global::Var::FullPackManifestName);
    if (bRequired && documentTooLarge(code, name, DocumentCaps::FileListBytes))
        return false;
    if (code != 0) {
        if (bRequired) {
            fail(Stage::Server, code,
                QStringLiteral("cannot read the verify manifest of %1 (network error %2)")
                    .arg(version)
                    .arg(code));
            return false;
        }
        emit noticed(QStringLiteral("no verify manifest for %1; disk space is estimated high").arg(version));
    }
    if (code == 0 && !admit(name, text))
        return false;
    // Checked before anything is verified or deleted: a broken list would pass missing files and send
    // every unlisted pak to the clean-up.
    const QString fault = code == 0 ? FileListFault(text) : QString();
    if (!fault.isEmpty() && bRequired) {
        fail(Stage::Plan, 0, ShownText(QStringLiteral("the server's %1 is unusable: %2").arg(name, fault)));
        return false;
    }
    if (!fault.isEmpty()) {
        emit noticed(
            ShownText(QStringLiteral("%1 is unusable (%2); disk space is estimated high").arg(name, fault)));
        m_run.manifests.insert(version, QString());
        return true;
    }
    const QString unsafe = UpdateRun::firstUnsafePath(ReadFileList(text));
    if (!unsafe.isEmpty()) {
        fail(Stage::Plan, 0,
            QStringLiteral("the verify manifest of %1 names a path outside the game folder: %2")
                .arg(version, unsafe),
            unsafe);
        return false;
    }
    m_run.manifests.insert(version, text);
    return true;
}

void UpdatePreparation::planSteps()
{
    m_run.stage = Stage::Plan;
    GameUpdateContext& ctx = *m_run.ctx;
    const UpdatePlan plan = m_run.makePlan();
    emit planned(plan);
    if (m_run.options.bDryRun)
        return emit succeeded(Outcome::Planned, QStringLiteral("dry run: nothing changed"));

    UpdateSetting& setting = ctx.m_updateSetting;
    setting.targetGameVersion = m_run.newest;
    setting.bPatchFinished = false;
    setting.currentStage = constant(m_run.bFullInstall ? Const::InitStage : Const::PatchStage);
    setting.transitionGameVersion = m_run.bFullInstall ? QString() : setting.currentGameVersion;
    // From here on the game folder may change; until the last verification passes, a later run
    // verifies before it says "up to date".
    m_run.pending = PendingWork::Verify;
    if (!m_run.save())
        return;
    FolderSwap::RemoveLeftovers(setting.gamePath);
    m_run.stepIndex = 0;
    emit ready(Next::Chain);
}

void UpdatePreparation::upToDate(const QString& version)
{
    // Nothing in the cache serves a step any more (a run stopped after recording its last one).
    if (!m_run.options.bDryRun) {
        m_run.ctx->m_downloadFileList.clear();
        m_run.pruneCache();
    }
    if (m_run.pending != PendingWork::Verify)
        return emit succeeded(Outcome::UpToDate, QStringLiteral("version %1 is up to date").arg(version));
    // The settings name this version, but a run that changed the game folder was stopped before it
    // had verified it.
    emit noticed(QStringLiteral("the last run was stopped before version %1 was verified; verifying now")
                     .arg(version));
    m_run.summary.version = version;
    m_run.newest = version;
    fetchManifests({ version }, [this] { emit ready(Next::VerifyGame); });
}

bool UpdatePreparation::admit(const QString& path, const QString& text)
{
    const QString refused = m_trust->admitDocument(path, text);
    if (refused.isEmpty())
        return true;
    fail(Stage::Trust, 0, QStringLiteral("untrusted channel: %1").arg(refused), path);
    return false;
}

bool UpdatePreparation::documentTooLarge(int code, const QString& name, qint64 cap)
{
    if (code != ContentTooLarge)
        return false;
    fail(Stage::Plan, code,
        QStringLiteral("the server's %1 is larger than %2; refused").arg(name, QtUtil::FormatSize(cap)));
    return true;
}

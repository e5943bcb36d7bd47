#include "UpdateJob.h"

#include "Boundary.h"
#include "DiskSpace.h"
#include "FolderSwap.h"
#include "HumanText.h"
#include "InstallLock.h"
#include "JobFailure.h"
#include "PackageChoice.h"
#include "RepairJob.h"
#include "ShownText.h"
#include "StageRunner.h"
#include "TrustGate.h"

#include "core/ComponentAccessors.h"
#include "core/Constants.h"
#include "core/CoreSystem.h"
#include "core/DocumentCaps.h"
#include "core/ErrorCode.h"
#include "core/GlobalVar.h"
#include "core/RecordCodes.h"
#include "core/SerializeComponent.h"
#include "files/QFileUtils.h"
#include "files/SafePath.h"
#include "install/PatchInfo.h"
#include "planning/DownloadEntry.h"
#include "planning/GuideManifestReader.h"
#include "planning/GuideManifestSolver.h"
#include "planning/RemoteInfoReader.h"
#include "planning/UpdatePathPlanner.h"
#include "planning/VersionUtil.h"
#include "util/QtUtil.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QSet>

#include <numeric>

using namespace Morvantix;

namespace {

QString constant(const char* text)
{
    return QString::fromLatin1(text);
}

QString firstUnsafePath(const ManifestFileMap& files)
{
    for (const ManifestFileInfo& file : files) {
        if (!SafePath::IsSafeRelativePath(file.path))
            return file.path;
    }
    return QString();
}

} // namespace

UpdateJob::UpdateJob(const UpdateOptions& options, const QString& settingsFolder, QObject* parent)
    : QObject(parent)
    , m_options(options)
    , m_settingsFolder(settingsFolder)
    , m_ctx(CoreSystem::GetCoreSystemInst()->GetCurGameUpdateContext())
    , m_stages(new StageRunner(*m_ctx, this))
    , m_repair(new RepairJob(m_stages, *m_ctx, this))
    , m_trust(new TrustGate(this))
{
    connect(m_stages, &StageRunner::progressed, this, &UpdateJob::progressed);
    connect(m_repair, &RepairJob::stageStarted, this, [this](const StageEvent& event) {
        m_stage = event.stage;
        emit stageStarted(event);
    });
    connect(m_repair, &RepairJob::planned, this, &UpdateJob::planned);
    connect(m_repair, &RepairJob::finished, this, &UpdateJob::onRepairFinished);
}

UpdateJob::~UpdateJob() = default;

void UpdateJob::start()
{
    Global::Var::Host = m_options.serverUrl;
    Global::Var::HostAndChannel = m_options.serverUrl;
    if (!m_options.bDryRun && !takeLock())
        return;
    m_state = State::Prepare;
    if (readSettings() && finishInterruptedSwap())
        openChannel();
}

bool UpdateJob::stopsBefore(State state)
{
    // A checked patch goes on to its in-use check, and an unpacked full package into place: the
    // run stops at the next state instead, with the unpacked work recorded. The verify and repair
    // commands come straight from their manifest fetch, which an interrupt ends by itself.
    return state != State::CheckPatch && state != State::Swap && state != State::VerifyInstalled;
}

void UpdateJob::moveTo(State next)
{
    if (stopsBefore(next) && leaveIfInterrupted())
        return;
    m_state = next;
    switch (next) {
    case State::Step:
        return runStep();
    case State::Download:
        return downloadPackage();
    case State::VerifyPackage:
        return verifyPackage();
    case State::Unpack:
        return unpackPackage();
    case State::CheckPatch:
        return checkPatchInfo();
    case State::CheckInUse:
        return checkInUse();
    case State::Merge:
        return merge();
    case State::Swap:
        return swapIn();
    case State::VerifyGame:
        return verifyGame();
    case State::VerifyInstalled:
        return startRepairJob();
    case State::Idle:
    case State::Prepare:
    case State::Finished:
        return;
    }
}

void UpdateJob::openChannel()
{
    QString error;
    const bool bSettings = !m_options.bDryRun
        || QFile::exists(QDir(m_settingsFolder).filePath(constant(Const::ConfigFileName)));
    if (!m_trust->load(m_options.trustKeyPath, bSettings, error))
        return fail(Stage::Settings, 0, error);
    if (!m_trust->isActive()) {
        emit noticed(QStringLiteral("the channel is not verified: no trusted key (--trust FILE.pub)"));
        return fetchInfo();
    }
    startStage(Stage::Trust, ChannelTrust::DocumentName());
    m_trust->open(m_options.serverUrl, [this](bool bNetwork, const QString& error) {
        if (bNetwork)
            return fail(Stage::Server, 0, error);
        if (!error.isEmpty())
            return fail(Stage::Trust, 0, QStringLiteral("untrusted channel: %1").arg(error));
        fetchInfo();
    });
}

bool UpdateJob::admit(const QString& path, const QString& text)
{
    const QString refused = m_trust->admitDocument(path, text);
    if (refused.isEmpty())
        return true;
    fail(Stage::Trust, 0, QStringLiteral("untrusted channel: %1").arg(refused), path);
    return false;
}

void UpdateJob::interrupt()
{
    if (m_state == State::Finished || m_bInterrupted)
        return;
    m_bInterrupted = true;
    if (m_state == State::VerifyGame || m_state == State::VerifyInstalled) {
        m_repair->interrupt();
    } else if (m_state == State::Download) {
        m_stages->pauseDownload();
        leaveIfInterrupted();
    } else if (m_stage == Stage::Settings || m_stage == Stage::Trust || m_stage == Stage::Server
        || m_stage == Stage::Plan) {
        m_stages->abandon();
        leaveIfInterrupted();
    } else {
        emit noticed(QStringLiteral("stopping when the %1 stage ends").arg(StageName(m_stage)));
    }
}

// --- Settings and server documents ---

bool UpdateJob::takeLock()
{
    m_stage = Stage::Lock;
    if (!QDir().mkpath(m_options.folder)) {
        fail(Stage::Settings, 0, QStringLiteral("cannot create the install folder %1").arg(m_options.folder));
        return false;
    }
    m_lock = std::make_unique<InstallLock>(m_options.folder);
    if (m_lock->tryLock())
        return true;
    fail(Stage::Lock, 0,
        QStringLiteral("another run is working in %1: %2; try again when it has ended")
            .arg(m_options.folder, m_lock->holder()),
        m_lock->filePath());
    return false;
}

bool UpdateJob::readSettings()
{
    m_stage = Stage::Settings;
    auto serializer = GetSerializeComponent();
    UpdateSetting& setting = m_ctx->m_updateSetting;
    const bool bHaveFile = QFile::exists(QDir(m_settingsFolder).filePath(constant(Const::ConfigFileName)));
    // A dry run on a first run must not create the settings file, which reading would do.
    if (bHaveFile || !m_options.bDryRun) {
        serializer->ReadSetting(setting);
    } else {
        setting.currentStage = constant(Const::InitStage);
        setting.limitSpeed = -1;
    }
    m_storedLimit = setting.limitSpeed;
    m_pending = bHaveFile ? ReadPendingWork(*serializer) : PendingWork::None;

    const QString recorded = bHaveFile ? serializer->GetValueByKey(constant(Const::InstallPath)) : QString();
    if (!recorded.isEmpty() && QDir::cleanPath(recorded) != m_options.folder
        && !setting.currentGameVersion.isEmpty()) {
        emit noticed(
            QStringLiteral("the settings recorded version %1 in %2; they now follow %3, whose installed "
                           "version is not known")
                .arg(setting.currentGameVersion, recorded, m_options.folder));
        setting.currentGameVersion.clear();
        setting.transitionGameVersion.clear();
        setting.targetGameVersion.clear();
        setting.currentStage = constant(Const::InitStage);
        m_pending = PendingWork::None;
    }
    setting.installPath = m_options.folder;
    setting.gamePath = QFileUtils::CombinePath(m_options.folder, constant(Const::GameFolderName));
    setting.cachePath = QFileUtils::CombinePath(m_options.folder, constant(Const::CacheFolderName));
    setting.unZipPath = QFileUtils::CombinePath(setting.cachePath, constant(Const::UnZipFolder));
    setting.tempMergePath = QFileUtils::CombinePath(setting.cachePath, constant(Const::TempMergeFolderName));
    m_summary.installedVersion = setting.currentGameVersion;
    m_summary.version = setting.currentGameVersion;
    m_stages->setDownloadLimit(m_options.limitKBps > 0 ? m_options.limitKBps : m_storedLimit);

    if (m_options.bDryRun)
        return true;
    // Written before anything else happens: a run that could not record what it did would start
    // from the beginning every time, wiping what the last one installed.
    if (!saveSettings())
        return false;
    m_settled = setting;
    m_settledPending = m_pending;
    return true;
}

bool UpdateJob::saveSettings()
{
    if (m_options.bDryRun)
        return true;
    // --limit holds for this run only; the settings keep the player's own limit.
    UpdateSetting setting = m_ctx->m_updateSetting;
    setting.limitSpeed = m_storedLimit;
    auto serializer = GetSerializeComponent();
    // The version before the pending work: a run stopped between the two writes finds a swap still
    // pending, which it recognises as done, rather than a version it has not reached.
    if (serializer->SaveSetting(setting) && WritePendingWork(*serializer, m_pending))
        return true;
    const QString file = QDir(m_settingsFolder).filePath(constant(Const::ConfigFileName));
    const DiskSpace::Volume volume = DiskSpace::VolumeOf(m_settingsFolder);
    if (volume.availableBytes == 0)
        fail(Stage::Space, 0, QStringLiteral("no disk space left on %1 to write %2").arg(volume.root, file),
            file);
    else
        fail(Stage::Record, 0,
            QStringLiteral("cannot write the settings %1 (read-only, or not a file); nothing was changed "
                           "after the last recorded step")
                .arg(file),
            file);
    return false;
}

// A full package that was unpacked beside the game when the last run stopped is put in place before
// anything else: the game folder must hold the version the settings name.
bool UpdateJob::finishInterruptedSwap()
{
    if (m_pending != PendingWork::Swap || m_options.bDryRun)
        return true;
    UpdateSetting& setting = m_ctx->m_updateSetting;
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
    m_pending = PendingWork::Verify;
    if (!saveSettings())
        return false;
    FolderSwap::RemoveLeftovers(setting.gamePath);
    pruneCache();
    m_summary.installedVersion = setting.currentGameVersion;
    m_summary.version = setting.currentGameVersion;
    return true;
}

bool UpdateJob::documentTooLarge(int code, const QString& name, qint64 cap)
{
    if (code != ContentTooLarge)
        return false;
    fail(Stage::Plan, code,
        QStringLiteral("the server's %1 is larger than %2; refused").arg(name, QtUtil::FormatSize(cap)));
    return true;
}

void UpdateJob::upToDate(const QString& version)
{
    // Nothing in the cache serves a step any more (a run stopped after recording its last one).
    if (!m_options.bDryRun) {
        m_ctx->m_downloadFileList.clear();
        pruneCache();
    }
    if (m_pending != PendingWork::Verify)
        return succeed(Outcome::UpToDate, QStringLiteral("version %1 is up to date").arg(version));
    // The settings name this version, but a run that changed the game folder was stopped before it
    // had verified it.
    emit noticed(QStringLiteral("the last run was stopped before version %1 was verified; verifying now")
                     .arg(version));
    m_summary.version = version;
    m_newest = version;
    fetchManifests({ version }, [this] { moveTo(State::VerifyGame); });
}

void UpdateJob::fetchInfo()
{
    startStage(Stage::Server, Global::Var::InfoName);
    m_stages->fetch(QFileUtils::CombinePath(m_options.serverUrl, Global::Var::InfoName),
        DocumentCaps::RemoteInfoBytes, [this](const QString& text, int code) { onInfo(text, code); });
}

void UpdateJob::onInfo(const QString& text, int code)
{
    if (documentTooLarge(code, Global::Var::InfoName, DocumentCaps::RemoteInfoBytes))
        return;
    if (code != 0)
        return fail(Stage::Server, code,
            QStringLiteral("cannot read %1 from %2 (network error %3)")
                .arg(Global::Var::InfoName, m_options.serverUrl)
                .arg(code));
    if (!admit(Global::Var::InfoName, text))
        return;
    SolveRemoteInfo(text, *m_ctx);
    const RemoteInfo& info = m_ctx->m_remoteInfo;
    if (!info.m_maintainContent.isEmpty() || !info.m_maintainStart.isEmpty()) {
        emit noticed(ShownText(QStringLiteral("maintenance %1: %2 %3")
                                   .arg(info.m_maintainStart, info.m_maintainContent, info.m_maintainLink)
                                   .simplified()));
    }
    if (info.m_bReparing) {
        emit noticed(
            ShownText(QStringLiteral("the server is under maintenance: %1").arg(info.m_reparingTip)));
        if (!m_options.bYes)
            return fail(Stage::Server, 0,
                QStringLiteral("the server is under maintenance; try again later, or add --yes to go on"));
    }

    if (m_options.command == Command::Verify || m_options.command == Command::Repair) {
        const QString installed = m_ctx->m_updateSetting.currentGameVersion;
        if (installed.isEmpty())
            return fail(Stage::Settings, 0,
                QStringLiteral("nothing is installed in %1; run install first").arg(m_options.folder));
        return fetchManifests({ installed }, [this] { moveTo(State::VerifyInstalled); });
    }
    fetchGuide();
}

void UpdateJob::fetchGuide()
{
    startStage(Stage::Server, Global::Var::GuideManifestName);
    m_stages->fetch(QFileUtils::CombinePath(m_options.serverUrl, Global::Var::GuideManifestName),
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

void UpdateJob::decide(const QString& guide)
{
    m_stage = Stage::Plan;
    const GuideManifestInfo manifest = ReadGuideManifest(guide);
    // The planner passes over such a package as if it were not published; the host refuses the
    // whole document, which a broken or hostile server wrote.
    for (const PatchEntry& entry : manifest.patchList) {
        if (!IsStorablePackage(entry, m_ctx->m_updateSetting.cachePath))
            return fail(Stage::Plan, 0,
                QStringLiteral("the server's manifest names a package outside its folder: %1->%2")
                    .arg(entry.fromVersion, entry.toVersion));
    }

    UpdateSetting& setting = m_ctx->m_updateSetting;
    if (m_options.command == Command::Install && !setting.currentGameVersion.isEmpty()) {
        if (!m_options.bYes)
            return fail(Stage::Settings, 0,
                QStringLiteral(
                    "version %1 is installed in %2; add --yes to install again from the full package")
                    .arg(setting.currentGameVersion, m_options.folder));
        setting.currentGameVersion.clear();
    }
    // Planning resets a changed target and wipes the game folder for a half-finished install of it.
    // A full package is unpacked beside the game here, so there is no such half; and a chain goes on
    // from the version recorded after its last step. The target is never handed to it.
    setting.targetGameVersion.clear();

    SolveGuideManifest(guide, *m_ctx);
    m_newest = VersionToString(m_ctx->m_guideManifest.m_newestVersion);
    m_summary.fullPackageBytes = m_ctx->m_fullPackSize;
    const QString installed = setting.currentGameVersion;
    if (m_ctx->m_solveResult == SolveResult::NoFullPack)
        return fail(Stage::Plan, 7,
            QStringLiteral("the server's manifest has no full package for its newest version %1")
                .arg(manifest.lastVersion));
    if (m_ctx->m_solveResult == SolveResult::InstalledNewer)
        return succeed(Outcome::InstalledNewer,
            QStringLiteral("the installed version %1 is newer than the server's newest %2; nothing changed")
                .arg(installed, m_newest));
    if (installed == m_newest)
        return upToDate(installed);

    m_summary.version = m_newest;
    if (!installed.isEmpty() && m_ctx->m_solveResult != SolveResult::FullPack)
        preferFullPackageWhenSmaller();
    m_bFullInstall = installed.isEmpty() || m_ctx->m_solveResult == SolveResult::FullPack;
    QStringList versions;
    if (!m_bFullInstall) {
        const QVector<PatchStep>& steps = m_ctx->m_guideManifest.m_downloadList;
        if (steps.isEmpty())
            return upToDate(installed);
        // A chain taken up again after the server's newest version changed starts without a list.
        if (m_ctx->m_downloadFileList.isEmpty())
            GetCurrentShortestDownloadFile(*m_ctx, VersionToString(steps.first().from));
        versions << VersionToString(steps.first().from);
        for (const PatchStep& step : steps)
            versions << VersionToString(step.to);
    }
    versions.removeAll(m_newest);
    versions << m_newest;
    fetchManifests(versions, [this] { planSteps(); });
}

// Never more than the full package: the planner gives the full package no cost, so a long chain or a
// major jump could download more than a fresh install would.
void UpdateJob::preferFullPackageWhenSmaller()
{
    QVector<qint64> chain;
    for (const PatchStep& step : m_ctx->m_guideManifest.m_downloadList) {
        // A step's package may be published in several parts; it costs all of them.
        qint64 stepSize = 0;
        for (const PackFileInfo& part : step.files)
            stepSize += part.size;
        chain << stepSize;
    }
    if (chain.isEmpty() || !IsFullPackageSmaller(chain, m_ctx->m_fullPackSize))
        return;
    emit noticed(
        QStringLiteral("the patch chain (%1 bytes in %2 packages) is not smaller than the full package "
                       "of %3 (%4 bytes): installing the full package")
            .arg(std::accumulate(chain.cbegin(), chain.cend(), qint64(0)))
            .arg(chain.size())
            .arg(m_newest)
            .arg(m_ctx->m_fullPackSize));
    PlanFullPack(*m_ctx, m_ctx->m_guideManifest.m_fullPackFiles);
    m_ctx->m_solveResult = SolveResult::FullPack;
}

// The last version of the list is the one the job verifies against and must exist; the others only
// feed the disk space estimate, which assumes every file changed when one is missing.
void UpdateJob::fetchManifests(QStringList versions, std::function<void()> then)
{
    if (versions.isEmpty())
        return then();
    const QString version = versions.takeFirst();
    const bool bRequired = versions.isEmpty();
    const QString name = QStringLiteral("%1/%2").arg(version, Global::Var::FullPackManifestName);
    startStage(Stage::Server, name);
    const QString url = QFileUtils::CombinePath(
        QFileUtils::CombinePath(m_options.serverUrl, version), Global::Var::FullPackManifestName);
    m_stages->fetch(url, DocumentCaps::FileListBytes,
        [this, version, name, versions, bRequired, then](const QString& text, int code) {
            if (bRequired && documentTooLarge(code, name, DocumentCaps::FileListBytes))
                return;
            if (code != 0) {
                if (bRequired)
                    return fail(Stage::Server, code,
                        QStringLiteral("cannot read the verify manifest of %1 (network error %2)")
                            .arg(version)
                            .arg(code));
                emit noticed(
                    QStringLiteral("no verify manifest for %1; disk space is estimated high").arg(version));
            }
            if (code == 0
                && !admit(QStringLiteral("%1/%2").arg(version, Global::Var::FullPackManifestName), text))
                return;
            // Checked before anything is verified or deleted: a broken list would pass missing files and
            // send every unlisted pak to the clean-up.
            const QString fault = code == 0 ? FileListFault(text) : QString();
            if (!fault.isEmpty() && bRequired)
                return fail(Stage::Plan, 0,
                    ShownText(QStringLiteral("the server's %1 is unusable: %2").arg(name, fault)));
            if (!fault.isEmpty()) {
                emit noticed(ShownText(
                    QStringLiteral("%1 is unusable (%2); disk space is estimated high").arg(name, fault)));
                m_manifests.insert(version, QString());
                return fetchManifests(versions, then);
            }
            const QString unsafe = firstUnsafePath(ReadFileList(text));
            if (!unsafe.isEmpty())
                return fail(Stage::Plan, 0,
                    QStringLiteral("the verify manifest of %1 names a path outside the game folder: %2")
                        .arg(version, unsafe),
                    unsafe);
            m_manifests.insert(version, text);
            fetchManifests(versions, then);
        });
}

void UpdateJob::planSteps()
{
    m_stage = Stage::Plan;
    UpdatePlan plan;
    plan.installedVersion = m_summary.installedVersion;
    plan.newestVersion = m_newest;
    plan.fullPackageBytes = m_ctx->m_fullPackSize;
    m_plan.clear();
    if (m_bFullInstall) {
        plan.action = QStringLiteral("full install");
        PlanStep step;
        step.to = m_newest;
        step.downloadBytes = m_ctx->m_fullPackSize;
        const DiskSpace::Need need
            = DiskSpace::FullInstall(step.downloadBytes, ReadFileList(m_manifests.value(m_newest)));
        step.cacheBytes = need.cacheBytes;
        step.gameBytes = need.gameBytes;
        m_plan.append(step);
    } else {
        plan.action = QStringLiteral("patch chain");
        for (const PatchStep& patch : m_ctx->m_guideManifest.m_downloadList) {
            PlanStep step;
            step.from = VersionToString(patch.from);
            step.to = VersionToString(patch.to);
            step.downloadBytes = patch.files.value(0).size;
            const DiskSpace::Need need = DiskSpace::PatchStep(step.downloadBytes,
                ReadFileList(m_manifests.value(step.from)), ReadFileList(m_manifests.value(step.to)));
            step.cacheBytes = need.cacheBytes;
            step.gameBytes = need.gameBytes;
            m_plan.append(step);
        }
    }
    for (const PlanStep& step : m_plan)
        plan.downloadBytes += step.downloadBytes;
    plan.steps = m_plan;
    emit planned(plan);
    if (m_options.bDryRun)
        return succeed(Outcome::Planned, QStringLiteral("dry run: nothing changed"));

    UpdateSetting& setting = m_ctx->m_updateSetting;
    setting.targetGameVersion = m_newest;
    setting.bPatchFinished = false;
    setting.currentStage = constant(m_bFullInstall ? Const::InitStage : Const::PatchStage);
    setting.transitionGameVersion = m_bFullInstall ? QString() : setting.currentGameVersion;
    // From here on the game folder may change; until the last verification passes, a later run
    // verifies before it says "up to date".
    m_pending = PendingWork::Verify;
    if (!saveSettings())
        return;
    FolderSwap::RemoveLeftovers(setting.gamePath);
    m_stepIndex = 0;
    moveTo(State::Step);
}

void UpdateJob::startRepairJob()
{
    const bool bRepair = m_options.command == Command::Repair;
    if (bRepair && !m_options.bDryRun) {
        m_pending = PendingWork::Verify;
        if (!saveSettings())
            return;
    }
    const QString version = m_ctx->m_updateSetting.currentGameVersion;
    m_repair->start(m_manifests.value(version), version, bRepair, m_options.bDryRun);
}

// --- The steps ---

void UpdateJob::runStep()
{
    const PlanStep& step = m_plan.at(m_stepIndex);
    if (m_bFullInstall)
        m_stages->setStep(0, 0);
    else
        m_stages->setStep(m_stepIndex + 1, m_plan.size());
    if (!m_bFullInstall && m_stepIndex > 0)
        GetCurrentShortestDownloadFile(*m_ctx, step.from);
    m_bPackageFetchedAgain = false;

    qint64 present = 0;
    for (const DownloadFileInfo& file : m_ctx->m_downloadFileList)
        present += qBound<qint64>(0, QFileInfo(file.localPath).size(), file.size);
    const DiskSpace::Need need { step.cacheBytes - present, step.gameBytes };
    const QString shortage = DiskSpace::Shortage(need, DiskSpace::VolumeOf(m_ctx->m_updateSetting.cachePath),
        DiskSpace::VolumeOf(m_ctx->m_updateSetting.gamePath));
    if (!shortage.isEmpty())
        return fail(Stage::Space, 0, shortage);
    pruneCache();
    moveTo(State::Download);
}

// Packages of steps that are recorded, or of a plan a stopped run made, serve nothing any more; the
// partial files of the step about to be downloaded are kept for resumption.
void UpdateJob::pruneCache()
{
    QSet<QString> kept;
    for (const DownloadFileInfo& file : m_ctx->m_downloadFileList)
        kept.insert(QDir::cleanPath(file.localPath));
    const QDir cache(m_ctx->m_updateSetting.cachePath);
    for (const QFileInfo& entry : cache.entryInfoList(QDir::Files | QDir::Hidden | QDir::System)) {
        if (!kept.contains(QDir::cleanPath(entry.absoluteFilePath())))
            QFile::remove(entry.absoluteFilePath());
    }
}

void UpdateJob::downloadPackage()
{
    QStringList names;
    qint64 present = 0;
    for (const DownloadFileInfo& file : m_ctx->m_downloadFileList) {
        names << file.name;
        present += qBound<qint64>(0, QFileInfo(file.localPath).size(), file.size);
    }
    QString detail = QStringLiteral("%1 (%2)").arg(
        names.join(QStringLiteral(", ")), QtUtil::FormatSize(downloadListBytes()));
    if (present > 0)
        detail += QStringLiteral(", resuming after %1").arg(QtUtil::FormatSize(present));
    startStage(Stage::Download, detail);
    m_stages->download(Stage::Download, [this, present](const DownloadCallbackInfo& info) {
        if (info.bError)
            return fail(Stage::Download, info.errorCode, info.errorMsg);
        m_summary.downloadedBytes += qMax<qint64>(0, info.totalBytes - present);
        Boundary::Pass("downloaded");
        moveTo(State::VerifyPackage);
    });
}

void UpdateJob::verifyPackage()
{
    m_ctx->m_bVerifyZip = true;
    m_ctx->m_updateType = UpdateType::Update;
    m_ctx->m_archiveFileList.clear();
    m_ctx->m_archiveMd5List.clear();
    for (const DownloadFileInfo& file : m_ctx->m_downloadFileList) {
        m_ctx->m_archiveFileList << file.localPath;
        m_ctx->m_archiveMd5List << file.md5;
    }
    startStage(Stage::VerifyPackage, firstDownload().name);
    // The signed digests are computed beside the MD5 check, while the parts are read anyway.
    m_trust->checkPackages(m_options.serverUrl, m_ctx->m_downloadFileList);
    m_stages->verify(Stage::VerifyPackage, downloadListBytes(), [this](const VerifyCallbackInfo& info) {
        const bool bMd5Failed = info.bError;
        m_trust->whenPackagesChecked(
            [this, bMd5Failed](const PackageCheck& check) { onPackageChecked(bMd5Failed, check); });
    });
}

void UpdateJob::onPackageChecked(bool bMd5Failed, const PackageCheck& check)
{
    if (!bMd5Failed && check.text.isEmpty()) {
        Boundary::Pass("package-verified");
        return moveTo(State::Unpack);
    }
    // The verifier deleted the archives that failed its check, unless the signed check was reading
    // them at that moment (Windows refuses to delete an open file); a part that fails only the signed
    // check is deleted here, so the download fetches it whole again.
    for (const QString& path : check.failedPaths)
        QFileUtils::DeleteFileOrFolder(path);
    if (m_bPackageFetchedAgain) {
        if (!check.text.isEmpty())
            return fail(Stage::Trust, 0, QStringLiteral("untrusted channel: %1").arg(check.text));
        return fail(Stage::VerifyPackage, 0,
            QStringLiteral("%1 still differs from the server's manifest after a second download")
                .arg(firstDownload().name));
    }
    m_bPackageFetchedAgain = true;
    emit noticed(QStringLiteral("%1 failed its check and is fetched again").arg(firstDownload().name));
    moveTo(State::Download);
}

void UpdateJob::unpackPackage()
{
    const UpdateSetting& setting = m_ctx->m_updateSetting;
    // A multi-part archive is unpacked from its first part; 7-Zip finds the others beside it.
    m_ctx->m_unZipFileList = QStringList { firstDownload().localPath };
    // A full package goes beside the game, on its volume, and replaces it only once it is complete.
    m_ctx->m_unZipFolder = m_bFullInstall ? FolderSwap::StagingFolder(setting.gamePath) : setting.unZipPath;
    m_ctx->m_updateType = UpdateType::Update;
    startStage(Stage::Unpack, QStringLiteral("%1 into %2").arg(firstDownload().name, m_ctx->m_unZipFolder));
    m_stages->unpack(
        m_bFullInstall ? m_plan.at(m_stepIndex).gameBytes : -1, [this](const UnZipCallbackInfo& info) {
            if (info.code != 0)
                return fail(Stage::Unpack, info.code,
                    QStringLiteral("7-Zip could not unpack %1 (code %2): %3")
                        .arg(firstDownload().name)
                        .arg(info.code)
                        .arg(info.errStr));
            Boundary::Pass("unpacked");
            if (!m_bFullInstall)
                return moveTo(State::CheckPatch);
            moveTo(State::Swap);
        });
}

void UpdateJob::swapIn()
{
    const QString game = m_ctx->m_updateSetting.gamePath;
    m_pending = PendingWork::Swap;
    if (!saveSettings())
        return;
    startStage(Stage::Swap, game);
    const QString error = FolderSwap::Finish(game);
    if (!error.isEmpty())
        return fail(Stage::Swap, 0, error, game);
    if (!recordStep())
        return;
    FolderSwap::RemoveLeftovers(game);
    removeStepFiles();
    moveTo(State::VerifyGame);
}

void UpdateJob::checkPatchInfo()
{
    const QString path
        = QFileUtils::CombinePath(m_ctx->m_updateSetting.unZipPath, Global::Var::PatchManifestName);
    const PatchInfo info = ReadPatchInfo(QFileUtils::ReadText(path));
    for (const ManifestFileMap* list : { &info.newFiles, &info.delFiles, &info.patchFiles }) {
        const QString unsafe = firstUnsafePath(*list);
        if (!unsafe.isEmpty())
            return fail(Stage::Plan, 0,
                QStringLiteral("the patch package %1 names a path outside the game folder: %2")
                    .arg(firstDownload().name, unsafe),
                unsafe);
    }
    moveTo(State::CheckInUse);
}

void UpdateJob::checkInUse()
{
    startStage(Stage::Check, m_ctx->m_updateSetting.gamePath);
    m_stages->checkNotInUse(m_ctx->m_updateSetting.gamePath, [this](const QString& busyPath) {
        if (!busyPath.isEmpty())
            return fail(JobFailure::InUse(busyPath));
        Boundary::Pass("checked");
        moveTo(State::Merge);
    });
}

void UpdateJob::merge()
{
    const UpdateSetting& setting = m_ctx->m_updateSetting;
    m_ctx->m_patchFolder = setting.unZipPath;
    m_ctx->m_mergeTargetPath = setting.gamePath;
    m_ctx->m_mergeTempPath = setting.tempMergePath;
    m_ctx->m_bSkipDiffMerge = false;
    startStage(Stage::Merge, stepName(m_stepIndex));
    m_stages->applyPatch(Stage::Merge, [this](const PatcherCallbackInfo& info) {
        if (info.bError) {
            const UpdateSetting& setting = m_ctx->m_updateSetting;
            return fail(JobFailure::Copy(
                Stage::Merge, info.errorString, { setting.gamePath, setting.tempMergePath }));
        }
        Boundary::Pass("merged");
        if (!recordStep())
            return;
        removeStepFiles();
        if (++m_stepIndex < m_plan.size())
            return moveTo(State::Step);
        moveTo(State::VerifyGame);
    });
}

// The version reached is recorded after every step, so a run that stops later goes on from there.
bool UpdateJob::recordStep()
{
    UpdateSetting& setting = m_ctx->m_updateSetting;
    const bool bLast = m_stepIndex + 1 == m_plan.size();
    setting.currentGameVersion = m_plan.at(m_stepIndex).to;
    setting.transitionGameVersion = bLast ? QString() : setting.currentGameVersion;
    setting.currentStage = constant(bLast ? Const::InitStage : Const::PatchStage);
    setting.bPatchFinished = bLast;
    m_pending = PendingWork::Verify;
    if (!saveSettings())
        return false;
    m_settled = setting;
    m_settledPending = m_pending;
    Boundary::Pass("step-recorded");
    return true;
}

void UpdateJob::removeStepFiles()
{
    for (const DownloadFileInfo& file : m_ctx->m_downloadFileList)
        QFileUtils::DeleteFileOrFolder(file.localPath);
    if (!m_bFullInstall)
        QFileUtils::DeleteFileOrFolder(m_ctx->m_updateSetting.unZipPath);
}

void UpdateJob::verifyGame()
{
    Boundary::Pass("verifying");
    m_repair->start(m_manifests.value(m_newest), m_newest, true, false);
}

void UpdateJob::onRepairFinished(const StageResult& result, const QStringList& repaired, qint64 downloaded)
{
    m_summary.downloadedBytes += downloaded;
    m_summary.repairedFiles = repaired;
    if (result.bFailed || result.bInterrupted)
        return finish(result);
    // Every file is as published: nothing is left for a later run. A dry run changed nothing.
    if (m_pending == PendingWork::Verify && !m_options.bDryRun) {
        m_pending = PendingWork::None;
        if (!saveSettings())
            return;
    }
    const QString version = m_summary.version;
    const QString repairs = repaired.isEmpty()
        ? QString()
        : QStringLiteral(", %1 repaired").arg(HumanText::Files(repaired.size()));
    switch (m_options.command) {
    case Command::Verify:
        return succeed(
            Outcome::Verified, QStringLiteral("every file of version %1 is as published").arg(version));
    case Command::Repair:
        if (m_options.bDryRun)
            return succeed(Outcome::Planned, QStringLiteral("dry run: nothing changed"));
        return succeed(Outcome::Repaired,
            repaired.isEmpty()
                ? QStringLiteral("every file of version %1 is as published; nothing to repair").arg(version)
                : QStringLiteral("version %1 repaired: %2 fetched again")
                      .arg(version, HumanText::Files(repaired.size())));
    case Command::Install:
    case Command::Update:
        break;
    }
    if (m_plan.isEmpty())
        return succeed(Outcome::Updated,
            QStringLiteral("version %1 verified after an interrupted run%2").arg(version, repairs));
    if (m_bFullInstall)
        return succeed(Outcome::Installed, QStringLiteral("installed version %1%2").arg(version, repairs));
    succeed(Outcome::Updated,
        QStringLiteral("updated %1 to %2%3").arg(m_summary.installedVersion, version, repairs));
}

// --- Reporting ---

void UpdateJob::startStage(Stage stage, const QString& detail)
{
    m_stage = stage;
    StageEvent event { stage, 0, 0, detail };
    const bool bChainStage = stage == Stage::Download || stage == Stage::VerifyPackage
        || stage == Stage::Unpack || stage == Stage::Check || stage == Stage::Merge;
    if (bChainStage && !m_bFullInstall && !m_plan.isEmpty()) {
        event.step = m_stepIndex + 1;
        event.steps = m_plan.size();
    }
    emit stageStarted(event);
}

bool UpdateJob::leaveIfInterrupted()
{
    if (!m_bInterrupted)
        return false;
    StageResult result;
    result.stage = m_stage;
    result.bInterrupted = true;
    finish(result);
    return true;
}

void UpdateJob::fail(Stage stage, int code, const QString& text, const QString& path)
{
    fail(StageResult { stage, true, false, code, text, path });
}

void UpdateJob::fail(const StageResult& result)
{
    // A plan made from documents that a later check found untrusted is no plan to resume: the
    // settings go back to what the last finished step left.
    if (result.stage == Stage::Trust && !m_options.bDryRun && m_state != State::Finished) {
        m_ctx->m_updateSetting = m_settled;
        m_pending = m_settledPending;
        saveSettings();
    }
    finish(result);
}

void UpdateJob::succeed(Outcome outcome, const QString& message)
{
    if (!m_options.bDryRun)
        m_trust->recordSuccess();
    m_summary.outcome = outcome;
    m_summary.message = message;
    StageResult result;
    result.stage = m_stage;
    finish(result);
}

void UpdateJob::finish(const StageResult& result)
{
    if (m_state == State::Finished)
        return;
    m_state = State::Finished;
    if (result.bFailed || result.bInterrupted)
        m_summary.outcome = Outcome::Failed;
    emit finished(result, m_summary);
}

DownloadFileInfo UpdateJob::firstDownload() const
{
    return m_ctx->m_downloadFileList.value(0);
}

qint64 UpdateJob::downloadListBytes() const
{
    qint64 total = 0;
    for (const DownloadFileInfo& file : m_ctx->m_downloadFileList)
        total += file.size;
    return total;
}

QString UpdateJob::stepName(int index) const
{
    const PlanStep& step = m_plan.at(index);
    return step.from.isEmpty() ? QStringLiteral("full %1").arg(step.to)
                               : QStringLiteral("%1 -> %2").arg(step.from, step.to);
}

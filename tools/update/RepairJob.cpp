#include "RepairJob.h"

#include "DiskSpace.h"
#include "HumanText.h"
#include "JobFailure.h"
#include "StageRunner.h"

#include "files/QFileUtils.h"
#include "planning/RepairPlanner.h"

using namespace Morvantix;

namespace {

// A failure lists at most this many files; the log and the JSON object list them all.
constexpr int kListedFiles = 10;

QString listed(const QStringList& files)
{
    QString text = files.mid(0, kListedFiles).join(QStringLiteral(", "));
    if (files.size() > kListedFiles)
        text += QStringLiteral(" and %1 more").arg(files.size() - kListedFiles);
    return text;
}

qint64 sizeOf(const ManifestFileMap& manifest, const QStringList& files)
{
    qint64 total = 0;
    for (const QString& path : files)
        total += qint64(manifest.value(path).size);
    return total;
}

} // namespace

RepairJob::RepairJob(StageRunner* stages, GameUpdateContext& ctx, QObject* parent)
    : QObject(parent)
    , m_stages(stages)
    , m_ctx(ctx)
{ }

void RepairJob::start(const QString& manifest, const QString& version, bool bRepair, bool bDryRun)
{
    m_manifestText = manifest;
    m_manifest = ReadFileList(manifest);
    m_version = version;
    m_bRepair = bRepair;
    m_bDryRun = bDryRun;
    m_bRefetched = false;
    m_bInterrupted = false;
    m_downloadedBytes = 0;
    m_files.clear();
    m_fetchList.clear();
    m_stages->setStep(0, 0);
    moveTo(State::VerifyGame);
}

void RepairJob::interrupt()
{
    if (m_state == State::Idle || m_state == State::Finished)
        return;
    m_bInterrupted = true;
    if (isDownloading()) {
        m_stages->pauseDownload();
        leaveIfInterrupted();
    }
}

void RepairJob::moveTo(State next)
{
    if (leaveIfInterrupted())
        return;
    m_state = next;
    switch (next) {
    case State::VerifyGame:
    case State::Reverify:
        return verifyGame();
    case State::Fetch:
    case State::Refetch:
        return fetchFiles();
    case State::VerifyCopies:
        return verifyCopies();
    case State::CheckInUse:
        return checkInUse();
    case State::CopyIn:
        return copyIn();
    case State::Idle:
    case State::Finished:
        return;
    }
}

void RepairJob::startStage(Stage stage, const QString& detail)
{
    m_stage = stage;
    emit stageStarted({ stage, 0, 0, detail });
}

bool RepairJob::leaveIfInterrupted()
{
    if (!m_bInterrupted || m_state == State::Finished)
        return m_bInterrupted;
    m_state = State::Finished;
    StageResult result;
    result.stage = m_stage;
    result.bInterrupted = true;
    emit finished(result, {}, m_downloadedBytes);
    return true;
}

void RepairJob::fail(Stage stage, int code, const QString& text, const QString& path)
{
    fail(StageResult { stage, true, false, code, text, path });
}

void RepairJob::fail(const StageResult& result)
{
    m_state = State::Finished;
    emit finished(result, {}, m_downloadedBytes);
}

void RepairJob::succeed()
{
    const bool bCopied = m_state == State::Reverify;
    m_state = State::Finished;
    if (bCopied)
        QFileUtils::DeleteFileOrFolder(RepairFolder(m_ctx));
    StageResult result;
    result.stage = m_stage;
    emit finished(result, bCopied ? m_files : QStringList(), m_downloadedBytes);
}

void RepairJob::verifyGame()
{
    if (!SolveRepairManifest(m_manifestText, m_ctx))
        return fail(Stage::Plan, 0,
            QStringLiteral("the verify manifest of %1 names a path outside the game folder").arg(m_version));
    startStage(
        Stage::VerifyGame, QStringLiteral("%1 of %2").arg(HumanText::Files(m_manifest.size()), m_version));
    qint64 total = 0;
    for (const ManifestFileInfo& file : m_manifest)
        total += qint64(file.size);
    m_stages->verify(
        Stage::VerifyGame, total, [this](const VerifyCallbackInfo& info) { onGameVerified(info); });
}

void RepairJob::onGameVerified(const VerifyCallbackInfo& info)
{
    const QStringList failed = info.failedFiles;
    if (!info.bError && failed.isEmpty())
        return succeed();
    if (failed.isEmpty())
        return fail(Stage::VerifyGame, 0, QStringLiteral("the game folder could not be verified"));
    if (m_state == State::Reverify)
        return fail(Stage::VerifyGame, failed.size(),
            QStringLiteral("%1 still not as published after the repair: %2")
                .arg(HumanText::Files(failed.size()), listed(failed)));
    if (!m_bRepair)
        return fail(Stage::VerifyGame, failed.size(),
            QStringLiteral("%1 of version %2 not as published: %3")
                .arg(HumanText::Files(failed.size()), m_version, listed(failed)));
    m_files = failed;
    if (m_bDryRun) {
        UpdatePlan plan;
        plan.action = QStringLiteral("repair");
        plan.installedVersion = m_version;
        plan.newestVersion = m_version;
        plan.files = failed;
        plan.downloadBytes = sizeOf(m_manifest, failed);
        emit planned(plan);
        return succeed();
    }
    m_fetchList = failed;
    moveTo(State::Fetch);
}

void RepairJob::fetchFiles()
{
    const QStringList& files = m_fetchList;
    const bool planned = m_state == State::Refetch ? GetRepairPartDownloadVec(m_ctx, files, m_version)
                                                   : GetRepairDownloadVec(m_ctx, files, m_version);
    if (!planned)
        return fail(Stage::Plan, 0,
            QStringLiteral("the verify manifest of %1 names a file that cannot be repaired").arg(m_version));
    const QString shortage = DiskSpace::Shortage(DiskSpace::Repair(m_manifest, files),
        DiskSpace::VolumeOf(m_ctx.m_updateSetting.cachePath),
        DiskSpace::VolumeOf(m_ctx.m_updateSetting.gamePath));
    if (!shortage.isEmpty())
        return fail(Stage::Space, 0, shortage);

    startStage(
        Stage::RepairDownload, QStringLiteral("%1: %2").arg(HumanText::Files(files.size()), listed(files)));
    m_stages->download(Stage::RepairDownload, [this](const DownloadCallbackInfo& info) { onFetched(info); });
}

void RepairJob::onFetched(const DownloadCallbackInfo& info)
{
    if (info.bError)
        return fail(Stage::RepairDownload, info.errorCode, info.errorMsg);
    m_downloadedBytes += info.totalBytes;
    m_bRefetched = m_state == State::Refetch;
    moveTo(State::VerifyCopies);
}

void RepairJob::verifyCopies()
{
    if (!SolvePartRepairManifest(m_manifestText, m_files, m_ctx))
        return fail(Stage::Plan, 0, QStringLiteral("the verify manifest of %1 is unusable").arg(m_version));
    startStage(Stage::VerifyPackage, QStringLiteral("%1 fetched").arg(HumanText::Files(m_files.size())));
    m_stages->verify(Stage::VerifyPackage, sizeOf(m_manifest, m_files),
        [this](const VerifyCallbackInfo& info) { onCopiesVerified(info); });
}

void RepairJob::onCopiesVerified(const VerifyCallbackInfo& info)
{
    if (!info.bError)
        return moveTo(State::CheckInUse);
    if (m_bRefetched || info.failedFiles.isEmpty())
        return fail(Stage::VerifyPackage, info.failedFiles.size(),
            QStringLiteral("%1 fetched from the server did not match its manifest: %2")
                .arg(HumanText::Files(info.failedFiles.size()), listed(info.failedFiles)));
    m_fetchList = info.failedFiles;
    moveTo(State::Refetch);
}

void RepairJob::checkInUse()
{
    startStage(Stage::Check, m_ctx.m_updateSetting.gamePath);
    m_stages->checkNotInUse(m_ctx.m_updateSetting.gamePath, [this](const QString& busyPath) {
        if (!busyPath.isEmpty())
            return fail(JobFailure::InUse(busyPath));
        moveTo(State::CopyIn);
    });
}

void RepairJob::copyIn()
{
    startStage(Stage::RepairCopy, HumanText::Files(m_files.size()));
    m_stages->applyPatch(Stage::RepairCopy, [this](const PatcherCallbackInfo& info) {
        if (info.bError)
            return fail(
                JobFailure::Copy(Stage::RepairCopy, info.errorString, { m_ctx.m_updateSetting.gamePath }));
        moveTo(State::Reverify);
    });
}

#include "StepStages.h"

#include "Boundary.h"
#include "DiskSpace.h"
#include "FolderSwap.h"
#include "JobFailure.h"
#include "StageRunner.h"
#include "TrustGate.h"
#include "UpdateRun.h"

#include "core/Constants.h"
#include "core/GlobalVar.h"
#include "core/RecordCodes.h"
#include "files/QFileUtils.h"
#include "install/PatchInfo.h"
#include "planning/UpdatePathPlanner.h"
#include "util/QtUtil.h"

using namespace Morvantix;

StepStages::StepStages(UpdateRun& run, StageRunner* stages, TrustGate* trust, QObject* parent)
    : UpdatePart(run, stages, trust, parent)
{ }

void StepStages::begin(const Then& then)
{
    const PlanStep& step = m_run.plan.at(m_run.stepIndex);
    if (m_run.bFullInstall)
        m_stages->setStep(0, 0);
    else
        m_stages->setStep(m_run.stepIndex + 1, m_run.plan.size());
    if (!m_run.bFullInstall && m_run.stepIndex > 0)
        GetCurrentShortestDownloadFile(*m_run.ctx, step.from);

    const DiskSpace::Need need { step.cacheBytes - m_run.presentBytes(), step.gameBytes };
    const QString shortage
        = DiskSpace::Shortage(need, DiskSpace::VolumeOf(m_run.ctx->m_updateSetting.cachePath),
            DiskSpace::VolumeOf(m_run.ctx->m_updateSetting.gamePath));
    if (!shortage.isEmpty())
        return fail(Stage::Space, 0, shortage);
    m_run.pruneCache();
    then();
}

void StepStages::download(const Then& then)
{
    QStringList names;
    for (const DownloadFileInfo& file : m_run.ctx->m_downloadFileList)
        names << file.name;
    const qint64 present = m_run.presentBytes();
    QString detail = QStringLiteral("%1 (%2)").arg(
        names.join(QStringLiteral(", ")), QtUtil::FormatSize(m_run.downloadListBytes()));
    if (present > 0)
        detail += QStringLiteral(", resuming after %1").arg(QtUtil::FormatSize(present));
    startStage(Stage::Download, detail);
    m_stages->download(Stage::Download, [this, present, then](const DownloadCallbackInfo& info) {
        if (info.bError)
            return fail(Stage::Download, info.errorCode, info.errorMsg);
        m_run.summary.downloadedBytes += qMax<qint64>(0, info.totalBytes - present);
        Boundary::Pass("downloaded");
        then();
    });
}

void StepStages::verify(const Then& verified, const Then& fetchAgain)
{
    GameUpdateContext& ctx = *m_run.ctx;
    ctx.m_bVerifyZip = true;
    ctx.m_updateType = UpdateType::Update;
    ctx.m_archiveFileList.clear();
    ctx.m_archiveMd5List.clear();
    for (const DownloadFileInfo& file : ctx.m_downloadFileList) {
        ctx.m_archiveFileList << file.localPath;
        ctx.m_archiveMd5List << file.md5;
    }
    startStage(Stage::VerifyPackage, m_run.firstDownload().name);
    // The signed digests are computed beside the MD5 check, while the parts are read anyway.
    m_trust->checkPackages(m_run.options.serverUrl, ctx.m_downloadFileList);
    m_stages->verify(Stage::VerifyPackage, m_run.downloadListBytes(),
        [this, verified, fetchAgain](const VerifyCallbackInfo& info) {
            const bool bMd5Failed = info.bError;
            m_trust->whenPackagesChecked([this, bMd5Failed, verified, fetchAgain](const PackageCheck& check) {
                onPackageChecked(bMd5Failed, check, verified, fetchAgain);
            });
        });
}

void StepStages::onPackageChecked(
    bool bMd5Failed, const PackageCheck& check, const Then& verified, const Then& fetchAgain)
{
    if (!bMd5Failed && check.text.isEmpty()) {
        Boundary::Pass("package-verified");
        return verified();
    }
    // The verifier deleted the archives that failed its check, unless the signed check was reading
    // them at that moment (Windows refuses to delete an open file); a part that fails only the signed
    // check is deleted here, so the download fetches it whole again.
    for (const QString& path : check.failedPaths)
        QFileUtils::DeleteFileOrFolder(path);
    if (!fetchAgain) {
        if (!check.text.isEmpty())
            return fail(Stage::Trust, 0, QStringLiteral("untrusted channel: %1").arg(check.text));
        return fail(Stage::VerifyPackage, 0,
            QStringLiteral("%1 still differs from the server's manifest after a second download")
                .arg(m_run.firstDownload().name));
    }
    emit noticed(QStringLiteral("%1 failed its check and is fetched again").arg(m_run.firstDownload().name));
    fetchAgain();
}

void StepStages::unpack(const Then& then)
{
    GameUpdateContext& ctx = *m_run.ctx;
    const UpdateSetting& setting = ctx.m_updateSetting;
    const bool bFull = m_run.bFullInstall;
    // A multi-part archive is unpacked from its first part; 7-Zip finds the others beside it.
    ctx.m_unZipFileList = QStringList { m_run.firstDownload().localPath };
    // A full package goes beside the game, on its volume, and replaces it only once it is complete.
    ctx.m_unZipFolder = bFull ? FolderSwap::StagingFolder(setting.gamePath) : setting.unZipPath;
    ctx.m_updateType = UpdateType::Update;
    startStage(
        Stage::Unpack, QStringLiteral("%1 into %2").arg(m_run.firstDownload().name, ctx.m_unZipFolder));
    m_stages->unpack(
        bFull ? m_run.plan.at(m_run.stepIndex).gameBytes : -1, [this, then](const UnZipCallbackInfo& info) {
            if (info.code != 0)
                return fail(Stage::Unpack, info.code,
                    QStringLiteral("7-Zip could not unpack %1 (code %2): %3")
                        .arg(m_run.firstDownload().name)
                        .arg(info.code)
                        .arg(info.errStr));
            Boundary::Pass("unpacked");
            then();
        });
}

void StepStages::checkPatch(const Then& then)
{
    const QString path
        = QFileUtils::CombinePath(m_run.ctx->m_updateSetting.unZipPath, Global::Var::PatchManifestName);
    const PatchInfo info = ReadPatchInfo(QFileUtils::ReadText(path));
    for (const ManifestFileMap* list : { &info.newFiles, &info.delFiles, &info.patchFiles }) {
        const QString unsafe = UpdateRun::firstUnsafePath(*list);
        if (!unsafe.isEmpty())
            return fail(Stage::Plan, 0,
                QStringLiteral("the patch package %1 names a path outside the game folder: %2")
                    .arg(m_run.firstDownload().name, unsafe),
                unsafe);
    }
    then();
}

void StepStages::checkInUse(const Then& then)
{
    const QString game = m_run.ctx->m_updateSetting.gamePath;
    startStage(Stage::Check, game);
    m_stages->checkNotInUse(game, [this, then](const QString& busyPath) {
        if (!busyPath.isEmpty())
            return emit failed(JobFailure::InUse(busyPath));
        Boundary::Pass("checked");
        then();
    });
}

void StepStages::merge(const Then& then)
{
    GameUpdateContext& ctx = *m_run.ctx;
    const UpdateSetting& setting = ctx.m_updateSetting;
    ctx.m_patchFolder = setting.unZipPath;
    ctx.m_mergeTargetPath = setting.gamePath;
    ctx.m_mergeTempPath = setting.tempMergePath;
    ctx.m_bSkipDiffMerge = false;
    startStage(Stage::Merge, m_run.stepName(m_run.stepIndex));
    m_stages->applyPatch(Stage::Merge, [this, then](const PatcherCallbackInfo& info) {
        if (info.bError) {
            const UpdateSetting& setting = m_run.ctx->m_updateSetting;
            return emit failed(JobFailure::Copy(
                Stage::Merge, info.errorString, { setting.gamePath, setting.tempMergePath }));
        }
        Boundary::Pass("merged");
        if (!recordStep())
            return;
        m_run.removeStepFiles();
        then();
    });
}

void StepStages::swapIn(const Then& then)
{
    const QString game = m_run.ctx->m_updateSetting.gamePath;
    m_run.pending = PendingWork::Swap;
    if (!m_run.save())
        return;
    startStage(Stage::Swap, game);
    const QString error = FolderSwap::Finish(game);
    if (!error.isEmpty())
        return fail(Stage::Swap, 0, error, game);
    if (!recordStep())
        return;
    FolderSwap::RemoveLeftovers(game);
    m_run.removeStepFiles();
    then();
}

bool StepStages::recordStep()
{
    UpdateSetting& setting = m_run.ctx->m_updateSetting;
    const bool bLast = m_run.isLastStep();
    setting.currentGameVersion = m_run.plan.at(m_run.stepIndex).to;
    setting.transitionGameVersion = bLast ? QString() : setting.currentGameVersion;
    setting.currentStage = QString::fromLatin1(bLast ? Const::InitStage : Const::PatchStage);
    setting.bPatchFinished = bLast;
    m_run.pending = PendingWork::Verify;
    if (!m_run.save())
        return false;
    m_run.settle();
    Boundary::Pass("step-recorded");
    return true;
}

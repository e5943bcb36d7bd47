#include "UpdateRun.h"

#include "DiskSpace.h"

#include "core/ComponentAccessors.h"
#include "core/Constants.h"
#include "core/SerializeComponent.h"
#include "files/QFileUtils.h"
#include "files/SafePath.h"
#include "planning/GuideManifestReader.h"
#include "planning/VersionUtil.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QSet>

using namespace Morvantix;

namespace {

QString constant(const char* text)
{
    return QString::fromLatin1(text);
}

} // namespace

UpdateRun::UpdateRun(const UpdateOptions& options, const QString& settingsFolder,
    std::shared_ptr<GameUpdateContext> ctx, FailureSink saveFailed)
    : options(options)
    , settingsFolder(settingsFolder)
    , ctx(std::move(ctx))
    , m_saveFailed(std::move(saveFailed))
{ }

bool UpdateRun::hasSettingsFile() const
{
    return QFile::exists(QDir(settingsFolder).filePath(QString::fromLatin1(Const::ConfigFileName)));
}

QString UpdateRun::readSettings()
{
    auto serializer = GetSerializeComponent();
    UpdateSetting& setting = ctx->m_updateSetting;
    QString notice;
    const bool bHaveFile = hasSettingsFile();
    // A dry run on a first run must not create the settings file, which reading would do.
    if (bHaveFile || !options.bDryRun) {
        serializer->ReadSetting(setting);
    } else {
        setting.currentStage = constant(Const::InitStage);
        setting.limitSpeed = -1;
    }
    storedLimit = setting.limitSpeed;
    pending = bHaveFile ? ReadPendingWork(*serializer) : PendingWork::None;

    const QString recorded = bHaveFile ? serializer->GetValueByKey(constant(Const::InstallPath)) : QString();
    if (!recorded.isEmpty() && QDir::cleanPath(recorded) != options.folder
        && !setting.currentGameVersion.isEmpty()) {
        notice = QStringLiteral("the settings recorded version %1 in %2; they now follow %3, whose installed "
                                "version is not known")
                     .arg(setting.currentGameVersion, recorded, options.folder);
        setting.currentGameVersion.clear();
        setting.transitionGameVersion.clear();
        setting.targetGameVersion.clear();
        setting.currentStage = constant(Const::InitStage);
        pending = PendingWork::None;
    }
    setting.installPath = options.folder;
    setting.gamePath = QFileUtils::CombinePath(options.folder, constant(Const::GameFolderName));
    setting.cachePath = QFileUtils::CombinePath(options.folder, constant(Const::CacheFolderName));
    setting.unZipPath = QFileUtils::CombinePath(setting.cachePath, constant(Const::UnZipFolder));
    setting.tempMergePath = QFileUtils::CombinePath(setting.cachePath, constant(Const::TempMergeFolderName));
    summary.installedVersion = setting.currentGameVersion;
    summary.version = setting.currentGameVersion;
    return notice;
}

UpdatePlan UpdateRun::makePlan()
{
    UpdatePlan result;
    result.installedVersion = summary.installedVersion;
    result.newestVersion = newest;
    result.fullPackageBytes = ctx->m_fullPackSize;
    plan.clear();
    if (bFullInstall) {
        result.action = QStringLiteral("full install");
        PlanStep step;
        step.to = newest;
        step.downloadBytes = ctx->m_fullPackSize;
        const DiskSpace::Need need
            = DiskSpace::FullInstall(step.downloadBytes, ReadFileList(manifests.value(newest)));
        step.cacheBytes = need.cacheBytes;
        step.gameBytes = need.gameBytes;
        plan.append(step);
    } else {
        result.action = QStringLiteral("patch chain");
        for (const PatchStep& patch : ctx->m_guideManifest.m_downloadList) {
            PlanStep step;
            step.from = VersionToString(patch.from);
            step.to = VersionToString(patch.to);
            step.downloadBytes = patch.files.value(0).size;
            const DiskSpace::Need need = DiskSpace::PatchStep(step.downloadBytes,
                ReadFileList(manifests.value(step.from)), ReadFileList(manifests.value(step.to)));
            step.cacheBytes = need.cacheBytes;
            step.gameBytes = need.gameBytes;
            plan.append(step);
        }
    }
    for (const PlanStep& step : plan)
        result.downloadBytes += step.downloadBytes;
    result.steps = plan;
    return result;
}

bool UpdateRun::save() const
{
    const StageResult result = write();
    if (result.bFailed && m_saveFailed)
        m_saveFailed(result);
    return !result.bFailed;
}

StageResult UpdateRun::write() const
{
    if (options.bDryRun)
        return StageResult();
    // --limit holds for this run only; the settings keep the player's own limit.
    UpdateSetting setting = ctx->m_updateSetting;
    setting.limitSpeed = storedLimit;
    auto serializer = GetSerializeComponent();
    // The version before the pending work: a run stopped between the two writes finds a swap still
    // pending, which it recognises as done, rather than a version it has not reached.
    if (serializer->SaveSetting(setting) && WritePendingWork(*serializer, pending))
        return StageResult();
    const QString file = QDir(settingsFolder).filePath(QString::fromLatin1(Const::ConfigFileName));
    const DiskSpace::Volume volume = DiskSpace::VolumeOf(settingsFolder);
    if (volume.availableBytes == 0)
        return StageResult { Stage::Space, true, false, 0,
            QStringLiteral("no disk space left on %1 to write %2").arg(volume.root, file), file };
    return StageResult { Stage::Record, true, false, 0,
        QStringLiteral("cannot write the settings %1 (read-only, or not a file); nothing was changed "
                       "after the last recorded step")
            .arg(file),
        file };
}

void UpdateRun::settle()
{
    m_settled = ctx->m_updateSetting;
    m_settledPending = pending;
}

void UpdateRun::restoreSettled()
{
    ctx->m_updateSetting = m_settled;
    pending = m_settledPending;
}

void UpdateRun::pruneCache() const
{
    QSet<QString> kept;
    for (const DownloadFileInfo& file : ctx->m_downloadFileList)
        kept.insert(QDir::cleanPath(file.localPath));
    const QDir cache(ctx->m_updateSetting.cachePath);
    for (const QFileInfo& entry : cache.entryInfoList(QDir::Files | QDir::Hidden | QDir::System)) {
        if (!kept.contains(QDir::cleanPath(entry.absoluteFilePath())))
            QFile::remove(entry.absoluteFilePath());
    }
}

void UpdateRun::removeStepFiles() const
{
    for (const DownloadFileInfo& file : ctx->m_downloadFileList)
        QFileUtils::DeleteFileOrFolder(file.localPath);
    if (!bFullInstall)
        QFileUtils::DeleteFileOrFolder(ctx->m_updateSetting.unZipPath);
}

DownloadFileInfo UpdateRun::firstDownload() const
{
    return ctx->m_downloadFileList.value(0);
}

qint64 UpdateRun::downloadListBytes() const
{
    qint64 total = 0;
    for (const DownloadFileInfo& file : ctx->m_downloadFileList)
        total += file.size;
    return total;
}

qint64 UpdateRun::presentBytes() const
{
    qint64 present = 0;
    for (const DownloadFileInfo& file : ctx->m_downloadFileList)
        present += qBound<qint64>(0, QFileInfo(file.localPath).size(), file.size);
    return present;
}

QString UpdateRun::stepName(int index) const
{
    const PlanStep& step = plan.at(index);
    return step.from.isEmpty() ? QStringLiteral("full %1").arg(step.to)
                               : QStringLiteral("%1 -> %2").arg(step.from, step.to);
}

QString UpdateRun::firstUnsafePath(const ManifestFileMap& files)
{
    for (const ManifestFileInfo& file : files) {
        if (!SafePath::IsSafeRelativePath(file.path))
            return file.path;
    }
    return QString();
}

#include "UpdateRun.h"

#include "DiskSpace.h"

#include "core/ComponentAccessors.h"
#include "core/Constants.h"
#include "core/SerializeComponent.h"
#include "files/QFileUtils.h"
#include "files/SafePath.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QSet>

using namespace Morvantix;

UpdateRun::UpdateRun(
    const UpdateOptions& options, const QString& settingsFolder, std::shared_ptr<GameUpdateContext> ctx)
    : options(options)
    , settingsFolder(settingsFolder)
    , ctx(std::move(ctx))
{ }

bool UpdateRun::hasSettingsFile() const
{
    return QFile::exists(QDir(settingsFolder).filePath(QString::fromLatin1(Const::ConfigFileName)));
}

StageResult UpdateRun::save() const
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

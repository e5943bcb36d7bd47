#include "planning/RepairPlanner.h"

#include "core/GlobalVar.h"
#include "files/QFileUtils.h"
#include "files/SafePath.h"
#include "install/ManifestFileInfo.h"
#include "install/PatchInfo.h"
#include "log/Logger.h"

#include <QDir>
#include <QFileInfo>
#include <QUrl>

namespace Morvantix {

namespace {

const QString kTag = QStringLiteral("RepairPlanner");

bool allNamesSafe(const ManifestFileMap& files)
{
    for (const ManifestFileInfo& file : files) {
        if (!SafePath::IsSafeRelativePath(file.path)) {
            Logger::LogInfo(kTag, QStringLiteral("refused manifest entry %1").arg(file.path));
            return false;
        }
    }
    return true;
}

QString fileListText(const ManifestFileMap& files)
{
    QStringList lines;
    for (const ManifestFileInfo& file : files)
        lines.append(FileListLine(file));
    return lines.join(QLatin1Char('\n'));
}

void prepareVerifyJob(const QString& manifestText, const QString& folder, GameUpdateContext& ctx)
{
    ctx.m_manifestContent = manifestText;
    ctx.m_installPath = folder;
    ctx.m_bVerifyZip = false;
    ctx.m_bMd5Verify = true;
    ctx.m_updateType = Morvantix::UpdateType::Repair;
}

// The patch info file sits at the top of the repair folder under a fixed name, so a game file of
// that name at the top of the game folder cannot be staged beside it.
bool collidesWithPatchInfo(const QString& path)
{
    return path.compare(Global::Var::PatchManifestName, Qt::CaseInsensitive) == 0;
}

// A part of a planned repair fetches some of its files again from scratch; the repair's copy list
// stays as the first plan wrote it.
bool planRepairDownload(
    GameUpdateContext& ctx, const QStringList& failedFiles, const QString& version, bool bPart)
{
    const ManifestFileMap manifest = ReadFileList(ctx.m_manifestContent);
    const QString folder = RepairFolder(ctx);
    QVector<DownloadFileInfo> downloads;
    PatchInfo copyIn;
    qint64 total = 0;
    for (const QString& path : failedFiles) {
        const auto entry = manifest.constFind(path);
        const QString local = SafePath::ResolveUnder(folder, path);
        if (entry == manifest.constEnd() || local.isEmpty() || collidesWithPatchInfo(path)) {
            Logger::LogInfo(kTag, QStringLiteral("cannot repair %1").arg(path));
            return false;
        }
        DownloadFileInfo file;
        file.name = path;
        file.localPath = local;
        file.size = static_cast<qint64>(entry->size);
        file.url = LooseFileUrl(version, path);
        file.md5 = entry->md5;
        downloads.append(file);
        copyIn.newFiles.insert(path, *entry);
        total += file.size;
    }

    // The download manager writes into existing folders only.
    for (const DownloadFileInfo& file : downloads) {
        if (bPart)
            QFileUtils::DeleteFileOrFolder(file.localPath);
        QDir().mkpath(QFileInfo(file.localPath).absolutePath());
    }
    if (!bPart)
        QFileUtils::WriteUTF8(
            QFileUtils::CombinePath(folder, Global::Var::PatchManifestName), WritePatchInfo(copyIn), false);

    ctx.m_downloadFileList = downloads;
    ctx.m_patchDownloadSize = total;
    ctx.m_patchFolder = folder;
    ctx.m_mergeTargetPath = ctx.m_updateSetting.gamePath;
    ctx.m_mergeTempPath = ctx.m_updateSetting.tempMergePath;
    ctx.m_bSkipDiffMerge = true;
    Logger::LogInfo(kTag, QStringLiteral("repair %1 files, %2 bytes").arg(downloads.size()).arg(total));
    return true;
}

} // namespace

bool SolveRepairManifest(const QString& text, GameUpdateContext& ctx)
{
    if (!allNamesSafe(ReadFileList(text)))
        return false;
    prepareVerifyJob(text, ctx.m_updateSetting.gamePath, ctx);
    return true;
}

bool SolvePartRepairManifest(const QString& text, const QStringList& files, GameUpdateContext& ctx)
{
    const ManifestFileMap manifest = ReadFileList(text);
    ManifestFileMap part;
    for (const QString& path : files) {
        const auto entry = manifest.constFind(path);
        if (entry != manifest.constEnd())
            part.insert(path, *entry);
    }
    if (!allNamesSafe(part))
        return false;
    prepareVerifyJob(fileListText(part), RepairFolder(ctx), ctx);
    return true;
}

bool GetRepairDownloadVec(GameUpdateContext& ctx, const QStringList& failedFiles, const QString& version)
{
    return planRepairDownload(ctx, failedFiles, version, false);
}

bool GetRepairPartDownloadVec(GameUpdateContext& ctx, const QStringList& failedFiles, const QString& version)
{
    return planRepairDownload(ctx, failedFiles, version, true);
}

QString RepairFolder(const GameUpdateContext& ctx)
{
    return QFileUtils::CombinePath(ctx.m_updateSetting.cachePath, QStringLiteral("Repair"));
}

QString LooseFileUrl(const QString& version, const QString& relativePath)
{
    QStringList segments { QString::fromLatin1(QUrl::toPercentEncoding(version)), QStringLiteral("files") };
    const QString path = QString(relativePath).replace(QLatin1Char('\\'), QLatin1Char('/'));
    for (const QString& segment : path.split(QLatin1Char('/')))
        segments.append(QString::fromLatin1(QUrl::toPercentEncoding(segment)));
    return QFileUtils::CombinePath(Global::Var::HostAndChannel, segments.join(QLatin1Char('/')));
}

} // namespace Morvantix

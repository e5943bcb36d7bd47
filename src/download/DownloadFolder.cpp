#include "download/DownloadFolder.h"

#include "files/QFileUtils.h"
#include "files/SafePath.h"
#include "log/Logger.h"

#include <QDir>

using Morvantix::DownloadFileInfo;

DownloadFolder::Prepared DownloadFolder::Prepare(
    const QVector<DownloadFileInfo>& files, const QString& cache, bool bFresh)
{
    Prepared prepared;
    prepared.refused = FirstOutsideCache(files, cache);
    if (!prepared.refused.isEmpty()) {
        Logger::LogInfo(QStringLiteral("Downloader"),
            QStringLiteral("refused %1: not a file inside the cache folder \"%2\"")
                .arg(prepared.refused, cache));
        return prepared;
    }
    // The folder comes from the list, and the list from the server: only the cache folder the
    // settings name may be wiped, never what a crafted entry points at.
    const QString folder = FolderOf(files);
    if (bFresh && IsCacheFolder(folder, cache))
        QFileUtils::DeleteFileOrFolder(folder);
    if (!folder.isEmpty() && !QDir(folder).exists())
        QFileUtils::CreateFolder(folder);
    prepared.holdings = Measure(files);
    return prepared;
}

QString DownloadFolder::FirstOutsideCache(const QVector<DownloadFileInfo>& files, const QString& cache)
{
    for (const DownloadFileInfo& file : files) {
        if (!SafePath::IsInsideFolder(cache, file.localPath)
            || SafePath::IsInsideFolder(file.localPath, cache))
            return file.localPath;
    }
    return QString();
}

QString DownloadFolder::FolderOf(const QVector<DownloadFileInfo>& files)
{
    for (const DownloadFileInfo& file : files) {
        const QString folder = QFileUtils::GetParentPath(file.localPath);
        if (!folder.isEmpty())
            return folder;
    }
    return QString();
}

bool DownloadFolder::IsCacheFolder(const QString& folder, const QString& cache)
{
    const bool sameFolder
        = SafePath::IsInsideFolder(folder, cache) && SafePath::IsInsideFolder(cache, folder);
    return sameFolder && !QDir(QDir::cleanPath(QDir::fromNativeSeparators(cache))).isRoot();
}

DownloadFolder::Holdings DownloadFolder::Measure(const QVector<DownloadFileInfo>& files)
{
    Holdings holdings;
    for (const DownloadFileInfo& file : files) {
        holdings.totalBytes += file.size;
        const qint64 localSize = QFileUtils::GetFileSize(file.localPath);
        if (file.size < localSize)
            QFileUtils::DeleteFileOrFolder(file.localPath);
        else
            holdings.onDiskBytes += localSize;
    }
    return holdings;
}

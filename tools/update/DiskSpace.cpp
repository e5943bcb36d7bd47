#include "DiskSpace.h"

#include "util/QtUtil.h"

#include <QDir>
#include <QFileInfo>
#include <QStorageInfo>

using Morvantix::ManifestFileInfo;
using Morvantix::ManifestFileMap;

namespace DiskSpace {

namespace {

qint64 totalSize(const ManifestFileMap& files)
{
    qint64 total = 0;
    for (const ManifestFileInfo& file : files)
        total += qint64(file.size);
    return total;
}

QString shortageText(const QString& what, qint64 needed, const Volume& volume)
{
    return QStringLiteral("not enough disk space for %1 on %2: %3 needed, %4 free")
        .arg(what, volume.root, QtUtil::FormatSize(needed), QtUtil::FormatSize(volume.availableBytes));
}

} // namespace

Need FullInstall(qint64 archiveBytes, const ManifestFileMap& target)
{
    return { archiveBytes, totalSize(target) };
}

Need PatchStep(qint64 archiveBytes, const ManifestFileMap& from, const ManifestFileMap& to)
{
    qint64 package = 0;
    qint64 largestPatched = 0;
    for (const ManifestFileInfo& file : to) {
        const auto old = from.constFind(file.path);
        if (old != from.constEnd() && old->md5 == file.md5)
            continue;
        package += qint64(file.size);
        if (old != from.constEnd())
            largestPatched = qMax(largestPatched, qint64(file.size));
    }
    const qint64 growth = qMax<qint64>(0, totalSize(to) - totalSize(from));
    return { archiveBytes + package, largestPatched + growth };
}

Need Repair(const ManifestFileMap& manifest, const QStringList& files)
{
    qint64 total = 0;
    for (const QString& path : files)
        total += qint64(manifest.value(path).size);
    return { total, total };
}

Volume VolumeOf(const QString& path)
{
    QFileInfo info(path);
    while (!info.exists() && !info.isRoot() && info.absoluteFilePath() != info.absolutePath())
        info = QFileInfo(info.absolutePath());
    return { QStorageInfo(info.absoluteFilePath()).rootPath(), QtUtil::GetFreeDiskSpace(path) };
}

QString Shortage(const Need& need, const Volume& cache, const Volume& game)
{
    if (cache.root == game.root) {
        const qint64 needed = need.cacheBytes + need.gameBytes;
        return needed > cache.availableBytes
            ? shortageText(QStringLiteral("the cache and the game"), needed, cache)
            : QString();
    }
    if (need.cacheBytes > cache.availableBytes)
        return shortageText(QStringLiteral("the cache"), need.cacheBytes, cache);
    if (need.gameBytes > game.availableBytes)
        return shortageText(QStringLiteral("the game"), need.gameBytes, game);
    return QString();
}

QString FullVolume(const QStringList& paths)
{
    // Below this a write has failed for want of room, not for anything else.
    constexpr qint64 kNearlyFullBytes = 1024 * 1024;
    for (const QString& path : paths) {
        const Volume volume = VolumeOf(path);
        if (volume.availableBytes < kNearlyFullBytes)
            return QStringLiteral("no disk space left on %1").arg(volume.root);
    }
    return QString();
}

} // namespace DiskSpace

#pragma once

#include "install/ManifestFileInfo.h"

#include <QString>
#include <QStringList>
#include <QtGlobal>

// What a step needs on disk at its peak, worked out before anything is downloaded, and whether the
// volumes have it.
namespace DiskSpace {

struct Need
{
    qint64 cacheBytes = 0;
    qint64 gameBytes = 0;
};

// The archive in the cache; every file of the version in the game folder's volume, where it is
// unpacked beside the installed version, which stays (and keeps its space) until the swap.
Need FullInstall(qint64 archiveBytes, const Morvantix::ManifestFileMap& target);

// The archive and the unpacked package in the cache, the package counted as the changed and added
// files whole (a diff is smaller); in the game folder the largest patched file, which the patch tool
// writes beside the old one, plus the growth of the version.
Need PatchStep(
    qint64 archiveBytes, const Morvantix::ManifestFileMap& from, const Morvantix::ManifestFileMap& to);

// The fetched files in the cache, then their copies in the game folder.
Need Repair(const Morvantix::ManifestFileMap& manifest, const QStringList& files);

struct Volume
{
    QString root; // mount point; two paths on one volume share their need
    qint64 availableBytes = 0;
};

// The volume holding path, or the nearest existing folder above it.
Volume VolumeOf(const QString& path);

// Empty when there is room, else a text naming what is needed and what is free.
QString Shortage(const Need& need, const Volume& cache, const Volume& game);

// Empty unless one of the paths' volumes is full. The merge stage names every failed copy "in use",
// so a failure there asks this before it is reported.
QString FullVolume(const QStringList& paths);

} // namespace DiskSpace

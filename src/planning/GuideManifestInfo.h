#pragma once

#include <QString>
#include <QVector>
#include <QtGlobal>

namespace Morvantix {

// One file of a package as the guide manifest lists it.
struct PatchFileInfo
{
    QString path; // relative to the channel's root on the server, "/"-separated
    QString md5;
    quint64 size = 0;
};

// One package of the guide manifest: an incremental patch, or the full package of a version when
// both ends are the same text.
struct PatchEntry
{
    QString fromVersion;
    QString toVersion;
    QVector<PatchFileInfo> files;
    bool bEnabled = false; // only incremental patches take part in path planning
    qint64 cost = 0; // bytes to download: the sum of the files' sizes
};

// The parsed guide manifest. Entries keep the order in which their pair first appears, and the
// planner names an entry by its position in patchList, full packages included.
struct GuideManifestInfo
{
    QString lastVersion;
    QVector<PatchEntry> patchList;
};

} // namespace Morvantix

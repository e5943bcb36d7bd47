#pragma once

#include "core/Version.h"

#include <QMap>
#include <QString>
#include <QVector>
#include <QtGlobal>

namespace Morvantix {

// A file of a package as the download list needs it: the full pack's files and each patch step's
// archive. Strings that planning has nothing for stay empty.
struct PackFileInfo
{
    QString fileName;
    QString path;
    QString md5;
    qint64 size = 0;
    QString url;
};

// One step of a patch chain: the archive that turns `from` into `to`.
struct PatchStep
{
    QString name;
    QString manifestUrl;
    QVector<PackFileInfo> files;
    QVector<PackFileInfo> extraFiles;
    Version from;
    Version to;
    QMap<QString, QString> attributes;
};

// The update plan of one game version, filled by the guide-manifest solver.
struct VersionManifest
{
    Version m_newestVersion;
    QString m_fullPackManifestUrl;
    QString m_fullPackManifestText;
    QVector<PackFileInfo> m_fullPackFiles;
    QVector<PackFileInfo> m_extraFiles;
    qint64 m_reservedSize = 0;
    QString m_hostText1;
    QString m_hostText2;
    QVector<PackFileInfo> m_hostList1;
    QVector<PackFileInfo> m_hostList2;
    qint64 m_hostValues[5] = { 0, 0, 0, 0, 0 };
    QMap<QString, QString> m_hostMap;
    QVector<QString> m_hostVector;
    QVector<PatchStep> m_downloadList;
    QMap<QString, QString> m_stepMap;
};

} // namespace Morvantix

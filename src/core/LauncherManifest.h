#pragma once

#include <QMap>
#include <QString>
#include <QtGlobal>

namespace Morvantix {

// The launcher's own update plan. Only the fields named here are written by the library; the others
// are the launcher's.
struct LauncherManifest
{
    QString m_text1;
    QString m_text2;
    QString m_text3;
    QString m_newestManifestUrl;
    QString m_text5;
    QString m_text6;
    QString m_text7;
    QString m_text8;
    QString m_text9;
    QString m_text10;
    QString m_text11;
    QString m_text12;
    QString m_currentManifestUrl;
    QString m_newestVersion;
    QString m_currentVersion;
    QString m_text16;
    qint64 m_size = 0;
    QString m_text17;
    QMap<QString, QString> m_fileMap;
};

} // namespace Morvantix

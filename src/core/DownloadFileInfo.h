#pragma once

#include <QString>
#include <QtGlobal>

namespace Morvantix {

// One file of the download list that planning leaves in the context for the download manager.
struct DownloadFileInfo
{
    QString name;
    QString localPath;
    qint64 size = 0;
    QString url;
    QString md5;
};

} // namespace Morvantix

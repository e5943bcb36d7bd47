#include "planning/DownloadEntry.h"

#include "core/GlobalVar.h"
#include "files/QFileUtils.h"

namespace Morvantix {

PackFileInfo ToPackFileInfo(const PatchFileInfo& file)
{
    PackFileInfo entry;
    entry.fileName = file.path.section(QLatin1Char('/'), -1);
    entry.md5 = file.md5;
    entry.size = static_cast<qint64>(file.size);
    entry.url = QFileUtils::CombinePath(Global::Var::Host, file.path);
    return entry;
}

DownloadFileInfo ToDownloadFileInfo(const PackFileInfo& file, const QString& cachePath)
{
    DownloadFileInfo entry;
    entry.name = file.fileName;
    entry.localPath = QFileUtils::CombinePath(cachePath, file.fileName);
    entry.size = file.size;
    entry.url = file.url;
    entry.md5 = file.md5;
    return entry;
}

} // namespace Morvantix

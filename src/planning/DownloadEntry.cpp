#include "planning/DownloadEntry.h"

#include "core/GlobalVar.h"
#include "files/QFileUtils.h"
#include "files/SafePath.h"
#include "log/Logger.h"

namespace Morvantix {

namespace {

QString fileNameOf(const QString& path)
{
    return path.section(QLatin1Char('/'), -1);
}

bool isStorableFile(const PatchFileInfo& file)
{
    const QString name = fileNameOf(file.path);
    return SafePath::IsSafeRelativePath(file.path) && SafePath::IsSafeRelativePath(name)
        && !name.contains(QLatin1Char('\\'));
}

void logRefusal(const QString& text)
{
    Logger::LogInfo(QStringLiteral("Planning"), text);
}

} // namespace

bool IsStorablePackage(const PatchEntry& entry, const QString& cachePath)
{
    if (cachePath.isEmpty()) {
        logRefusal(QStringLiteral("no cache path, the settings are not read: nothing is planned"));
        return false;
    }
    for (const PatchFileInfo& file : entry.files) {
        if (!isStorableFile(file)) {
            logRefusal(
                QStringLiteral("refused the package %1->%2: its file \"%3\" is not a name inside the cache")
                    .arg(entry.fromVersion, entry.toVersion, file.path));
            return false;
        }
    }
    return true;
}

PackFileInfo ToPackFileInfo(const PatchFileInfo& file)
{
    PackFileInfo entry;
    entry.fileName = fileNameOf(file.path);
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

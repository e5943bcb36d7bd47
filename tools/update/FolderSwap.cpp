#include "FolderSwap.h"

#include "Boundary.h"

#include "files/QFileUtils.h"

#include <QDir>
#include <QFileInfo>

namespace FolderSwap {

QString StagingFolder(const QString& gameFolder)
{
    return QDir::cleanPath(gameFolder) + QStringLiteral(".new");
}

QString RetiredFolder(const QString& gameFolder)
{
    return QDir::cleanPath(gameFolder) + QStringLiteral(".old");
}

QString Finish(const QString& gameFolder)
{
    const QString game = QDir::cleanPath(gameFolder);
    const QString staging = StagingFolder(game);
    const QString retired = RetiredFolder(game);
    if (!QFileInfo(staging).isDir())
        return QString(); // swapped already
    if (QFileInfo::exists(game)) {
        // A retired folder beside a present game is what an earlier, finished swap left.
        if (QFileInfo::exists(retired) && !QDir(retired).removeRecursively())
            return QStringLiteral("cannot remove %1").arg(retired);
        if (!QDir().rename(game, retired))
            return QStringLiteral("cannot move %1 aside (a file in it may be in use)").arg(game);
    }
    Boundary::Pass("old-moved");
    if (!QDir().rename(staging, game)) {
        QDir().rename(retired, game);
        return QStringLiteral("cannot move %1 to %2").arg(staging, game);
    }
    Boundary::Pass("swapped");
    return QString();
}

void RemoveLeftovers(const QString& gameFolder)
{
    for (const QString& folder : { StagingFolder(gameFolder), RetiredFolder(gameFolder) }) {
        if (QFileInfo::exists(folder))
            QFileUtils::DeleteFileOrFolder(folder);
    }
}

} // namespace FolderSwap

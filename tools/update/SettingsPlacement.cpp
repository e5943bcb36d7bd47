#include "SettingsPlacement.h"

#include <QDir>
#include <QTemporaryFile>

namespace SettingsPlacement {

bool IsWritableFolder(const QString& folder)
{
    // Permission bits do not tell a read-only mount or an ACL; creating a file does.
    QTemporaryFile probe(QDir(folder).filePath(QStringLiteral(".write-probe-XXXXXX")));
    return probe.open();
}

QString Folder(const QString& programFolder, const QString& installFolder)
{
    return IsWritableFolder(programFolder) ? programFolder : installFolder;
}

} // namespace SettingsPlacement

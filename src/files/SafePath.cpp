#include "files/SafePath.h"

#include <QDir>
#include <QStringList>

namespace SafePath {

namespace {

QString withForwardSlashes(QString path)
{
    return path.replace(QLatin1Char('\\'), QLatin1Char('/'));
}

bool hasDriveLetter(const QString& path)
{
    return path.size() >= 2 && path.at(1) == QLatin1Char(':') && path.at(0).isLetter();
}

} // namespace

bool IsSafeRelativePath(const QString& relative)
{
    const QString path = withForwardSlashes(relative);
    if (path.isEmpty() || path.startsWith(QLatin1Char('/')) || path.endsWith(QLatin1Char('/')))
        return false;
    if (hasDriveLetter(path) || path.contains(QLatin1Char(':')))
        return false;
    bool namesSomething = false;
    for (const QString& part : path.split(QLatin1Char('/'))) {
        if (part == QLatin1String(".."))
            return false;
        if (!part.isEmpty() && part != QLatin1String("."))
            namesSomething = true;
    }
    return namesSomething;
}

bool IsInsideFolder(const QString& root, const QString& path)
{
    if (root.trimmed().isEmpty() || path.trimmed().isEmpty())
        return false;
    const QString cleanRoot = QDir::cleanPath(withForwardSlashes(root));
    const QString cleanPath = QDir::cleanPath(withForwardSlashes(path));
    if (cleanPath == cleanRoot)
        return true;
    const QString prefix = cleanRoot.endsWith(QLatin1Char('/')) ? cleanRoot : cleanRoot + QLatin1Char('/');
    return cleanPath.startsWith(prefix);
}

QString ResolveUnder(const QString& root, const QString& relative)
{
    if (root.trimmed().isEmpty() || !IsSafeRelativePath(relative))
        return QString();
    const QString full
        = QDir::cleanPath(withForwardSlashes(root) + QLatin1Char('/') + withForwardSlashes(relative));
    return IsInsideFolder(root, full) && full != QDir::cleanPath(withForwardSlashes(root)) ? full : QString();
}

} // namespace SafePath

#include "files/SafePath.h"

#include <QDir>
#include <QStringList>

namespace SafePath {

namespace {

#ifdef Q_OS_WIN
constexpr Qt::CaseSensitivity kCase = Qt::CaseInsensitive;
#else
constexpr Qt::CaseSensitivity kCase = Qt::CaseSensitive;
#endif

QString cleaned(const QString& path)
{
    QString slashes = path;
    return QDir::cleanPath(slashes.replace(QLatin1Char('\\'), QLatin1Char('/')));
}

bool hasDriveLetter(const QString& path)
{
    return path.size() >= 2 && path.at(1) == QLatin1Char(':') && path.at(0).isLetter();
}

} // namespace

bool IsSafeRelativePath(const QString& relative)
{
    QString slashes = relative;
    slashes.replace(QLatin1Char('\\'), QLatin1Char('/'));
    if (slashes.trimmed().isEmpty() || slashes.startsWith(QLatin1Char('/')) || hasDriveLetter(slashes))
        return false;
    return !slashes.split(QLatin1Char('/')).contains(QStringLiteral(".."));
}

QString ResolveUnder(const QString& root, const QString& relative)
{
    if (root.isEmpty() || !IsSafeRelativePath(relative))
        return QString();
    return cleaned(root + QLatin1Char('/') + relative);
}

bool IsInsideFolder(const QString& root, const QString& path)
{
    if (root.isEmpty() || path.isEmpty())
        return false;
    const QString folder = cleaned(root);
    const QString candidate = cleaned(path);
    if (candidate.compare(folder, kCase) == 0)
        return true;
    // The root of a volume already ends in its separator.
    const QString prefix = folder.endsWith(QLatin1Char('/')) ? folder : folder + QLatin1Char('/');
    return candidate.startsWith(prefix, kCase);
}

} // namespace SafePath

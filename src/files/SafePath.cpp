#include "files/SafePath.h"

#include <QDir>
#include <QVector>

namespace SafePath {

namespace {

QString withSlashes(const QString& path)
{
    QString slashed = path;
    return slashed.replace(QLatin1Char('\\'), QLatin1Char('/'));
}

QString cleaned(const QString& path)
{
    return QDir::cleanPath(withSlashes(path));
}

bool isSeparator(QChar c)
{
    return c == QLatin1Char('/') || c == QLatin1Char('\\');
}

// "C:x" names the current folder of drive C, and "x.bin:s" a stream inside x.bin on Windows: no name
// from outside needs a colon.
bool hasColon(const QString& path)
{
    return path.contains(QLatin1Char(':'));
}

// Windows drops trailing dots and blanks from names, so "..." or ".. " could end up as a way up or
// as no name at all; a lone "." is harmless and cleaned away.
bool climbsOrVanishes(const QStringRef& part)
{
    if (part.isEmpty() || part == QLatin1String("."))
        return false;
    for (const QChar c : part) {
        if (c != QLatin1Char('.') && c != QLatin1Char(' '))
            return false;
    }
    return true;
}

} // namespace

bool IsSafeRelativePath(const QString& relative)
{
    if (relative.isEmpty() || isSeparator(relative.front()) || isSeparator(relative.back())
        || hasColon(relative))
        return false;
    const QString slashed = withSlashes(relative);
    bool anyName = false;
    const QVector<QStringRef> parts = slashed.splitRef(QLatin1Char('/'));
    for (const QStringRef& part : parts) {
        if (climbsOrVanishes(part))
            return false;
        anyName = anyName || (!part.isEmpty() && part != QLatin1String("."));
    }
    return anyName;
}

QString ResolveUnder(const QString& root, const QString& relative)
{
    if (root.trimmed().isEmpty() || !IsSafeRelativePath(relative))
        return QString();
    // A root that already ends in a separator ("/", "C:/") gets no second one: on Windows a path
    // starting with two separators names a network share, so "/" + "/x" would leave the volume.
    const bool separated = root.endsWith(QLatin1Char('/')) || root.endsWith(QLatin1Char('\\'));
    return cleaned(separated ? root + relative : root + QLatin1Char('/') + relative);
}

bool IsInsideFolder(const QString& root, const QString& path)
{
    if (root.trimmed().isEmpty() || path.trimmed().isEmpty())
        return false;
    QString base = cleaned(root);
    const QString candidate = cleaned(path);
#ifdef Q_OS_WIN
    const Qt::CaseSensitivity cs = Qt::CaseInsensitive;
#else
    const Qt::CaseSensitivity cs = Qt::CaseSensitive;
#endif
    if (candidate.compare(base, cs) == 0)
        return true;
    // A volume root cleans to "/" or "C:/"; every other folder gets its separator here, so that a
    // sibling sharing the name's start ("cache2" beside "cache") is not taken for a child.
    if (!base.endsWith(QLatin1Char('/')))
        base += QLatin1Char('/');
    return candidate.startsWith(base, cs);
}

} // namespace SafePath

#include "install/ManifestFileInfo.h"

#include <QStringList>
#include <QVector>

namespace Morvantix {

namespace {

constexpr int kMd5Digits = 32;
// A bad line is quoted up to this length: enough to recognise an error page.
constexpr int kQuotedLength = 80;

bool isMd5Text(const QString& text)
{
    if (text.size() != kMd5Digits)
        return false;
    for (const QChar c : text) {
        const ushort u = c.unicode();
        const bool hex = (u >= '0' && u <= '9') || (u >= 'a' && u <= 'f') || (u >= 'A' && u <= 'F');
        if (!hex)
            return false;
    }
    return true;
}

} // namespace

ManifestFileInfo ReadFileListLine(const QString& line, bool* wellFormed)
{
    // The references point into this string, so it must outlive them.
    const QString simplified = line.simplified();
    const QVector<QStringRef> fields = simplified.splitRef(QLatin1Char('|'));
    ManifestFileInfo info;
    info.path = fields.value(0).toString();
    info.md5 = fields.value(1).toString();
    bool ok = false;
    const quint64 size = fields.value(2).toULongLong(&ok);
    info.size = ok ? size : 0;
    if (wellFormed)
        *wellFormed = fields.size() >= 3 && !info.path.isEmpty() && isMd5Text(info.md5) && ok;
    return info;
}

ManifestFileMap ReadFileList(const QString& text)
{
    ManifestFileMap files;
    for (const QStringRef& line : text.splitRef(QLatin1Char('\n'), Qt::SkipEmptyParts)) {
        if (line.trimmed().isEmpty())
            continue;
        const ManifestFileInfo info = ReadFileListLine(line.toString());
        files.insert(info.path, info);
    }
    return files;
}

QString FileListFault(const QString& text)
{
    int number = 0;
    int entries = 0;
    for (const QStringRef& line : text.splitRef(QLatin1Char('\n'))) {
        ++number;
        if (line.trimmed().isEmpty())
            continue;
        bool wellFormed = false;
        ReadFileListLine(line.toString(), &wellFormed);
        if (!wellFormed)
            return QStringLiteral("line %1 is not \"path|md5|size\": %2")
                .arg(number)
                .arg(line.left(kQuotedLength).trimmed().toString());
        ++entries;
    }
    return entries == 0 ? QStringLiteral("it lists no file") : QString();
}

QString FileListLine(const ManifestFileInfo& info)
{
    return info.path + QLatin1Char('|') + info.md5 + QLatin1Char('|') + QString::number(info.size);
}

} // namespace Morvantix

#include "install/ManifestFileInfo.h"

#include <QStringList>
#include <QVector>

namespace Morvantix {

ManifestFileInfo ReadFileListLine(const QString& line)
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

QString FileListLine(const ManifestFileInfo& info)
{
    return info.path + QLatin1Char('|') + info.md5 + QLatin1Char('|') + QString::number(info.size);
}

} // namespace Morvantix

#include "install/PatchInfo.h"

#include <QHash>
#include <QStringList>

namespace Morvantix {

namespace {

const QString kDeleteMarker = QStringLiteral("--del_file--");
const QString kNewMarker = QStringLiteral("--new_file--");
const QString kPatchMarker = QStringLiteral("--patch_file--");

ManifestFileMap* sectionFor(const QString& marker, PatchInfo& info)
{
    if (marker == kDeleteMarker)
        return &info.delFiles;
    if (marker == kNewMarker)
        return &info.newFiles;
    if (marker == kPatchMarker)
        return &info.patchFiles;
    return nullptr;
}

void appendSection(QString& text, const QString& marker, const ManifestFileMap& files)
{
    text += marker + QLatin1Char('\n');
    for (const ManifestFileInfo& info : files)
        text += FileListLine(info) + QLatin1Char('\n');
}

} // namespace

PatchInfo ReadPatchInfo(const QString& text)
{
    PatchInfo info;
    ManifestFileMap* section = nullptr;
    QMultiHash<QString, QString> deletedByLowerPath;
    QStringList addedLowerPaths;
    for (const QStringRef& piece : text.splitRef(QLatin1Char('\n'), Qt::SkipEmptyParts)) {
        const QString line = piece.toString().simplified();
        if (line.isEmpty())
            continue;
        if (ManifestFileMap* marked = sectionFor(line, info)) {
            section = marked;
            continue;
        }
        if (!section)
            continue;
        const ManifestFileInfo entry = ReadFileListLine(line);
        section->insert(entry.path, entry);
        if (section == &info.delFiles)
            deletedByLowerPath.insert(entry.path.toLower(), entry.path);
        else if (section == &info.newFiles)
            addedLowerPaths.append(entry.path.toLower());
    }
    // A file the patch both deletes and adds is replaced, not lost, whatever the letter case says.
    for (const QString& added : addedLowerPaths) {
        for (const QString& deleted : deletedByLowerPath.values(added))
            info.delFiles.remove(deleted);
    }
    return info;
}

QString WritePatchInfo(const PatchInfo& info)
{
    QString text;
    appendSection(text, kDeleteMarker, info.delFiles);
    appendSection(text, kNewMarker, info.newFiles);
    appendSection(text, kPatchMarker, info.patchFiles);
    return text;
}

} // namespace Morvantix

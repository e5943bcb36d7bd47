#include "planning/GuideManifestReader.h"

#include <QHash>
#include <QStringList>

namespace Morvantix {

namespace {

const QString kPackagesMarker = QStringLiteral("--download_version--");
const QString kNewestMarker = QStringLiteral("--last_version--");

enum class ReadMode
{
    Packages,
    NewestVersion
};

// Positions in patchList by package, keyed by the exact texts: "1.0.0.2" and "1.0.0.02" are two
// packages here even though they name the same version.
using PackageIndex = QHash<QString, QHash<QString, int>>;

struct PackageLine
{
    QString from;
    QString to;
    PatchFileInfo file;
};

PackageLine parsePackageLine(const QString& line)
{
    const QStringList fields = line.split(QLatin1Char('|'));
    const QStringList ends = fields.value(0).split(QLatin1String("->"));

    PackageLine parsed;
    parsed.from = ends.value(0);
    parsed.to = ends.value(1);
    parsed.file.path = fields.value(1);
    parsed.file.md5 = fields.value(2);
    parsed.file.size = fields.value(3).toULongLong(nullptr, 10);
    return parsed;
}

int packagePosition(GuideManifestInfo& info, PackageIndex& index, const QString& from, const QString& to)
{
    QHash<QString, int>& targets = index[from];
    const auto found = targets.constFind(to);
    if (found != targets.constEnd())
        return found.value();

    PatchEntry entry;
    entry.fromVersion = from;
    entry.toVersion = to;
    entry.bEnabled = from != to;
    info.patchList.append(entry);
    const int position = info.patchList.size() - 1;
    targets.insert(to, position);
    return position;
}

void addPackageLine(GuideManifestInfo& info, PackageIndex& index, const QString& line)
{
    const PackageLine parsed = parsePackageLine(line);
    PatchEntry& entry = info.patchList[packagePosition(info, index, parsed.from, parsed.to)];
    // Summed as unsigned so that an absurd size wraps instead of overflowing a signed number.
    entry.cost = static_cast<qint64>(static_cast<quint64>(entry.cost) + parsed.file.size);
    entry.files.append(parsed.file);
}

} // namespace

GuideManifestInfo ReadGuideManifest(const QString& text)
{
    GuideManifestInfo info;
    PackageIndex index;
    ReadMode mode = ReadMode::Packages;

    // Lines are copied one at a time: a manifest of thousands of versions is megabytes of text.
    const QVector<QStringRef> lines = text.splitRef(QLatin1Char('\n'));
    for (const QStringRef& rawLine : lines) {
        const QString line = rawLine.toString().simplified();
        if (line.isEmpty())
            continue;
        if (line == kPackagesMarker) {
            mode = ReadMode::Packages;
        } else if (line == kNewestMarker) {
            mode = ReadMode::NewestVersion;
        } else if (mode == ReadMode::NewestVersion) {
            info.lastVersion = line;
        } else {
            addPackageLine(info, index, line);
        }
    }
    return info;
}

QString WriteGuideManifest(const GuideManifestInfo& info)
{
    QString text = kPackagesMarker + QLatin1Char('\n');
    for (const PatchEntry& entry : info.patchList) {
        const QString head = entry.fromVersion + QLatin1String("->") + entry.toVersion;
        for (const PatchFileInfo& file : entry.files)
            text += head + QLatin1Char('|') + file.path + QLatin1Char('|') + file.md5 + QLatin1Char('|')
                + QString::number(file.size) + QLatin1Char('\n');
    }
    return text + kNewestMarker + QLatin1Char('\n') + info.lastVersion + QLatin1Char('\n');
}

} // namespace Morvantix

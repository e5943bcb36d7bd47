#include "VersionFolders.h"

#include "files/SafePath.h"
#include "planning/VersionUtil.h"

#include <QDir>
#include <QDirIterator>
#include <QFileInfo>
#include <QHash>
#include <QRegularExpression>
#include <algorithm>

using Morvantix::Version;

namespace Publish {

namespace {

bool isLink(const QFileInfo& info)
{
    return info.isSymbolicLink() || info.isJunction();
}

Version versionOf(const QString& text)
{
    Version version;
    Morvantix::GetVersionByString(text, version);
    return version;
}

Outcome badInput(const QString& text)
{
    return Outcome::Failure(ExitCode::BadInput, text);
}

bool isEmptyFolder(const QString& path)
{
    return QDir(path).isEmpty(QDir::AllEntries | QDir::NoDotAndDotDot | QDir::Hidden | QDir::System);
}

Outcome scanFiles(const QString& versionsRoot, VersionSource& version)
{
    const QDir root(versionsRoot);
    const QDir base(version.folder);
    QHash<QString, QString> byLowerCase;
    QDirIterator it(version.folder, QDir::AllEntries | QDir::NoDotAndDotDot | QDir::Hidden | QDir::System,
        QDirIterator::Subdirectories);
    while (it.hasNext()) {
        it.next();
        const QFileInfo info = it.fileInfo();
        const QString shown = root.relativeFilePath(info.filePath());
        if (isLink(info))
            return badInput(
                QStringLiteral("%1 is a link; links are refused, put the file itself there").arg(shown));
        if (info.isDir()) {
            if (!info.isReadable() || !info.isExecutable())
                return badInput(QStringLiteral("cannot read the folder %1").arg(shown));
            // A version is its folders as well: the game may expect an empty one to be there.
            if (isEmptyFolder(info.filePath()))
                version.emptyFolders.append(base.relativeFilePath(info.filePath()));
            continue;
        }
        if (!info.isFile())
            return badInput(QStringLiteral("%1 is not a regular file").arg(shown));
        if (!info.isReadable())
            return badInput(QStringLiteral("cannot read %1").arg(shown));
        const QString rel = base.relativeFilePath(info.filePath());
        const QString problem = FileNameProblem(rel);
        if (!problem.isEmpty())
            return badInput(QStringLiteral("%1: the name %2").arg(shown, problem));
        const QString twin = byLowerCase.value(rel.toLower());
        if (!twin.isEmpty())
            return badInput(
                QStringLiteral("%1 and %2 differ only in letter case, which Windows cannot keep apart")
                    .arg(twin, shown));
        byLowerCase.insert(rel.toLower(), shown);
        version.files.append({ rel, info.filePath(), info.size(), info.isExecutable() });
    }
    std::sort(version.files.begin(), version.files.end(),
        [](const SourceFile& a, const SourceFile& b) { return a.rel < b.rel; });
    version.emptyFolders.sort();
    return {};
}

} // namespace

QStringList EmptyFoldersIn(const QString& folder)
{
    QStringList empty;
    const QDir base(folder);
    QDirIterator it(folder,
        QDir::Dirs | QDir::NoDotAndDotDot | QDir::Hidden | QDir::System | QDir::NoSymLinks,
        QDirIterator::Subdirectories);
    while (it.hasNext()) {
        const QString path = it.next();
        if (isEmptyFolder(path))
            empty.append(base.relativeFilePath(path));
    }
    empty.sort();
    return empty;
}

QString VersionTextOf(const QString& folderName)
{
    static const QRegularExpression form(
        QStringLiteral("^([0-9]{1,18})\\.([0-9]{1,18})\\.([0-9]{1,18})\\.([0-9]{1,18})$"));
    const QRegularExpressionMatch match = form.match(folderName);
    if (!match.hasMatch())
        return QString();
    // Wider parts would overlap in the packed order key and compare wrongly on every player's machine.
    static const qint64 limits[] = { 255, 255, 65535, 2147483647 };
    QStringList parts;
    for (int i = 0; i < 4; ++i) {
        const qint64 part = match.captured(i + 1).toLongLong();
        if (part > limits[i])
            return QString();
        parts << QString::number(part);
    }
    return parts.join(QLatin1Char('.'));
}

QString FileNameProblem(const QString& rel)
{
    if (!SafePath::IsSafeRelativePath(rel))
        return QStringLiteral("does not stay inside the version folder");
    for (const QChar c : rel) {
        if (c.unicode() < 0x20 || c.unicode() == 0x7f)
            return QStringLiteral("has a control character");
        if (QStringLiteral("|\\:*?\"<>").contains(c))
            return QStringLiteral("has \"%1\", which the file lists or Windows cannot take").arg(c);
    }
    if (rel.simplified() != rel)
        return QStringLiteral(
            "has blanks at an end, a run of blanks or other white space, which the file lists fold");
    for (const QString& part : rel.split(QLatin1Char('/'))) {
        if (part.endsWith(QLatin1Char(' ')) || part.endsWith(QLatin1Char('.')))
            return QStringLiteral("has a part ending in a blank or a dot, which Windows drops");
    }
    if (rel.compare(QLatin1String("manifest.txt"), Qt::CaseInsensitive) == 0)
        return QStringLiteral("is the name of the patch info file at the top of every patch package");
    return QString();
}

Outcome ScanVersions(const QString& root, QVector<VersionSource>& versions)
{
    const QFileInfo rootInfo(root);
    if (!rootInfo.isDir())
        return badInput(QStringLiteral("%1 is not a folder").arg(root));
    QHash<QString, QString> folderByVersion;
    const QFileInfoList entries = QDir(root).entryInfoList(
        QDir::AllEntries | QDir::NoDotAndDotDot | QDir::Hidden | QDir::System, QDir::Name);
    for (const QFileInfo& entry : entries) {
        if (!entry.isDir() && !isLink(entry))
            continue; // a note or a checksum file beside the versions is no version
        const QString text = VersionTextOf(entry.fileName());
        if (text.isEmpty())
            return badInput(
                QStringLiteral("the folder \"%1\" is no version: name it major.minor.patch.build, "
                               "at most 255.255.65535.2147483647")
                    .arg(entry.fileName()));
        if (isLink(entry))
            return badInput(QStringLiteral("%1 is a link; links are refused").arg(entry.fileName()));
        if (folderByVersion.contains(text))
            return badInput(QStringLiteral("the folders \"%1\" and \"%2\" name the same version %3")
                                .arg(folderByVersion.value(text), entry.fileName(), text));
        folderByVersion.insert(text, entry.fileName());
        versions.append({ text, entry.fileName(), entry.absoluteFilePath(), {}, {} });
    }
    if (versions.isEmpty())
        return badInput(QStringLiteral("%1 holds no version folder").arg(root));
    std::sort(versions.begin(), versions.end(), [](const VersionSource& a, const VersionSource& b) {
        return Morvantix::VersionOrderKey(versionOf(a.text)) < Morvantix::VersionOrderKey(versionOf(b.text));
    });
    for (VersionSource& version : versions) {
        const Outcome scanned = scanFiles(root, version);
        if (!scanned.ok())
            return scanned;
        if (version.files.isEmpty())
            return badInput(QStringLiteral("the folder \"%1\" holds no files").arg(version.folderName));
    }
    return {};
}

} // namespace Publish

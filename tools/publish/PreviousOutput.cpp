#include "PreviousOutput.h"

#include "VersionFolders.h"
#include "files/QFileUtils.h"
#include "files/SafePath.h"
#include "planning/ChannelTrust.h"
#include "planning/GuideManifestReader.h"

#include <QDir>
#include <QFileInfo>
#include <QJsonDocument>

namespace Publish {

PreviousOutput::PreviousOutput(const QString& root)
    : m_root(root)
{
    m_bHoldsAnything = QFileInfo(root).isDir()
        && !QDir(root).isEmpty(QDir::AllEntries | QDir::NoDotAndDotDot | QDir::Hidden | QDir::System);
    const QString guidePath = QDir(root).filePath(QStringLiteral("manifest.txt"));
    m_bChannelRoot = QFileInfo(guidePath).isFile();
    if (m_bChannelRoot)
        m_guide = Morvantix::ReadGuideManifest(QFileUtils::ReadText(guidePath));
    m_settings = QJsonDocument::fromJson(QFileUtils::ReadBytes(QDir(root).filePath(SettingsName()))).object();
}

QStringList PreviousOutput::OwnEntryNames()
{
    return { QStringLiteral("manifest.txt"), QStringLiteral("info.json"), SettingsName(),
        QStringLiteral("full"), QStringLiteral("patch"), Morvantix::ChannelTrust::DocumentName(),
        Morvantix::ChannelTrust::SignatureName() };
}

QString PreviousOutput::SettingsName()
{
    return QStringLiteral("publish.json");
}

QStringList PreviousOutput::foreignEntries() const
{
    QStringList foreign;
    const QStringList names
        = QDir(m_root).entryList(QDir::AllEntries | QDir::NoDotAndDotDot | QDir::Hidden | QDir::System);
    for (const QString& name : names) {
        if (!OwnEntryNames().contains(name) && VersionTextOf(name) != name)
            foreign << name;
    }
    return foreign;
}

QString PreviousOutput::fileListText(const QString& version) const
{
    return QFileUtils::ReadText(QDir(m_root).filePath(version + QStringLiteral("/manifest.txt")));
}

QStringList PreviousOutput::emptyFolders(const QString& version) const
{
    return EmptyFoldersIn(QDir(m_root).filePath(version + QStringLiteral("/files")));
}

QString PreviousOutput::filePath(const QString& rel) const
{
    return SafePath::ResolveUnder(m_root, rel);
}

bool PreviousOutput::package(
    const QString& from, const QString& to, QVector<Morvantix::PatchFileInfo>& files) const
{
    for (const Morvantix::PatchEntry& entry : m_guide.patchList) {
        if (entry.fromVersion != from || entry.toVersion != to)
            continue;
        for (const Morvantix::PatchFileInfo& file : entry.files) {
            const QFileInfo onDisk(filePath(file.path));
            if (!onDisk.isFile() || quint64(onDisk.size()) != file.size)
                return false;
        }
        files = entry.files;
        return !files.isEmpty();
    }
    return false;
}

} // namespace Publish

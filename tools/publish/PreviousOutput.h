#pragma once

#include "planning/GuideManifestInfo.h"

#include <QJsonObject>
#include <QString>
#include <QStringList>
#include <QVector>

namespace Publish {

// What an earlier run left in OUTPUT, read so that packages whose inputs have not changed are taken
// over instead of being made again.
class PreviousOutput
{
public:
    explicit PreviousOutput(const QString& root);

    // OUTPUT exists and holds anything at all.
    bool holdsAnything() const { return m_bHoldsAnything; }
    // OUTPUT holds a guide manifest, so an earlier run made it.
    bool isChannelRoot() const { return m_bChannelRoot; }
    // Top-level entries the publisher does not write: nothing of the operator's is ever replaced.
    QStringList foreignEntries() const;

    // The published file list of a version, or "" when there is none.
    QString fileListText(const QString& version) const;
    // The empty folders of a version's published files, sorted.
    QStringList emptyFolders(const QString& version) const;
    // The settings of the run that made OUTPUT.
    const QJsonObject& settings() const { return m_settings; }
    // The files of the package from -> to as the guide manifest lists them, each still on disk at its
    // size; false when there is no such package or a file is missing.
    bool package(const QString& from, const QString& to, QVector<Morvantix::PatchFileInfo>& files) const;
    // Where a path of the guide manifest lies, or "" when it would leave OUTPUT.
    QString filePath(const QString& rel) const;

    // Names of what the publisher writes at the top of OUTPUT, besides the version folders.
    static QStringList OwnEntryNames();
    static QString SettingsName();

private:
    QString m_root;
    bool m_bHoldsAnything = false;
    bool m_bChannelRoot = false;
    Morvantix::GuideManifestInfo m_guide;
    QJsonObject m_settings;
};

} // namespace Publish

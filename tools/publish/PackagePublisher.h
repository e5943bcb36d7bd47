#pragma once

#include "CommandLine.h"
#include "Outcome.h"
#include "PatchBuilder.h"
#include "ProgressSink.h"
#include "planning/GuideManifestInfo.h"

#include <QString>
#include <QStringList>
#include <QVector>

#include <functional>

namespace Publish {

class Archiver;
class PreviousOutput;

// Makes the packages of the staged versions in the staging folder, or takes over those of OUTPUT whose
// inputs and settings are unchanged, and gives the guide manifest's line for each. It holds what it is
// given by reference, so it lives within one run of the publisher.
class PackagePublisher
{
public:
    // Which of the settings that shape a package's bytes are those of the run that made OUTPUT.
    struct SameSettings
    {
        bool bLevel = false;
        bool bPartSize = false;
    };

    PackagePublisher(const PublishOptions& options, const QString& stagingDir, const QString& workDir,
        const PreviousOutput& previous, const Archiver& archiver, SameSettings sameSettings,
        const ProgressSink& progress);

    // Appends the guide manifest's lines: the patches, then the full packages. unchanged: per version,
    // whether it is the one OUTPUT publishes.
    Outcome publish(const QVector<StagedVersion>& versions, const QVector<bool>& unchanged,
        QVector<Morvantix::PatchEntry>& entries) const;

private:
    Outcome publishFullPackages(const QVector<StagedVersion>& versions, const QVector<bool>& unchanged,
        QVector<Morvantix::PatchEntry>& entries) const;
    // Patches to each version from the patch distance's earlier ones; a patch not smaller than the
    // full package of its target is left out.
    Outcome publishPatches(const QVector<StagedVersion>& versions, const QVector<bool>& unchanged,
        const QVector<Morvantix::PatchEntry>& fullPackages, QVector<Morvantix::PatchEntry>& entries) const;

    using MakePackage = std::function<Outcome(const QString& archivePath, QStringList& written)>;

    // The package from -> to at archiveRel: taken over from OUTPUT when bReusable and still there,
    // else made by make.
    Outcome publishPackage(const QString& from, const QString& to, bool bReusable, const QString& archiveRel,
        const MakePackage& make, Morvantix::PatchEntry& entry) const;
    // Whether a patch package is smaller than the full package of its target; one that is not is
    // removed with a notice, since the host would rather download the full package.
    bool isWorthPublishing(
        const Morvantix::PatchEntry& patch, const Morvantix::PatchEntry& fullPackage) const;
    QString stagedPath(const QString& rel) const;

    const PublishOptions& m_options;
    QString m_stagingDir;
    QString m_workDir;
    const PreviousOutput& m_previous;
    const Archiver& m_archiver;
    SameSettings m_sameSettings;
    const ProgressSink& m_progress;
};

} // namespace Publish

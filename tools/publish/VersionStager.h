#pragma once

#include "Outcome.h"
#include "PatchBuilder.h"
#include "ProgressSink.h"
#include "VersionFolders.h"

#include <QString>

#include <functional>

namespace Publish {

class PreviousOutput;

// Copies each version into the staging folder with its file list. A version whose files and empty
// folders are those OUTPUT already publishes takes over the published loose files, linked where the
// file system allows, so its packages may be taken over too. Lives within one run of the publisher.
class VersionStager
{
public:
    VersionStager(const QString& stagingDir, const PreviousOutput& previous, const ProgressSink& progress);

    // bUnchanged: the version is the one OUTPUT publishes, file for file and folder for folder.
    Outcome stage(const VersionSource& source, StagedVersion& staged, bool& bUnchanged) const;

private:
    Outcome copyVersion(const VersionSource& source, StagedVersion& staged) const;
    Outcome takeOverPublishedFiles(const VersionSource& source, const StagedVersion& staged) const;
    QString stagedPath(const QString& rel) const;
    std::function<void(qint64)> byteProgress(qint64 total) const;

    QString m_stagingDir;
    const PreviousOutput& m_previous;
    const ProgressSink& m_progress;
};

} // namespace Publish

#pragma once

#include "Outcome.h"
#include "install/ManifestFileInfo.h"
#include "install/PatchInfo.h"

#include <QSet>
#include <QString>

#include <functional>

namespace Publish {

class Archiver;
class DiffTool;

// A version as staged for publishing: its files copied under filesDir, and their list.
struct StagedVersion
{
    QString text;
    QString filesDir;
    Morvantix::ManifestFileMap files;
};

// Makes the patch package from one version to another: the patch info file, a proven diff for each
// changed file that is worth one, whole files for the rest.
class PatchBuilder
{
public:
    PatchBuilder(const DiffTool& diffTool, const Archiver& archiver, const QString& workDir);

    // Called with the changed files done so far and their number.
    void setProgressCallback(std::function<void(int done, int total)> onProgress)
    {
        m_onProgress = std::move(onProgress);
    }

    Outcome build(const StagedVersion& from, const StagedVersion& to, const QString& archivePath);

    // What the last build decided.
    const Morvantix::PatchInfo& patchInfo() const { return m_info; }

    // Whether a changed file may travel as a diff at all. The merger finds the file to rebuild by
    // cutting the diff's name at its first ".patch", and the diff must not take the place of a file of
    // the new version named like it; lowerCasePaths holds the new version's paths in lower case.
    static bool MayTravelAsDiff(const QString& rel, const QSet<QString>& lowerCasePaths);

private:
    Outcome addWhole(const StagedVersion& to, const QString& rel);
    Outcome addChanged(const StagedVersion& from, const StagedVersion& to, const QString& rel);

    const DiffTool& m_diffTool;
    const Archiver& m_archiver;
    QString m_workDir;
    QString m_packageDir;
    QSet<QString> m_lowerCasePaths; // of the new version
    Morvantix::PatchInfo m_info;
    std::function<void(int, int)> m_onProgress;
};

} // namespace Publish

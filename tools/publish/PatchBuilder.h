#pragma once

#include "Outcome.h"
#include "install/ManifestFileInfo.h"
#include "install/PatchInfo.h"

#include <QSet>
#include <QString>
#include <QVector>

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
    QStringList emptyFolders; // carried by the full package; created under filesDir
};

// Makes the patch package from one version to another: the patch info file, a proven diff for each
// changed file that is worth one, whole files for the rest. Diffs are made by up to two workers at
// once, each with its share of the memory budget the diff tool was given.
class PatchBuilder
{
public:
    PatchBuilder(const DiffTool& diffTool, int workers, const Archiver& archiver, const QString& workDir);

    // Called with the changed files done so far and their number.
    void setProgressCallback(std::function<void(int done, int total)> onProgress)
    {
        m_onProgress = std::move(onProgress);
    }
    // Called with a line for the operator when a changed file travels whole after all.
    void setNoticeCallback(std::function<void(const QString&)> onNotice) { m_onNotice = std::move(onNotice); }

    Outcome build(const StagedVersion& from, const StagedVersion& to, const QString& archivePath);

    // What the last build decided.
    const Morvantix::PatchInfo& patchInfo() const { return m_info; }

    // Whether a changed file may travel as a diff at all. The merger finds the file to rebuild by
    // cutting the diff's name at its first ".patch", and the diff must not take the place of a file of
    // the new version named like it; lowerCasePaths holds the new version's paths in lower case.
    static bool MayTravelAsDiff(const QString& rel, const QSet<QString>& lowerCasePaths);

private:
    // What became of one changed file.
    struct DiffResult
    {
        enum class Kind
        {
            Diff, // a proven diff smaller than the file
            Whole, // the file travels whole; note says why
            Failed, // the run stops with outcome
        };
        Kind kind = Kind::Whole;
        QString note;
        Outcome outcome;
        Morvantix::ManifestFileInfo diff;
    };

    Outcome addWhole(const StagedVersion& to, const QString& rel);
    DiffResult makeDiff(const StagedVersion& from, const StagedVersion& to, const QString& rel,
        const QString& proofFile) const;
    // Where the diff of rel goes in the package being built.
    QString diffFileOf(const QString& rel) const;
    Outcome makeDiffFolders(const QStringList& changed) const;
    void makeDiffs(const StagedVersion& from, const StagedVersion& to, const QStringList& changed,
        QVector<DiffResult>& results);

    const DiffTool& m_diffTool;
    int m_workers;
    const Archiver& m_archiver;
    QString m_workDir;
    QString m_packageDir;
    QSet<QString> m_lowerCasePaths; // of the new version
    Morvantix::PatchInfo m_info;
    std::function<void(int, int)> m_onProgress;
    std::function<void(const QString&)> m_onNotice;
};

} // namespace Publish

#include "PackagePublisher.h"

#include "Archiver.h"
#include "DiffTool.h"
#include "FileStaging.h"
#include "PreviousOutput.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QThread>

#include <algorithm>

using Morvantix::PatchEntry;
using Morvantix::PatchFileInfo;

namespace Publish {

PackagePublisher::PackagePublisher(const PublishOptions& options, const QString& stagingDir,
    const QString& workDir, const PreviousOutput& previous, const Archiver& archiver,
    SameSettings sameSettings, const ProgressSink& progress)
    : m_options(options)
    , m_stagingDir(stagingDir)
    , m_workDir(workDir)
    , m_previous(previous)
    , m_archiver(archiver)
    , m_sameSettings(sameSettings)
    , m_progress(progress)
{ }

QString PackagePublisher::stagedPath(const QString& rel) const
{
    return QDir(m_stagingDir).filePath(rel);
}

Outcome PackagePublisher::publish(const QVector<StagedVersion>& versions, const QVector<bool>& unchanged,
    QVector<PatchEntry>& entries) const
{
    // Full packages first: a patch package is only published when it is smaller than the full
    // package of its target. The guide manifest still lists the patches first.
    QVector<PatchEntry> fullPackages;
    Outcome outcome = publishFullPackages(versions, unchanged, fullPackages);
    if (outcome.ok())
        outcome = publishPatches(versions, unchanged, fullPackages, entries);
    entries += fullPackages;
    return outcome;
}

Outcome PackagePublisher::publishFullPackages(const QVector<StagedVersion>& versions,
    const QVector<bool>& unchanged, QVector<PatchEntry>& entries) const
{
    for (int i = 0; i < versions.size(); ++i) {
        const StagedVersion& version = versions.at(i);
        PatchEntry entry;
        const Outcome outcome = publishPackage(
            version.text, version.text, unchanged.at(i) && m_sameSettings.bLevel && m_sameSettings.bPartSize,
            QStringLiteral("full/%1/full_%1.7z").arg(version.text),
            [&](const QString& archivePath, QStringList& written) {
                return m_archiver.pack(version.filesDir, version.files.keys() + version.emptyFolders,
                    archivePath, m_options.partSize, written);
            },
            entry);
        if (!outcome.ok())
            return outcome;
        entries.append(entry);
    }
    return {};
}

Outcome PackagePublisher::publishPatches(const QVector<StagedVersion>& versions,
    const QVector<bool>& unchanged, const QVector<PatchEntry>& fullPackages,
    QVector<PatchEntry>& entries) const
{
    // Two diffs at once where there are two cores, each with half of the budget.
    const int workers = qBound(1, QThread::idealThreadCount(), 2);
    const DiffTool diffTool(m_options.memoryBudget / workers);
    PatchBuilder builder(diffTool, workers, m_archiver, m_workDir);
    builder.setProgressCallback(
        [this](int done, int total) { m_progress.percentChanged(done * 100 / total); });
    builder.setNoticeCallback(m_progress.noticed);
    for (int to = 1; to < versions.size(); ++to) {
        for (int from = qMax(0, to - m_options.patchDistance); from < to; ++from) {
            const StagedVersion& a = versions.at(from);
            const StagedVersion& b = versions.at(to);
            PatchEntry entry;
            const Outcome outcome = publishPackage(
                a.text, b.text, unchanged.at(from) && unchanged.at(to) && m_sameSettings.bLevel,
                QStringLiteral("patch/%1/%2_%1.7z").arg(b.text, a.text),
                [&](const QString& archivePath, QStringList& written) {
                    written = QStringList { archivePath };
                    return builder.build(a, b, archivePath);
                },
                entry);
            if (!outcome.ok())
                return outcome;
            if (isWorthPublishing(entry, fullPackages.at(to)))
                entries.append(entry);
        }
    }
    return {};
}

bool PackagePublisher::isWorthPublishing(const PatchEntry& patch, const PatchEntry& fullPackage) const
{
    const auto sizeOf = [](const PatchEntry& entry) {
        quint64 size = 0;
        for (const PatchFileInfo& file : entry.files)
            size += file.size;
        return size;
    };
    const quint64 patchSize = sizeOf(patch), fullSize = sizeOf(fullPackage);
    if (patchSize < fullSize)
        return true;
    for (const PatchFileInfo& file : patch.files)
        QFile::remove(stagedPath(file.path));
    m_progress.noticed(
        QStringLiteral("%1 -> %2: patch left out, %3 bytes where the full package of %2 has %4")
            .arg(patch.fromVersion, patch.toVersion)
            .arg(patchSize)
            .arg(fullSize));
    return false;
}

Outcome PackagePublisher::publishPackage(const QString& from, const QString& to, bool bReusable,
    const QString& archiveRel, const MakePackage& make, PatchEntry& entry) const
{
    entry.fromVersion = from;
    entry.toVersion = to;
    const QString what = from == to ? QStringLiteral("%1: full package").arg(to)
                                    : QStringLiteral("%1 -> %2: patch").arg(from, to);
    QVector<PatchFileInfo> published;
    if (bReusable && m_previous.package(from, to, published)) {
        const bool sameNames
            = std::all_of(published.begin(), published.end(), [&](const PatchFileInfo& file) {
                  return file.path == archiveRel || file.path.startsWith(archiveRel + QLatin1Char('.'));
              });
        for (int i = 0; sameNames && i < published.size(); ++i) {
            const Outcome outcome = FileStaging::LinkOrCopy(
                m_previous.filePath(published.at(i).path), stagedPath(published.at(i).path));
            if (!outcome.ok())
                return outcome;
        }
        if (sameNames) {
            m_progress.stepStarted(what + QStringLiteral(" unchanged"));
            entry.files = published;
            return {};
        }
    }

    m_progress.stepStarted(what);
    QStringList written;
    Outcome outcome = make(stagedPath(archiveRel), written);
    if (!outcome.ok())
        return outcome;
    for (const QString& path : written) {
        PatchFileInfo file;
        outcome = FileStaging::Md5Of(path, file.md5);
        if (!outcome.ok())
            return outcome;
        file.path = QDir(m_stagingDir).relativeFilePath(path);
        file.size = quint64(QFileInfo(path).size());
        entry.files.append(file);
    }
    return {};
}

} // namespace Publish

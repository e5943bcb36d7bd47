#include "VersionStager.h"

#include "FileStaging.h"
#include "PreviousOutput.h"

#include <QDir>
#include <QFileInfo>

#include <memory>

namespace Publish {

namespace {

qint64 totalSizeOf(const VersionSource& source)
{
    qint64 total = 0;
    for (const SourceFile& file : source.files)
        total += file.size;
    return total;
}

} // namespace

VersionStager::VersionStager(
    const QString& stagingDir, const PreviousOutput& previous, const ProgressSink& progress)
    : m_stagingDir(stagingDir)
    , m_previous(previous)
    , m_progress(progress)
{ }

QString VersionStager::stagedPath(const QString& rel) const
{
    return QDir(m_stagingDir).filePath(rel);
}

std::function<void(qint64)> VersionStager::byteProgress(qint64 total) const
{
    auto done = std::make_shared<qint64>(0);
    auto shown = std::make_shared<int>(-1);
    const std::function<void(int)> onPercent = m_progress.percentChanged;
    return [onPercent, total, done, shown](qint64 bytes) {
        *done += bytes;
        const int percent = total > 0 ? int(*done * 100 / total) : 100;
        if (percent != *shown) {
            *shown = percent;
            onPercent(percent);
        }
    };
}

Outcome VersionStager::stage(const VersionSource& source, StagedVersion& staged, bool& bUnchanged) const
{
    staged.text = source.text;
    staged.filesDir = stagedPath(source.text + QStringLiteral("/files"));
    staged.emptyFolders = source.emptyFolders;
    for (const QString& folder : source.emptyFolders) {
        if (!QDir().mkpath(QDir(staged.filesDir).filePath(folder)))
            return Outcome::Failure(ExitCode::OutputFailed,
                QStringLiteral("cannot create %1 in %2").arg(folder, staged.filesDir));
    }
    const QString published = m_previous.fileListText(source.text);
    bUnchanged = false;
    if (published.isEmpty())
        return copyVersion(source, staged);

    m_progress.stepStarted(QStringLiteral("%1: comparing with the published version").arg(source.text));
    const auto onBytes = byteProgress(totalSizeOf(source));
    for (const SourceFile& file : source.files) {
        QString md5;
        const Outcome outcome = FileStaging::Md5Of(file.path, md5, onBytes);
        if (!outcome.ok())
            return outcome;
        staged.files.insert(file.rel, { file.rel, md5, quint64(file.size) });
    }
    // An empty folder is part of the version too: a new one alone makes the full package again.
    if (FileStaging::FileListText(staged.files) != published
        || m_previous.emptyFolders(source.text) != source.emptyFolders) {
        staged.files.clear();
        return copyVersion(source, staged);
    }
    const Outcome outcome = takeOverPublishedFiles(source, staged);
    if (!outcome.ok())
        return outcome;
    bUnchanged = true;
    return FileStaging::WriteTextFile(stagedPath(source.text + QStringLiteral("/manifest.txt")), published);
}

Outcome VersionStager::takeOverPublishedFiles(const VersionSource& source, const StagedVersion& staged) const
{
    // Each published file is checked by its size and its MD5, since a damaged file of the right size
    // would otherwise be linked into the new output; one that is gone or differs is copied from the
    // version folder again, whose bytes must still be the ones just hashed.
    for (const SourceFile& file : source.files) {
        const QString old = m_previous.filePath(source.text + QStringLiteral("/files/") + file.rel);
        const QString target = QDir(staged.filesDir).filePath(file.rel);
        const QString expected = staged.files.value(file.rel).md5;
        QString publishedMd5;
        Outcome outcome;
        if (QFileInfo(old).isFile() && QFileInfo(old).size() == file.size
            && FileStaging::Md5Of(old, publishedMd5).ok() && publishedMd5 == expected) {
            outcome = FileStaging::LinkOrCopy(old, target);
        } else {
            QString md5;
            outcome = FileStaging::CopyWithMd5(file.path, target, file.bExecutable, md5);
            if (outcome.ok() && md5 != expected)
                outcome = Outcome::Failure(
                    ExitCode::BadInput, QStringLiteral("%1 changed while it was published").arg(file.path));
        }
        if (!outcome.ok())
            return outcome;
    }
    return {};
}

Outcome VersionStager::copyVersion(const VersionSource& source, StagedVersion& staged) const
{
    const qint64 total = totalSizeOf(source);
    m_progress.stepStarted(QStringLiteral("%1: copying %2 files, %3 MB")
                               .arg(source.text)
                               .arg(source.files.size())
                               .arg(total / 1000000));
    const auto onBytes = byteProgress(total);
    for (const SourceFile& file : source.files) {
        QString md5;
        const Outcome outcome = FileStaging::CopyWithMd5(
            file.path, QDir(staged.filesDir).filePath(file.rel), file.bExecutable, md5, onBytes);
        if (!outcome.ok())
            return outcome;
        staged.files.insert(file.rel, { file.rel, md5, quint64(file.size) });
    }
    return FileStaging::WriteTextFile(
        stagedPath(source.text + QStringLiteral("/manifest.txt")), FileStaging::FileListText(staged.files));
}

} // namespace Publish

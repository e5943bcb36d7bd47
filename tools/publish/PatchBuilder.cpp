#include "PatchBuilder.h"

#include "Archiver.h"
#include "DiffTool.h"
#include "FileStaging.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>

#include <atomic>
#include <thread>
#include <vector>

using Morvantix::ManifestFileInfo;

namespace Publish {

namespace {

const QString kDiffSuffix = QStringLiteral(".patch");
const QString kPatchInfoName = QStringLiteral("manifest.txt");

} // namespace

PatchBuilder::PatchBuilder(
    const DiffTool& diffTool, int workers, const Archiver& archiver, const QString& workDir)
    : m_diffTool(diffTool)
    , m_workers(qMax(1, workers))
    , m_archiver(archiver)
    , m_workDir(workDir)
{ }

bool PatchBuilder::MayTravelAsDiff(const QString& rel, const QSet<QString>& lowerCasePaths)
{
    return !rel.contains(kDiffSuffix) && !lowerCasePaths.contains((rel + kDiffSuffix).toLower());
}

Outcome PatchBuilder::build(const StagedVersion& from, const StagedVersion& to, const QString& archivePath)
{
    m_info = {};
    m_lowerCasePaths.clear();
    for (const QString& path : to.files.keys())
        m_lowerCasePaths.insert(path.toLower());
    m_packageDir = QDir(m_workDir).filePath(QStringLiteral("%1_%2").arg(from.text, to.text));
    QDir(m_packageDir).removeRecursively();

    QStringList changed;
    for (const ManifestFileInfo& old : from.files) {
        if (!to.files.contains(old.path))
            m_info.delFiles.insert(old.path, old);
    }
    for (const ManifestFileInfo& file : to.files) {
        const auto old = from.files.constFind(file.path);
        if (old == from.files.constEnd()) {
            const Outcome added = addWhole(to, file.path);
            if (!added.ok())
                return added;
        } else if (old->md5 != file.md5 || old->size != file.size) {
            changed << file.path;
        }
    }
    const Outcome folders = makeDiffFolders(changed);
    if (!folders.ok())
        return folders;
    QVector<DiffResult> results(changed.size());
    makeDiffs(from, to, changed, results);
    for (int i = 0; i < changed.size(); ++i) {
        const DiffResult& result = results.at(i);
        if (result.kind == DiffResult::Kind::Failed)
            return result.outcome;
        if (result.kind == DiffResult::Kind::Diff) {
            m_info.patchFiles.insert(result.diff.path, result.diff);
            continue;
        }
        if (!result.note.isEmpty() && m_onNotice)
            m_onNotice(result.note);
        const Outcome added = addWhole(to, changed.at(i));
        if (!added.ok())
            return added;
    }

    Outcome outcome = FileStaging::WriteTextFile(
        QDir(m_packageDir).filePath(kPatchInfoName), Morvantix::WritePatchInfo(m_info));
    if (!outcome.ok())
        return outcome;
    QStringList contents { kPatchInfoName };
    contents << m_info.newFiles.keys() << m_info.patchFiles.keys();
    std::sort(contents.begin() + 1, contents.end());
    QStringList written;
    outcome = m_archiver.pack(m_packageDir, contents, archivePath, 0, written);
    QDir(m_packageDir).removeRecursively();
    return outcome;
}

Outcome PatchBuilder::addWhole(const StagedVersion& to, const QString& rel)
{
    m_info.newFiles.insert(rel, to.files.value(rel));
    return FileStaging::LinkOrCopy(QDir(to.filesDir).filePath(rel), QDir(m_packageDir).filePath(rel));
}

QString PatchBuilder::diffFileOf(const QString& rel) const
{
    return QDir(m_packageDir).filePath(rel + kDiffSuffix);
}

Outcome PatchBuilder::makeDiffFolders(const QStringList& changed) const
{
    // Made here, before the workers start: on Windows, Qt's mkpath fails when another thread makes the
    // same parent folder at the same moment.
    for (const QString& rel : changed) {
        const QString folder = QFileInfo(diffFileOf(rel)).absolutePath();
        if (!QDir().mkpath(folder))
            return Outcome::Failure(
                ExitCode::OutputFailed, QStringLiteral("cannot create the folder %1").arg(folder));
    }
    return {};
}

void PatchBuilder::makeDiffs(const StagedVersion& from, const StagedVersion& to, const QStringList& changed,
    QVector<DiffResult>& results)
{
    // Both workers take the next file as they finish one; this thread is one of them and reports.
    std::atomic<int> next { 0 };
    std::atomic<int> done { 0 };
    const auto work = [&](int worker) {
        const QString proofFile = QDir(m_workDir).filePath(QStringLiteral("proof-%1.bin").arg(worker));
        for (int i = next++; i < changed.size(); i = next++) {
            results[i] = makeDiff(from, to, changed.at(i), proofFile);
            ++done;
            if (worker == 0 && m_onProgress)
                m_onProgress(done, changed.size());
        }
    };
    std::vector<std::thread> helpers;
    for (int worker = 1; worker < qMin(m_workers, changed.size()); ++worker)
        helpers.emplace_back(work, worker);
    work(0);
    for (std::thread& helper : helpers)
        helper.join();
}

PatchBuilder::DiffResult PatchBuilder::makeDiff(
    const StagedVersion& from, const StagedVersion& to, const QString& rel, const QString& proofFile) const
{
    DiffResult result;
    const ManifestFileInfo& target = to.files.find(rel).value();
    if (target.size == 0 || from.files.value(rel).size == 0 || !MayTravelAsDiff(rel, m_lowerCasePaths))
        return result;

    const QString oldFile = QDir(from.filesDir).filePath(rel);
    const QString newFile = QDir(to.filesDir).filePath(rel);
    const QString diffName = rel + kDiffSuffix;
    const QString diffFile = diffFileOf(rel);
    Outcome outcome = m_diffTool.encode(oldFile, newFile, diffFile);
    if (outcome.code == ExitCode::OutputFailed) {
        result.kind = DiffResult::Kind::Failed;
        result.outcome = outcome;
        return result;
    }
    // A patch must never cost more than the file it replaces.
    const qint64 diffSize = QFileInfo(diffFile).size();
    if (outcome.ok() && quint64(diffSize) >= target.size) {
        QFile::remove(diffFile);
        return result;
    }

    // Proven before it is published: the diff applied to the old file gives the new one, bit for bit.
    QString proofMd5;
    if (outcome.ok())
        outcome = m_diffTool.decode(oldFile, diffFile, proofFile);
    if (outcome.ok())
        outcome = FileStaging::Md5Of(proofFile, proofMd5);
    QFile::remove(proofFile);
    if (!outcome.ok() || proofMd5 != target.md5) {
        QFile::remove(diffFile);
        result.note
            = QStringLiteral("%1 goes whole from %2 to %3: its diff does not rebuild it%4")
                  .arg(rel, from.text, to.text,
                      outcome.ok() ? QString() : QStringLiteral(" (") + outcome.text + QLatin1Char(')'));
        return result;
    }
    QString diffMd5;
    outcome = FileStaging::Md5Of(diffFile, diffMd5);
    if (!outcome.ok()) {
        result.kind = DiffResult::Kind::Failed;
        result.outcome = outcome;
        return result;
    }
    result.kind = DiffResult::Kind::Diff;
    result.diff = { diffName, diffMd5, quint64(diffSize) };
    return result;
}

} // namespace Publish

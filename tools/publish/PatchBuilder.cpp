#include "PatchBuilder.h"

#include "Archiver.h"
#include "DiffTool.h"
#include "FileStaging.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>

using Morvantix::ManifestFileInfo;

namespace Publish {

namespace {

const QString kDiffSuffix = QStringLiteral(".patch");
const QString kPatchInfoName = QStringLiteral("manifest.txt");

} // namespace

PatchBuilder::PatchBuilder(const DiffTool& diffTool, const Archiver& archiver, const QString& workDir)
    : m_diffTool(diffTool)
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
    for (int i = 0; i < changed.size(); ++i) {
        if (m_onProgress)
            m_onProgress(i, changed.size());
        const Outcome added = addChanged(from, to, changed.at(i));
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

Outcome PatchBuilder::addChanged(const StagedVersion& from, const StagedVersion& to, const QString& rel)
{
    const ManifestFileInfo& target = to.files.find(rel).value();
    if (target.size == 0 || from.files.value(rel).size == 0 || !MayTravelAsDiff(rel, m_lowerCasePaths))
        return addWhole(to, rel);

    const QString oldFile = QDir(from.filesDir).filePath(rel);
    const QString newFile = QDir(to.filesDir).filePath(rel);
    const QString diffName = rel + kDiffSuffix;
    const QString diffFile = QDir(m_packageDir).filePath(diffName);
    if (!QDir().mkpath(QFileInfo(diffFile).absolutePath()))
        return Outcome::Failure(
            ExitCode::OutputFailed, QStringLiteral("cannot create the folder of %1").arg(diffFile));
    Outcome outcome = m_diffTool.encode(oldFile, newFile, diffFile);
    if (!outcome.ok())
        return outcome;
    // A patch must never cost more than the file it replaces.
    const qint64 diffSize = QFileInfo(diffFile).size();
    if (quint64(diffSize) >= target.size) {
        QFile::remove(diffFile);
        return addWhole(to, rel);
    }

    // Proven before it is published: the diff applied to the old file gives the new one, bit for bit.
    const QString proofFile = QDir(m_workDir).filePath(QStringLiteral("proof.bin"));
    outcome = m_diffTool.decode(oldFile, diffFile, proofFile);
    QString proofMd5;
    if (outcome.ok())
        outcome = FileStaging::Md5Of(proofFile, proofMd5);
    QFile::remove(proofFile);
    if (!outcome.ok() || proofMd5 != target.md5) {
        return Outcome::Failure(ExitCode::ProofFailed,
            QStringLiteral("the diff of %1 from %2 to %3 does not rebuild the file%4")
                .arg(
                    rel, from.text, to.text, outcome.ok() ? QString() : QStringLiteral(": ") + outcome.text));
    }
    QString diffMd5;
    outcome = FileStaging::Md5Of(diffFile, diffMd5);
    if (!outcome.ok())
        return outcome;
    m_info.patchFiles.insert(diffName, { diffName, diffMd5, quint64(diffSize) });
    return {};
}

} // namespace Publish

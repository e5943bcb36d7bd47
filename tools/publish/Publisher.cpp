#include "Publisher.h"

#include "Archiver.h"
#include "ChannelSigner.h"
#include "DiffTool.h"
#include "FileStaging.h"
#include "InfoDocument.h"
#include "KeyFile.h"
#include "PreviousOutput.h"
#include "files/QFileUtils.h"
#include "files/SafePath.h"
#include "install/ExternalTools.h"
#include "planning/GuideManifestReader.h"

#include <QCoreApplication>
#include <QDateTime>
#include <QDir>
#include <QFileInfo>
#include <QJsonDocument>
#include <QJsonObject>
#include <QThread>

using Morvantix::ManifestFileMap;
using Morvantix::PatchEntry;
using Morvantix::PatchFileInfo;

namespace Publish {

namespace {

Outcome outputFailure(const QString& text)
{
    return Outcome::Failure(ExitCode::OutputFailed, text);
}

// The options that shape the packages' bytes, kept in OUTPUT: a package made with others is made again.
const QString kLevelKey = QStringLiteral("level");
const QString kPartSizeKey = QStringLiteral("partSize");

QJsonObject settingsOf(const PublishOptions& options)
{
    return { { QStringLiteral("level"), options.level },
        { QStringLiteral("partSize"), double(options.partSize) } };
}

} // namespace

Publisher::Publisher(const PublishOptions& options, QObject* parent)
    : QObject(parent)
    , m_options(options)
{ }

Publisher::~Publisher() = default;

QString Publisher::stagedPath(const QString& rel) const
{
    return QDir(m_staging->path()).filePath(rel);
}

std::function<void(qint64)> Publisher::byteProgress(qint64 total)
{
    auto done = std::make_shared<qint64>(0);
    auto shown = std::make_shared<int>(-1);
    return [this, total, done, shown](qint64 bytes) {
        *done += bytes;
        const int percent = total > 0 ? int(*done * 100 / total) : 100;
        if (percent != *shown) {
            *shown = percent;
            emit percentChanged(percent);
        }
    };
}

Outcome Publisher::run()
{
    Outcome outcome = prepare();
    QVector<VersionSource> sources;
    if (outcome.ok()) {
        emit stepStarted(QStringLiteral("reading %1").arg(m_options.versionsDir));
        outcome = ScanVersions(m_options.versionsDir, sources);
    }
    if (outcome.ok())
        outcome = writeInfoDocument();
    QVector<StagedVersion> versions(sources.size());
    QVector<bool> unchanged(sources.size());
    for (int i = 0; outcome.ok() && i < sources.size(); ++i) {
        bool bUnchanged = false;
        outcome = stageVersion(sources.at(i), versions[i], bUnchanged);
        unchanged[i] = bUnchanged;
    }
    // Full packages first: a patch package is only published when it is smaller than the full
    // package of its target. The guide manifest still lists the patches first.
    Morvantix::GuideManifestInfo guide;
    QVector<PatchEntry> fullPackages;
    if (outcome.ok())
        outcome = publishFullPackages(versions, unchanged, fullPackages);
    if (outcome.ok())
        outcome = publishPatches(versions, unchanged, fullPackages, guide.patchList);
    guide.patchList += fullPackages;
    if (outcome.ok()) {
        guide.lastVersion = versions.last().text;
        outcome = writeDocuments(guide);
    }
    if (outcome.ok() && m_signer) {
        QStringList versionTexts;
        for (const StagedVersion& version : versions)
            versionTexts << version.text;
        emit stepStarted(QStringLiteral("signing the channel"));
        outcome = m_signer->sign(m_staging->path(), ChannelSigner::SignedPaths(guide, versionTexts),
            ChannelSigner::PublishedSerial(m_outputDir), QDateTime::currentDateTimeUtc());
    }
    if (outcome.ok())
        outcome = moveIntoPlace();
    return outcome;
}

Outcome Publisher::publishPatches(const QVector<StagedVersion>& versions, const QVector<bool>& unchanged,
    const QVector<PatchEntry>& fullPackages, QVector<PatchEntry>& entries)
{
    // Two diffs at once where there are two cores, each with half of the budget.
    const int workers = qBound(1, QThread::idealThreadCount(), 2);
    const DiffTool diffTool(m_options.memoryBudget / workers);
    PatchBuilder builder(diffTool, workers, *m_archiver, m_workDir);
    builder.setProgressCallback([this](int done, int total) { emit percentChanged(done * 100 / total); });
    builder.setNoticeCallback([this](const QString& text) { emit noticed(text); });
    for (int to = 1; to < versions.size(); ++to) {
        for (int from = qMax(0, to - m_options.patchDistance); from < to; ++from) {
            const StagedVersion& a = versions.at(from);
            const StagedVersion& b = versions.at(to);
            PatchEntry entry;
            const Outcome outcome = publishPackage(
                a.text, b.text, unchanged.at(from) && unchanged.at(to) && m_bSameLevel,
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

bool Publisher::isWorthPublishing(const PatchEntry& patch, const PatchEntry& fullPackage)
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
    emit noticed(QStringLiteral("%1 -> %2: patch left out, %3 bytes where the full package of %2 has %4")
                     .arg(patch.fromVersion, patch.toVersion)
                     .arg(patchSize)
                     .arg(fullSize));
    return false;
}

Outcome Publisher::publishFullPackages(
    const QVector<StagedVersion>& versions, const QVector<bool>& unchanged, QVector<PatchEntry>& entries)
{
    for (int i = 0; i < versions.size(); ++i) {
        const StagedVersion& version = versions.at(i);
        PatchEntry entry;
        const Outcome outcome = publishPackage(
            version.text, version.text, unchanged.at(i) && m_bSameLevel && m_bSameParts,
            QStringLiteral("full/%1/full_%1.7z").arg(version.text),
            [&](const QString& archivePath, QStringList& written) {
                return m_archiver->pack(version.filesDir, version.files.keys() + version.emptyFolders,
                    archivePath, m_options.partSize, written);
            },
            entry);
        if (!outcome.ok())
            return outcome;
        entries.append(entry);
    }
    return {};
}

Outcome Publisher::prepare()
{
    m_sevenZip = ExternalTools::SevenZipPath();
    if (m_sevenZip.isEmpty())
        return Outcome::Failure(ExitCode::MissingTool,
            QStringLiteral("7-Zip not found: put 7z beside core-publish or on the search path"));

    if (!m_options.signingKeyPath.isEmpty()) {
        QByteArray secretKey;
        const Outcome outcome = KeyFile::ReadSecretKey(m_options.signingKeyPath, secretKey);
        if (!outcome.ok())
            return outcome;
        m_signer = std::make_unique<ChannelSigner>(secretKey, m_options.expiresDays);
    }

    const QString versionsDir = QDir::cleanPath(QFileInfo(m_options.versionsDir).absoluteFilePath());
    m_outputDir = QDir::cleanPath(QFileInfo(m_options.outputDir).absoluteFilePath());
    if (SafePath::IsInsideFolder(versionsDir, m_outputDir)
        || SafePath::IsInsideFolder(m_outputDir, versionsDir))
        return Outcome::Failure(ExitCode::Usage, QStringLiteral("VERSIONS and OUTPUT must lie apart"));
    const QFileInfo output(m_outputDir);
    if (output.exists() && (!output.isDir() || output.isSymbolicLink()))
        return outputFailure(QStringLiteral("%1 is no folder").arg(m_outputDir));

    m_previous = std::make_unique<PreviousOutput>(m_outputDir);
    if (m_previous->holdsAnything()) {
        if (!m_previous->isChannelRoot())
            return outputFailure(
                QStringLiteral("%1 is not empty and holds no guide manifest: it is no channel root "
                               "and will not be replaced")
                    .arg(m_outputDir));
        const QStringList foreign = m_previous->foreignEntries();
        if (!foreign.isEmpty())
            return outputFailure(
                QStringLiteral("%1 holds %2, which core-publish does not write; move it away first")
                    .arg(m_outputDir, foreign.join(QStringLiteral(", "))));
    }
    const QJsonObject settings = settingsOf(m_options);
    m_bSameLevel = m_previous->settings().value(kLevelKey) == settings.value(kLevelKey);
    m_bSameParts = m_previous->settings().value(kPartSizeKey) == settings.value(kPartSizeKey);

    // Beside OUTPUT, so the finished channel moves into place by renaming, on the same file system.
    const QString parent = QFileInfo(m_outputDir).absolutePath();
    if (!QDir().mkpath(parent))
        return outputFailure(QStringLiteral("cannot create %1").arg(parent));
    m_staging = std::make_unique<QTemporaryDir>(
        QDir(parent).filePath(QStringLiteral(".%1.publishing-XXXXXX").arg(output.fileName())));
    if (!m_staging->isValid())
        return outputFailure(
            QStringLiteral("cannot create a staging folder in %1: %2").arg(parent, m_staging->errorString()));
    // The server reads what the operator's account writes; a temporary folder starts private.
    QFile::setPermissions(m_staging->path(),
        QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner | QFile::ReadGroup | QFile::ExeGroup
            | QFile::ReadOther | QFile::ExeOther);
    m_workDir = stagedPath(QStringLiteral(".work"));
    if (!QDir().mkpath(m_workDir))
        return outputFailure(QStringLiteral("cannot create %1").arg(m_workDir));
    m_archiver = std::make_unique<Archiver>(m_sevenZip, m_options.level, m_workDir);
    m_archiver->setPercentCallback([this](int percent) { emit percentChanged(percent); });
    return {};
}

Outcome Publisher::writeInfoDocument()
{
    QString templateText = InfoDocument::DefaultTemplate();
    if (!m_options.infoTemplatePath.isEmpty()) {
        QFile file(m_options.infoTemplatePath);
        if (!file.open(QIODevice::ReadOnly))
            return Outcome::Failure(ExitCode::BadInput,
                QStringLiteral("cannot read the info template %1: %2")
                    .arg(file.fileName(), file.errorString()));
        templateText = QString::fromUtf8(file.readAll());
    }
    QString json;
    QStringList ignored;
    const Outcome outcome = InfoDocument::FromTemplate(templateText, json, ignored);
    if (!outcome.ok())
        return outcome;
    for (const QString& key : ignored)
        emit noticed(
            QStringLiteral("the info template's key \"%1\" is not read by the launcher and is left out")
                .arg(key));
    return FileStaging::WriteTextFile(stagedPath(QStringLiteral("info.json")), json);
}

Outcome Publisher::stageVersion(const VersionSource& source, StagedVersion& staged, bool& bUnchanged)
{
    staged.text = source.text;
    staged.filesDir = stagedPath(source.text + QStringLiteral("/files"));
    staged.emptyFolders = source.emptyFolders;
    for (const QString& folder : source.emptyFolders) {
        if (!QDir().mkpath(QDir(staged.filesDir).filePath(folder)))
            return outputFailure(QStringLiteral("cannot create %1 in %2").arg(folder, staged.filesDir));
    }
    const QString published = m_previous->fileListText(source.text);
    bUnchanged = false;
    if (published.isEmpty())
        return copyVersion(source, staged);

    qint64 total = 0;
    for (const SourceFile& file : source.files)
        total += file.size;
    emit stepStarted(QStringLiteral("%1: comparing with the published version").arg(source.text));
    const auto onBytes = byteProgress(total);
    for (const SourceFile& file : source.files) {
        QString md5;
        const Outcome outcome = FileStaging::Md5Of(file.path, md5, onBytes);
        if (!outcome.ok())
            return outcome;
        staged.files.insert(file.rel, { file.rel, md5, quint64(file.size) });
    }
    // An empty folder is part of the version too: a new one alone makes the full package again.
    if (FileStaging::FileListText(staged.files) != published
        || m_previous->emptyFolders(source.text) != source.emptyFolders) {
        staged.files.clear();
        return copyVersion(source, staged);
    }
    // Unchanged: the published loose files are taken over, each checked by its size.
    for (const SourceFile& file : source.files) {
        const QString old = m_previous->filePath(source.text + QStringLiteral("/files/") + file.rel);
        const QString target = QDir(staged.filesDir).filePath(file.rel);
        Outcome outcome;
        if (QFileInfo(old).isFile() && QFileInfo(old).size() == file.size) {
            outcome = FileStaging::LinkOrCopy(old, target);
        } else {
            QString md5;
            outcome = FileStaging::CopyWithMd5(file.path, target, file.bExecutable, md5);
            if (outcome.ok() && md5 != staged.files.value(file.rel).md5)
                outcome = Outcome::Failure(
                    ExitCode::BadInput, QStringLiteral("%1 changed while it was published").arg(file.path));
        }
        if (!outcome.ok())
            return outcome;
    }
    bUnchanged = true;
    return FileStaging::WriteTextFile(stagedPath(source.text + QStringLiteral("/manifest.txt")), published);
}

Outcome Publisher::copyVersion(const VersionSource& source, StagedVersion& staged)
{
    qint64 total = 0;
    for (const SourceFile& file : source.files)
        total += file.size;
    emit stepStarted(QStringLiteral("%1: copying %2 files, %3 MB")
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

Outcome Publisher::publishPackage(const QString& from, const QString& to, bool bReusable,
    const QString& archiveRel, const std::function<Outcome(const QString&, QStringList&)>& make,
    PatchEntry& entry)
{
    entry.fromVersion = from;
    entry.toVersion = to;
    const QString what = from == to ? QStringLiteral("%1: full package").arg(to)
                                    : QStringLiteral("%1 -> %2: patch").arg(from, to);
    QVector<PatchFileInfo> published;
    if (bReusable && m_previous->package(from, to, published)) {
        const bool sameNames
            = std::all_of(published.begin(), published.end(), [&](const PatchFileInfo& file) {
                  return file.path == archiveRel || file.path.startsWith(archiveRel + QLatin1Char('.'));
              });
        for (int i = 0; sameNames && i < published.size(); ++i) {
            const Outcome outcome = FileStaging::LinkOrCopy(
                m_previous->filePath(published.at(i).path), stagedPath(published.at(i).path));
            if (!outcome.ok())
                return outcome;
        }
        if (sameNames) {
            emit stepStarted(what + QStringLiteral(" unchanged"));
            entry.files = published;
            return {};
        }
    }

    emit stepStarted(what);
    QStringList written;
    Outcome outcome = make(stagedPath(archiveRel), written);
    if (!outcome.ok())
        return outcome;
    for (const QString& path : written) {
        PatchFileInfo file;
        outcome = FileStaging::Md5Of(path, file.md5);
        if (!outcome.ok())
            return outcome;
        file.path = QDir(m_staging->path()).relativeFilePath(path);
        file.size = quint64(QFileInfo(path).size());
        entry.files.append(file);
    }
    return {};
}

Outcome Publisher::writeDocuments(const Morvantix::GuideManifestInfo& guide)
{
    emit stepStarted(QStringLiteral("writing the guide manifest"));
    const Outcome outcome = FileStaging::WriteTextFile(stagedPath(PreviousOutput::SettingsName()),
        QString::fromUtf8(QJsonDocument(settingsOf(m_options)).toJson()));
    if (!outcome.ok())
        return outcome;
    return FileStaging::WriteTextFile(
        stagedPath(QStringLiteral("manifest.txt")), Morvantix::WriteGuideManifest(guide));
}

bool Publisher::removeWorkFolder() const
{
#ifdef Q_OS_WIN
    // 7-Zip ran in a package folder there; a process's current folder cannot be removed until the
    // system has closed it, which may come a moment after the process is seen to end.
    for (int attempt = 0; attempt < 50; ++attempt) {
        if (QDir(m_workDir).removeRecursively())
            return true;
        QThread::msleep(100);
    }
    return false;
#else
    return QDir(m_workDir).removeRecursively();
#endif
}

Outcome Publisher::moveIntoPlace()
{
    if (!removeWorkFolder())
        return outputFailure(QStringLiteral("cannot remove %1").arg(m_workDir));
    QString aside;
    if (QFileInfo::exists(m_outputDir)) {
        const QFileInfo output(m_outputDir);
        QTemporaryDir asideDir(QDir(output.absolutePath())
                                   .filePath(QStringLiteral(".%1.previous-XXXXXX").arg(output.fileName())));
        asideDir.setAutoRemove(false);
        aside = asideDir.path();
        // The name is taken; the empty folder gives way to the old channel root.
        if (!asideDir.isValid() || !QDir().rmdir(aside) || !QDir().rename(m_outputDir, aside))
            return outputFailure(QStringLiteral("cannot move the old %1 aside").arg(m_outputDir));
    }
    if (!QDir().rename(m_staging->path(), m_outputDir)) {
        if (!aside.isEmpty())
            QDir().rename(aside, m_outputDir);
        return outputFailure(QStringLiteral("cannot move the new channel root into %1").arg(m_outputDir));
    }
    m_staging->setAutoRemove(false);
    if (!aside.isEmpty() && !QDir(aside).removeRecursively())
        emit noticed(QStringLiteral("could not remove the old channel root, now at %1").arg(aside));
    emit stepStarted(QStringLiteral("published %1").arg(m_outputDir));
    return {};
}

} // namespace Publish

#include "Publisher.h"

#include "Archiver.h"
#include "ChannelSigner.h"
#include "FileStaging.h"
#include "InfoDocument.h"
#include "KeyFile.h"
#include "PackagePublisher.h"
#include "PreviousOutput.h"
#include "VersionFolders.h"
#include "VersionStager.h"
#include "files/SafePath.h"
#include "install/ExternalTools.h"
#include "planning/GuideManifestReader.h"

#include <QDateTime>
#include <QDir>
#include <QFileInfo>
#include <QJsonDocument>
#include <QJsonObject>
#include <QThread>

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
    , m_progress { [this](const QString& what) { emit stepStarted(what); },
        [this](int percent) { emit percentChanged(percent); },
        [this](const QString& text) { emit noticed(text); } }
{ }

Publisher::~Publisher() = default;

QString Publisher::stagedPath(const QString& rel) const
{
    return QDir(m_staging->path()).filePath(rel);
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
    if (outcome.ok())
        outcome = stageVersions(sources, versions, unchanged);
    Morvantix::GuideManifestInfo guide;
    if (outcome.ok()) {
        const PackagePublisher packages(
            m_options, m_staging->path(), m_workDir, *m_previous, *m_archiver, m_sameSettings, m_progress);
        outcome = packages.publish(versions, unchanged, guide.patchList);
    }
    if (outcome.ok()) {
        guide.lastVersion = versions.last().text;
        outcome = writeDocuments(guide);
    }
    if (outcome.ok() && m_signer)
        outcome = sign(guide, versions);
    if (outcome.ok())
        outcome = moveIntoPlace();
    return outcome;
}

Outcome Publisher::stageVersions(
    const QVector<VersionSource>& sources, QVector<StagedVersion>& versions, QVector<bool>& unchanged)
{
    const VersionStager stager(m_staging->path(), *m_previous, m_progress);
    for (int i = 0; i < sources.size(); ++i) {
        bool bUnchanged = false;
        const Outcome outcome = stager.stage(sources.at(i), versions[i], bUnchanged);
        if (!outcome.ok())
            return outcome;
        unchanged[i] = bUnchanged;
    }
    return {};
}

Outcome Publisher::sign(const Morvantix::GuideManifestInfo& guide, const QVector<StagedVersion>& versions)
{
    QStringList versionTexts;
    for (const StagedVersion& version : versions)
        versionTexts << version.text;
    emit stepStarted(QStringLiteral("signing the channel"));
    return m_signer->sign(m_staging->path(), ChannelSigner::SignedPaths(guide, versionTexts),
        ChannelSigner::PublishedSerial(m_outputDir), QDateTime::currentDateTimeUtc());
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
    m_sameSettings.bLevel = m_previous->settings().value(kLevelKey) == settings.value(kLevelKey);
    m_sameSettings.bPartSize = m_previous->settings().value(kPartSizeKey) == settings.value(kPartSizeKey);

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

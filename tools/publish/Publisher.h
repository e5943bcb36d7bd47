#pragma once

#include "CommandLine.h"
#include "Outcome.h"
#include "PatchBuilder.h"
#include "VersionFolders.h"
#include "planning/GuideManifestInfo.h"

#include <QObject>
#include <QTemporaryDir>

#include <memory>

namespace Publish {

class Archiver;
class ChannelSigner;
class PreviousOutput;

// Publishes a folder of game versions as a channel root. Everything is made in a staging folder beside
// OUTPUT and moved into place only when all of it is done, so a failure leaves OUTPUT as it was.
// Reports what it does through its signals and prints nothing.
class Publisher : public QObject
{
    Q_OBJECT
public:
    explicit Publisher(const PublishOptions& options, QObject* parent = nullptr);
    ~Publisher() override;

    Outcome run();

signals:
    void stepStarted(const QString& what);
    void percentChanged(int percent);
    void noticed(const QString& text);

private:
    Outcome prepare();
    Outcome writeInfoDocument();
    Outcome stageVersion(const VersionSource& source, StagedVersion& staged, bool& bUnchanged);
    Outcome copyVersion(const VersionSource& source, StagedVersion& staged);
    Outcome publishPatches(const QVector<StagedVersion>& versions, const QVector<bool>& unchanged,
        const QVector<Morvantix::PatchEntry>& fullPackages, QVector<Morvantix::PatchEntry>& entries);
    // Whether a patch package is smaller than the full package of its target; one that is not is
    // removed with a notice, since the host would rather download the full package.
    bool isWorthPublishing(const Morvantix::PatchEntry& patch, const Morvantix::PatchEntry& fullPackage);
    Outcome publishFullPackages(const QVector<StagedVersion>& versions, const QVector<bool>& unchanged,
        QVector<Morvantix::PatchEntry>& entries);
    // The package from -> to at archiveRel: taken over from OUTPUT when bReusable and still there,
    // else made by make.
    Outcome publishPackage(const QString& from, const QString& to, bool bReusable, const QString& archiveRel,
        const std::function<Outcome(const QString& archivePath, QStringList& written)>& make,
        Morvantix::PatchEntry& entry);
    Outcome writeDocuments(const Morvantix::GuideManifestInfo& guide);
    Outcome moveIntoPlace();
    bool removeWorkFolder() const;

    QString stagedPath(const QString& rel) const;
    std::function<void(qint64)> byteProgress(qint64 total);

    PublishOptions m_options;
    QString m_outputDir;
    QString m_sevenZip;
    QString m_workDir;
    bool m_bSameLevel = false; // as the run that made OUTPUT
    bool m_bSameParts = false;
    std::unique_ptr<QTemporaryDir> m_staging;
    std::unique_ptr<PreviousOutput> m_previous;
    std::unique_ptr<Archiver> m_archiver;
    std::unique_ptr<ChannelSigner> m_signer; // none for an unsigned channel
};

} // namespace Publish

#pragma once

#include "CommandLine.h"
#include "Outcome.h"
#include "PackagePublisher.h"
#include "ProgressSink.h"
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
    // unchanged: per version, whether OUTPUT already publishes it as it is.
    Outcome stageVersions(
        const QVector<VersionSource>& sources, QVector<StagedVersion>& versions, QVector<bool>& unchanged);
    Outcome writeDocuments(const Morvantix::GuideManifestInfo& guide);
    Outcome sign(const Morvantix::GuideManifestInfo& guide, const QVector<StagedVersion>& versions);
    Outcome moveIntoPlace();
    bool removeWorkFolder() const;

    QString stagedPath(const QString& rel) const;

    PublishOptions m_options;
    QString m_outputDir;
    QString m_sevenZip;
    QString m_workDir;
    ProgressSink m_progress; // this publisher's signals, for the parts of the run
    PackagePublisher::SameSettings m_sameSettings;
    std::unique_ptr<QTemporaryDir> m_staging;
    std::unique_ptr<PreviousOutput> m_previous;
    std::unique_ptr<Archiver> m_archiver;
    std::unique_ptr<ChannelSigner> m_signer; // none for an unsigned channel
};

} // namespace Publish

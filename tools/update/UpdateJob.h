#pragma once

#include "CommandLine.h"
#include "JobEvents.h"
#include "PendingWork.h"

#include "core/CallbackInfo.h"
#include "core/GameUpdateContext.h"
#include "install/ManifestFileInfo.h"

#include <QMap>
#include <QObject>

#include <functional>
#include <memory>

class InstallLock;
class RepairJob;
class StageRunner;
class TrustGate;
struct PackageCheck;

// The launcher's loop, headless: reads the settings and the server's documents, plans with the
// library, then chains the stages through the components' callbacks, each end starting the next
// stage. A full install downloads, verifies and unpacks the full package; a patch chain downloads,
// verifies, unpacks, checks for files in use and merges step by step, recording the version reached
// after each step so a later run goes on from there. Both end by verifying the game folder against
// the newest version and repairing what fails. Reports what happens through its signals only.
class UpdateJob : public QObject
{
    Q_OBJECT
public:
    // settingsFolder: where "config.ini" lives (to tell a first run, which has no file yet).
    UpdateJob(const UpdateOptions& options, const QString& settingsFolder, QObject* parent = nullptr);
    ~UpdateJob() override;

    void start();
    // Pauses a running download and ends at once; any other stage ends first (a merge is not left
    // half done). The next run resumes.
    void interrupt();

signals:
    void stageStarted(const StageEvent& event);
    void progressed(const ProgressEvent& event);
    void noticed(const QString& text);
    void planned(const UpdatePlan& plan);
    void finished(const StageResult& result, const JobSummary& summary);

private:
    // Settings and server documents.
    bool takeLock();
    bool readSettings();
    // Writes the versions and then the pending work; false (and the run failed) when it cannot.
    bool saveSettings();
    bool finishInterruptedSwap();
    bool documentTooLarge(int code, const QString& name, qint64 cap);
    void upToDate(const QString& version);
    void openChannel();
    void fetchInfo();
    void onInfo(const QString& text, int code);
    void fetchGuide();
    void decide(const QString& guide);
    void fetchManifests(QStringList versions, std::function<void()> then);
    void planSteps();
    void preferFullPackageWhenSmaller();
    void startRepairJob(bool bRepair);

    // The steps of an install or a patch chain.
    void runStep();
    void downloadPackage();
    void onPackageDownloaded(const Morvantix::DownloadCallbackInfo& info);
    void verifyPackage();
    void onPackageChecked(bool bMd5Failed, const PackageCheck& check);
    void unpackPackage();
    void checkPatchInfo();
    void checkInUse();
    void merge();
    void swapIn();
    bool recordStep();
    void removeStepFiles();
    void pruneCache();
    void verifyGame();
    void onRepairFinished(const StageResult& result, const QStringList& repaired, qint64 downloaded);

    void startStage(Stage stage, const QString& detail);
    bool leaveIfInterrupted();
    void fail(Stage stage, int code, const QString& text, const QString& path = QString());
    void fail(const StageResult& result);
    // False after failing: the document is not as the signed list says.
    bool admit(const QString& path, const QString& text);
    void succeed(Outcome outcome, const QString& message);
    void finish(const StageResult& result);

    Morvantix::DownloadFileInfo firstDownload() const;
    qint64 downloadListBytes() const;
    QString stepName(int index) const;

    UpdateOptions m_options;
    QString m_settingsFolder;
    std::shared_ptr<Morvantix::GameUpdateContext> m_ctx;
    std::unique_ptr<InstallLock> m_lock;
    PendingWork m_pending = PendingWork::None;
    StageRunner* m_stages;
    RepairJob* m_repair;
    TrustGate* m_trust;
    int m_storedLimit = -1; // the settings' own limit, saved back instead of --limit
    Morvantix::UpdateSetting m_settled; // as read, or as the last finished step recorded them
    PendingWork m_settledPending = PendingWork::None; // the pending work recorded with m_settled
    QString m_newest;
    QMap<QString, QString> m_manifests; // verify manifest texts by version
    QVector<PlanStep> m_plan;
    bool m_bFullInstall = false;
    int m_stepIndex = 0;
    bool m_bPackageFetchedAgain = false;
    Stage m_stage = Stage::Settings;
    JobSummary m_summary;
    bool m_bDownloading = false;
    bool m_bRepairRunning = false;
    bool m_bInterrupted = false;
    bool m_bFinished = false;
};

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
    // Where the run is. Before the chain it reads the settings and the server's documents (Prepare);
    // a chain runs Step..Merge once per step (a full install goes Unpack -> Swap instead), then
    // VerifyGame. Beside each state: what it leaves recorded for a run that is stopped there.
    enum class State
    {
        Idle,
        Prepare, // the settings as read are written back first; a pending swap is finished
        Step, // the plan's step; nothing new recorded, the step's partial downloads are kept
        Download, // partial package files stay in the cache for the next run to continue
        VerifyPackage, // parts that fail are deleted and fetched once more
        Unpack, // into the cache (patch) or beside the game (full); the game folder is untouched
        CheckPatch, // the patch package's paths must stay inside the game folder
        CheckInUse,
        Merge, // afterwards: the version reached, with Verify pending
        Swap, // before: Swap pending; afterwards: the new version, with Verify pending
        VerifyGame, // the newest version, repaired where it fails; Verify pending until it passes
        VerifyInstalled, // the verify or repair command on the installed version
        Finished,
    };

    // The one place the run moves on; a state that is not to be entered half-stopped is entered even
    // after an interrupt (see stopsBefore).
    void moveTo(State next);
    static bool stopsBefore(State state);

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
    void startRepairJob();

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
    State m_state = State::Idle;
    bool m_bInterrupted = false;
};

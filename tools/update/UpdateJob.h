#pragma once

#include "CommandLine.h"
#include "JobEvents.h"
#include "UpdatePreparation.h"
#include "UpdateRun.h"

#include "core/CallbackInfo.h"

#include <QObject>

#include <memory>

class InstallLock;
class RepairJob;
class StageRunner;
class StepStages;
class TrustGate;

// The launcher's loop, headless: prepares (the settings, the server's documents, the plan), then
// chains the stages through the components' callbacks, each end starting the next stage. A full install
// downloads, verifies and unpacks the full package; a patch chain downloads, verifies, unpacks, checks for
// files in use and merges step by step, recording the version reached after each step so a later run goes on
// from there. Both end by verifying the game folder against the newest version and repairing what fails.
// Reports what happens through its signals only.
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
        VerifyPackage, // parts that fail are deleted and go to DownloadAgain
        DownloadAgain, // the deleted parts, fetched whole once more; recorded as Download
        VerifyAgain, // a part that fails again fails the step
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

    bool takeLock();
    void onPrepared(UpdatePreparation::Next next);
    void startRepairJob();

    void verifyGame();
    void onRepairFinished(const StageResult& result, const QStringList& repaired, qint64 downloaded);

    bool leaveIfInterrupted();
    void fail(Stage stage, int code, const QString& text, const QString& path = QString());
    void fail(const StageResult& result);
    void succeed(Outcome outcome, const QString& message);
    void finish(const StageResult& result);

    UpdateRun m_run;
    std::unique_ptr<InstallLock> m_lock;
    StageRunner* m_stages;
    RepairJob* m_repair;
    TrustGate* m_trust;
    UpdatePreparation* m_preparation;
    StepStages* m_steps;
    State m_state = State::Idle;
    bool m_bInterrupted = false;
};

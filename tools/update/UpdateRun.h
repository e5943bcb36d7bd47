#pragma once

#include "CommandLine.h"
#include "JobEvents.h"
#include "PendingWork.h"

#include "core/GameUpdateContext.h"
#include "install/ManifestFileInfo.h"

#include <QMap>
#include <QVector>

#include <functional>
#include <memory>

// What one update run knows, shared by the part that reads the settings and documents and the part
// that runs the steps: the options, the job context, the plan and the step reached, and what the run
// keeps in the settings so that a stopped run is taken up by the next one.
class UpdateRun
{
public:
    using FailureSink = std::function<void(const StageResult&)>;

    // settingsFolder: where "config.ini" lives (to tell a first run, which has no file yet).
    // saveFailed: where a settings write that fails is reported, which fails the run.
    UpdateRun(const UpdateOptions& options, const QString& settingsFolder,
        std::shared_ptr<Morvantix::GameUpdateContext> ctx, FailureSink saveFailed);

    bool hasSettingsFile() const;
    // Reads the settings into the context, following the install folder of the options; the text
    // to tell when the settings had followed another folder, whose versions no longer count.
    QString readSettings();
    // The steps for the decision taken (full install or chain) with their disk space needs, kept as
    // the run's plan, and the plan as shown.
    UpdatePlan makePlan();
    // Writes the versions and then the pending work; when it cannot, reports why to the run's sink
    // (once) and returns false, and the caller goes no further.
    bool save() const;
    // What the settings hold now is what a later failure goes back to.
    void settle();
    // A plan made from documents a later check found untrusted is no plan to resume: back to what the
    // last finished step left.
    void restoreSettled();

    // Packages of steps that are recorded, or of a plan a stopped run made, serve nothing any more;
    // the partial files of the step about to be downloaded are kept for resumption.
    void pruneCache() const;
    void removeStepFiles() const;

    Morvantix::DownloadFileInfo firstDownload() const;
    qint64 downloadListBytes() const;
    // What the cache already holds of the download list, each file counted up to its size.
    qint64 presentBytes() const;
    QString stepName(int index) const;
    bool isLastStep() const { return stepIndex + 1 == plan.size(); }

    // The first path of a server's list that would lead outside the game folder; empty if none.
    static QString firstUnsafePath(const Morvantix::ManifestFileMap& files);

    const UpdateOptions options;
    const QString settingsFolder;
    const std::shared_ptr<Morvantix::GameUpdateContext> ctx;
    PendingWork pending = PendingWork::None;
    int storedLimit = -1; // the settings' own limit, saved back instead of --limit
    QString newest;
    QMap<QString, QString> manifests; // verify manifest texts by version
    QVector<PlanStep> plan;
    bool bFullInstall = false;
    int stepIndex = 0;
    Stage stage = Stage::Settings;
    JobSummary summary;

private:
    StageResult write() const;

    const FailureSink m_saveFailed;
    Morvantix::UpdateSetting m_settled; // as read, or as the last finished step recorded them
    PendingWork m_settledPending = PendingWork::None; // the pending work recorded with m_settled
};

#pragma once

#include "JobEvents.h"

#include "core/CallbackInfo.h"
#include "core/GameUpdateContext.h"
#include "install/ManifestFileInfo.h"

#include <QObject>

class StageRunner;

// Verifies the game folder against a version's verify manifest and, for a repair, fetches again only
// the files that fail: download into the cache, check the copies, make sure no game file is in use,
// copy them in with the patcher's add step, verify the whole folder again. A cached copy that fails
// its check is fetched once more from scratch before the repair gives up.
class RepairJob : public QObject
{
    Q_OBJECT
public:
    RepairJob(StageRunner* stages, Morvantix::GameUpdateContext& ctx, QObject* parent = nullptr);

    // bRepair false: verify only. bDryRun: verify, then report what a repair would fetch.
    void start(const QString& manifest, const QString& version, bool bRepair, bool bDryRun);
    // Pauses a running download at once; any other stage is left at its end.
    void interrupt();

signals:
    void stageStarted(const StageEvent& event);
    void planned(const UpdatePlan& plan);
    void finished(const StageResult& result, const QStringList& repairedFiles, qint64 downloadedBytes);

private:
    // A repair goes down this list; a dry run or a verify only stops after VerifyGame. A cached copy
    // that fails its check sends the repair back once through Refetch, and CopyIn ends in Reverify.
    enum class State
    {
        Idle,
        VerifyGame,
        Fetch, // downloads every file that failed
        VerifyCopies,
        Refetch, // downloads again, from scratch, the copies that failed their check
        CheckInUse,
        CopyIn,
        Reverify, // the whole folder once more, after the copies are in
        Finished,
    };

    // The one place the repair moves on: leaves if interrupted, else starts `next`.
    void moveTo(State next);
    bool isDownloading() const { return m_state == State::Fetch || m_state == State::Refetch; }

    void verifyGame();
    void onGameVerified(const Morvantix::VerifyCallbackInfo& info);
    void fetchFiles();
    void onFetched(const Morvantix::DownloadCallbackInfo& info);
    void verifyCopies();
    void onCopiesVerified(const Morvantix::VerifyCallbackInfo& info);
    void checkInUse();
    void copyIn();

    void startStage(Stage stage, const QString& detail);
    bool leaveIfInterrupted();
    void fail(Stage stage, int code, const QString& text, const QString& path = QString());
    void fail(const StageResult& result);
    void succeed();

    StageRunner* m_stages;
    Morvantix::GameUpdateContext& m_ctx;
    QString m_manifestText;
    Morvantix::ManifestFileMap m_manifest;
    QString m_version;
    State m_state = State::Idle;
    QStringList m_files; // the files being repaired
    QStringList m_fetchList; // what Fetch or Refetch downloads: all of m_files, or the failed copies
    Stage m_stage = Stage::VerifyGame;
    qint64 m_downloadedBytes = 0;
    bool m_bRepair = false;
    bool m_bDryRun = false;
    bool m_bRefetched = false; // what VerifyCopies checks came from Refetch: no third round
    bool m_bInterrupted = false;
};

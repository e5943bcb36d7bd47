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
    void verifyGame();
    void onGameVerified(const Morvantix::VerifyCallbackInfo& info);
    void fetchFiles(const QStringList& files, bool bFresh);
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
    QStringList m_files; // the files being repaired
    Stage m_stage = Stage::VerifyGame;
    qint64 m_downloadedBytes = 0;
    bool m_bRepair = false;
    bool m_bDryRun = false;
    bool m_bFreshRound = false; // the second fetch of copies that failed their check
    bool m_bCopied = false;
    bool m_bDownloading = false;
    bool m_bInterrupted = false;
    bool m_bRunning = false;
};

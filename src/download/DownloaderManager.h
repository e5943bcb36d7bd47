#pragma once

#include "core/CallbackInfo.h"
#include "core/CoreExport.h"
#include "core/GameUpdateContext.h"
#include "download/DownloadReport.h"
#include "download/RestartBudget.h"
#include "download/SpeedMeter.h"
#include "download/TransferPacer.h"
#include "download/TransferQueue.h"

#include <QMap>
#include <QObject>
#include <QSet>
#include <QSharedPointer>
#include <QString>
#include <QUrl>

#include <functional>

class ContentFetcher;
class QNetworkAccessManager;
class QTimer;

// Downloads the file list of the current job, at most five files at a time, resuming partial files.
// Bytes are pulled out of the transfers by one paced loop shared by all of them, which is where the
// speed limit acts. A stall fails the job; a network failure after data had flowed restarts every
// transfer a few times before it does. Exactly one completion or failure is reported per run.
//
// It also serves the small one-shot fetches of the library: texts with retries, images, headers.
// Everything runs in the thread of the host's event loop.
//
// The manager decides when a job starts, restarts and ends; its parts do the rest: the files, their
// states and the order their transfers start in (TransferQueue), the pace of the loop, the limit and the
// job's clocks (TransferPacer), the figures reported (SpeedMeter), the one-shot fetches (ContentFetcher),
// where the files go and what they hold (DownloadFolder), how often a failed job restarts
// (RestartBudget) and what the caller is told (DownloadReport).
class CORE_EXPORT DownloaderManager : public QObject
{
    Q_OBJECT
public:
    static DownloaderManager* GetInstance();
    ~DownloaderManager() override;

    void RegistCallbackFunc(std::function<void(Morvantix::DownloadCallbackInfo&)> callback);
    void StartDownload(Morvantix::GameUpdateContext& ctx);
    void ResumeDownload(Morvantix::GameUpdateContext& ctx);
    void PauseDownload(Morvantix::GameUpdateContext& ctx);
    void PreStartDownload(Morvantix::GameUpdateContext& ctx);
    void StartNextDownload();
    void SetSpeedLimit();

    void ClearContentVector();
    // maxBytes: the fetch fails with ContentTooLarge, without retries, once more has arrived.
    void GetContentByUrl(QString url, std::function<void(const QString&, int)> callback,
        const QString& postData, bool sync, qint64 maxBytes = -1);
    void GetImageByUrl(QString url, std::function<void(const char* data, int size)> callback);
    void GetHeaderByUrl(
        QString url, const QSet<QString>& keys, std::function<void(const QMap<QString, QString>&)> callback);
    void PrivateGetContentByUrl(int index);

public slots:
    void transfer();
    void scheduleTransfer();

private slots:
    void onTimeout();
    void onCalcSpeed();
    void onReadyRead();
    void onDownloadResult(Morvantix::ErrorCode code, QString errStr, QString filename);
    void onError(Morvantix::ErrorCode errorCodem, QString errString);

private:
    explicit DownloaderManager(QObject* parent);

    // A fresh run discards every partial file; a resumed one continues them.
    void BeginRun(Morvantix::GameUpdateContext& ctx, bool bFresh);
    void FinishDownload();
    // A transfer for the file, wired to the manager; the queue starts it.
    QSharedPointer<downloader> PrivateStartRequest(const Morvantix::DownloadFileInfo& file);
    void OnTransferOpened(const Morvantix::DownloadFileInfo& file, qint64 bytesOnDisk);
    void PrivateSetSpeedLimit();
    void RestartAfterFailure();
    void HandleNetworkFailure(const QString& errStr);

    // Where the job stands.
    enum class JobState
    {
        Stopped, // not started, paused, failed or complete: nothing starts and nothing is reported
        Running, // files start as slots free up
        RestartDue, // a network failure let every transfer go; the restart timer resumes the list
    };
    void MoveTo(JobState next);

    static DownloaderManager* m_pDownloaderInstance;

    DownloadReport m_report; // the callback, its record, and the one ending of each run
    QSharedPointer<QNetworkAccessManager> m_networkManager;
    QSharedPointer<QTimer> m_restartTimer;
    JobState m_state = JobState::Stopped;
    QUrl m_downloadUrl;
    TransferQueue m_queue; // the waiting files and the running transfers
    QString m_filePath;
    qint64 m_fileSize = 0;
    ContentFetcher* m_fetcher = nullptr; // a child: it goes with the manager
    SpeedMeter m_meter; // the byte counts and the speed record
    TransferPacer m_pacer; // the limit, the transfer loop's clock, the stall and sample timers
    RestartBudget m_restarts { 3 }; // the restarts after network failures, and the fetches' retries
};

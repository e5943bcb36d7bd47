#pragma once

#include "core/CallbackInfo.h"
#include "core/CoreExport.h"
#include "core/GameUpdateContext.h"
#include "download/ContentFetcher.h"
#include "download/SpeedMeter.h"
#include "download/TransferPacer.h"
#include "download/TransferQueue.h"

#include <QMap>
#include <QObject>
#include <QSet>
#include <QSharedPointer>
#include <QString>
#include <QUrl>
#include <QVector>

#include <functional>

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
// The manager decides when a job starts, restarts and ends; its parts do the rest: the files and
// their states (TransferQueue), the pace of the loop and the limit (TransferPacer), the figures
// reported (SpeedMeter) and the one-shot fetches (ContentFetcher).
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
    void onError(Morvantix::ErrorCode errorCodem);

private:
    explicit DownloaderManager(QObject* parent);

    void CalculateTotalSize(Morvantix::GameUpdateContext& ctx);
    void FinishDownload();
    void ResetAccessible();
    int GetCurrentDownloaderListSize() const;
    void PrivateStartRequest(const QUrl& url, const QString& filePath, qint64 size);
    void ClearRecordSpeed();
    void PrivateSetSpeedLimit();

    bool RefuseEntriesOutsideCache(const Morvantix::GameUpdateContext& ctx);
    bool IsCacheFolder(const QString& folder, const Morvantix::GameUpdateContext& ctx) const;
    void RestartAfterFailure();
    void HandleNetworkFailure(const QString& errStr);
    // Every running transfer stops, its file in the state that says why.
    void ReleaseDownloaderList(TransferState why);
    void ReportToCallback();

    static DownloaderManager* m_pDownloaderInstance;

    std::function<void(Morvantix::DownloadCallbackInfo&)> m_callback;
    Morvantix::DownloadCallbackInfo m_callbackInfo;
    QSharedPointer<QNetworkAccessManager> m_networkManager;
    QSharedPointer<QTimer> m_timeoutTimer;
    QSharedPointer<QTimer> m_speedTimer;
    QSharedPointer<QTimer> m_restartTimer;
    bool m_bStop = true;
    QUrl m_downloadUrl;
    TransferQueue m_queue; // the waiting files and the running transfers
    QString m_filePath;
    qint64 m_fileSize = 0;
    ContentFetcher* m_fetcher = nullptr; // a child: it goes with the manager
    QString m_downloadDir;
    bool m_bFinished = false;
    SpeedMeter m_meter; // the byte counts and the speed record
    TransferPacer m_pacer; // the limit and the transfer loop's clock
    int m_timeoutRetryCount = 0;
    bool m_bRestartPending = false;
    const int m_maxTimeoutRetry = 3;
    bool m_bDataArrived = false; // "startDownloadedFlag" in the traces
};

#pragma once

#include "core/CallbackInfo.h"
#include "core/CoreExport.h"
#include "core/GameUpdateContext.h"
#include "download/ContentRequest.h"

#include <QElapsedTimer>
#include <QList>
#include <QMap>
#include <QObject>
#include <QSet>
#include <QSharedPointer>
#include <QString>
#include <QUrl>
#include <QVector>

#include <functional>

class QNetworkAccessManager;
class QNetworkReply;
class QNetworkRequest;
class QTimer;
class downloader;

// Downloads the file list of the current job, at most five files at a time, resuming partial files.
// Bytes are pulled out of the transfers by one paced loop shared by all of them, which is where the
// speed limit acts. A stall fails the job; a network failure after data had flowed restarts every
// transfer a few times before it does. Exactly one completion or failure is reported per run.
//
// It also serves the small one-shot fetches of the library: texts with retries, images, headers.
// Everything runs in the thread of the host's event loop.
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
    bool IsOverContentCap(int index, qint64 bytes) const;
    void RefuseOversizedContent(int index);

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
    void ReleaseDownloaderList();
    void ResetAccessible();
    int GetCurrentDownloaderListSize() const;
    void PrivateStartRequest(const QUrl& url, const QString& filePath, qint64 size);
    void ClearRecordSpeed();
    void PrivateSetSpeedLimit();

    bool RefuseEntriesOutsideCache(const Morvantix::GameUpdateContext& ctx);
    bool IsCacheFolder(const QString& folder, const Morvantix::GameUpdateContext& ctx) const;
    void RestartAfterFailure();
    void HandleNetworkFailure(const QString& errStr);
    void ReleaseFinishedTransfer(const QString& filename);
    void TakeBytesSinceLastSample();
    void FillProgress();
    void ReportToCallback();
    qint64 TransferBudget(qint64 msecs) const;
    qint64 ElapsedSinceLastTransfer();

    void ContentAttemptTimedOut(int index);
    void ContentAttemptFinished(int index);
    void CompleteContentAttempt(int index, int error, const QString& errorString, const QString& firstHeader);
    void QuitContentLoop(int index);
    QNetworkRequest FetchRequest(const QUrl& url) const;
    static QString WithTimestamp(const QString& url);

    static DownloaderManager* m_pDownloaderInstance;

    std::function<void(Morvantix::DownloadCallbackInfo&)> m_callback;
    Morvantix::DownloadCallbackInfo m_callbackInfo;
    QSharedPointer<QNetworkAccessManager> m_networkManager;
    QSharedPointer<QTimer> m_timeoutTimer;
    QSharedPointer<QTimer> m_speedTimer;
    QSharedPointer<QTimer> m_restartTimer;
    bool m_bStop = true;
    QUrl m_downloadUrl;
    QList<Morvantix::DownloadFileInfo*> m_waitingList;
    QVector<QSharedPointer<downloader>> m_downloaderList;
    QString m_filePath;
    qint64 m_fileSize = 0;
    QVector<ContentRequest> m_contentList;
    QString m_downloadDir;
    bool m_bFinished = false;
    qint64 m_bytesTotalReceived = 0;
    qint64 m_bytesLastSample = 0;
    qint64 m_totalSize = 0;
    qint64 m_bytesCurrentTotalReceived = 0;
    qint64 m_transferBudget = 0;
    qint64 m_transferElapsed = 0;
    int m_limitSpeed = 0;
    bool m_bTransferScheduled = false;
    QElapsedTimer m_transferClock;
    qint64 m_lastTransferMs = 0;
    QVector<qint64> m_speedRecord;
    int m_speedRecordIndex = 0;
    int m_timeoutRetryCount = 0;
    bool m_bRestartPending = false;
    const int m_maxTimeoutRetry = 3;
    bool m_bDataArrived = false; // "startDownloadedFlag" in the traces
    qint64 m_bytesDiscarded = 0; // of partial files started again since PreStartDownload
};

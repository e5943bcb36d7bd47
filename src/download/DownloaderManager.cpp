#include "download/DownloaderManager.h"

#include "core/CoreSystem.h"
#include "core/Timing.h"
#include "download/DownloadTexts.h"
#include "download/downloader.h"
#include "files/QFileUtils.h"
#include "files/SafePath.h"
#include "log/Logger.h"

#include <QCoreApplication>
#include <QDebug>
#include <QDir>
#include <QNetworkAccessManager>
#include <QTimer>

#ifdef __GLIBC__
#include <malloc.h>
#endif

using Morvantix::DownloadFileInfo;
using Morvantix::ErrorCode;
using Morvantix::GameUpdateContext;

namespace {
const QString kTag = QStringLiteral("Downloader");
const QString kManagerTag = QStringLiteral("DownloadManager");
constexpr int kMaxRunningTransfers = 5;
constexpr int kSpeedSampleMs = 1000;
} // namespace

DownloaderManager* DownloaderManager::m_pDownloaderInstance = nullptr;

DownloaderManager* DownloaderManager::GetInstance()
{
    if (!m_pDownloaderInstance)
        m_pDownloaderInstance = new DownloaderManager(QCoreApplication::instance());
    return m_pDownloaderInstance;
}

DownloaderManager::DownloaderManager(QObject* parent)
    : QObject(parent)
    , m_networkManager(new QNetworkAccessManager(this), &QObject::deleteLater)
    , m_timeoutTimer(new QTimer(this), &QObject::deleteLater)
    , m_speedTimer(new QTimer(this), &QObject::deleteLater)
    , m_restartTimer(new QTimer(this), &QObject::deleteLater)
{
    // Made here, not in the list above: the retry limit is declared after it.
    m_fetcher = new ContentFetcher(m_networkManager.data(), m_maxTimeoutRetry, this);
    qRegisterMetaType<ErrorCode>("Morvantix::ErrorCode");
#ifdef __GLIBC__
    // The network thread allocates a fresh buffer for every socket read, and glibc gives freed heap
    // back to the system as soon as it can: the next reads fault it in again one zeroed page at a
    // time, and at loopback speeds that is where the time goes. Heaps keep their top 64 MiB instead;
    // nothing becomes resident that the download had not already touched.
    mallopt(M_TOP_PAD, 64 * 1024 * 1024);
#endif
    m_timeoutTimer->setSingleShot(true);
    m_restartTimer->setSingleShot(true);
    connect(m_timeoutTimer.data(), &QTimer::timeout, this, &DownloaderManager::onTimeout);
    connect(m_speedTimer.data(), &QTimer::timeout, this, &DownloaderManager::onCalcSpeed);
    connect(m_restartTimer.data(), &QTimer::timeout, this, &DownloaderManager::RestartAfterFailure);
    Logger::LogInfo(kTag, QStringLiteral("Downloader Constructor"));
}

DownloaderManager::~DownloaderManager()
{
    for (auto* timer : { &m_timeoutTimer, &m_speedTimer, &m_restartTimer }) {
        if (*timer) {
            (*timer)->stop();
            timer->reset();
        }
    }
    ReleaseDownloaderList(TransferState::Paused);
    m_pDownloaderInstance = nullptr;
}

void DownloaderManager::RegistCallbackFunc(std::function<void(Morvantix::DownloadCallbackInfo&)> callback)
{
    m_callback = std::move(callback);
}

void DownloaderManager::PreStartDownload(GameUpdateContext& ctx)
{
    ClearRecordSpeed();
    ResetAccessible();
    m_bFinished = false;
    m_pacer.ClearScheduled();

    m_queue.Reset(ctx.m_downloadFileList);
    m_downloadDir = QStringLiteral("");
    for (const DownloadFileInfo& file : qAsConst(ctx.m_downloadFileList)) {
        Logger::LogInfo(kTag,
            QStringLiteral("StartDownload m_downloadUrl is %1, file=%2, size=%3")
                .arg(file.url, file.localPath, QString::number(file.size)));
        if (m_downloadDir.isEmpty())
            m_downloadDir = QFileUtils::GetParentPath(file.localPath);
    }

    m_meter.Restart();
    m_callbackInfo.speed = 0;
    m_pacer.RestartClock();
}

void DownloaderManager::CalculateTotalSize(GameUpdateContext& ctx)
{
    qint64 totalSize = 0;
    qint64 onDisk = 0;
    for (const DownloadFileInfo& file : qAsConst(ctx.m_downloadFileList)) {
        totalSize += file.size;
        const qint64 localSize = QFileUtils::GetFileSize(file.localPath);
        // Longer than the server's file means it is not a prefix of it: resuming would only append
        // to garbage.
        if (file.size < localSize)
            QFileUtils::DeleteFileOrFolder(file.localPath);
        else
            onDisk += localSize;
    }
    m_meter.SetJob(totalSize, onDisk);
}

void DownloaderManager::StartDownload(GameUpdateContext& ctx)
{
    if (!m_bStop)
        return;
    m_bStop = false;
    m_restartTimer->stop();
    m_bRestartPending = false;
    m_timeoutRetryCount = 0;
    // Data of an earlier job says nothing about this one's server.
    m_bDataArrived = false;
    PreStartDownload(ctx);
    if (RefuseEntriesOutsideCache(ctx))
        return;

    // The folder comes from the list, and the list from the server: only the cache folder the
    // settings name may be wiped, never what a crafted entry points at.
    if (IsCacheFolder(m_downloadDir, ctx))
        QFileUtils::DeleteFileOrFolder(m_downloadDir);
    if (!m_downloadDir.isEmpty())
        QFileUtils::CreateFolder(m_downloadDir);
    CalculateTotalSize(ctx);
    StartNextDownload();
}

bool DownloaderManager::RefuseEntriesOutsideCache(const GameUpdateContext& ctx)
{
    const QString& cache = ctx.m_updateSetting.cachePath;
    for (const DownloadFileInfo& file : ctx.m_downloadFileList) {
        // The cache itself is no place for a file either: its parent would become the download folder.
        if (SafePath::IsInsideFolder(cache, file.localPath)
            && !SafePath::IsInsideFolder(file.localPath, cache))
            continue;
        Logger::LogInfo(kTag,
            QStringLiteral("refused %1: not a file inside the cache folder \"%2\"")
                .arg(file.localPath, cache));
        onError(ErrorCode::WriteFailed, DownloadTexts::pathOutsideCache());
        return true;
    }
    return false;
}

bool DownloaderManager::IsCacheFolder(const QString& folder, const GameUpdateContext& ctx) const
{
    const QString& cache = ctx.m_updateSetting.cachePath;
    const bool sameFolder
        = SafePath::IsInsideFolder(folder, cache) && SafePath::IsInsideFolder(cache, folder);
    return sameFolder && !QDir(QDir::cleanPath(QDir::fromNativeSeparators(cache))).isRoot();
}

void DownloaderManager::ResumeDownload(GameUpdateContext& ctx)
{
    m_restartTimer->stop();
    if (m_bRestartPending) {
        // The transfers are already gone; resuming now is the restart that was waiting.
        m_bRestartPending = false;
        m_bStop = true;
    }
    if (!m_bStop)
        return;
    // The retry count stays: the restart after a network failure comes through here as well.
    m_bStop = false;
    PreStartDownload(ctx);
    if (RefuseEntriesOutsideCache(ctx))
        return;
    CalculateTotalSize(ctx);
    if (!m_downloadDir.isEmpty() && !QDir(m_downloadDir).exists())
        QFileUtils::CreateFolder(m_downloadDir);
    StartNextDownload();
}

void DownloaderManager::PauseDownload(GameUpdateContext& ctx)
{
    Q_UNUSED(ctx);
    Logger::LogInfo(kTag,
        QStringLiteral("PauseDownload m_downloadUrl is %1, file=%2")
            .arg(m_downloadUrl.toString(), m_filePath));
    if (m_bStop)
        return;
    m_bStop = true;
    m_pacer.ClearScheduled();
    m_timeoutTimer->stop();
    m_speedTimer->stop();
    m_restartTimer->stop();
    m_bRestartPending = false;
    ReleaseDownloaderList(TransferState::Paused);
}

void DownloaderManager::StartNextDownload()
{
    // A transfer can still report after the job ended (the write that failed may also have been its
    // last); nothing may start then.
    if (m_bStop)
        return;
    Logger::LogInfo(
        kManagerTag, QStringLiteral("downloaderList.size() is %1").arg(GetCurrentDownloaderListSize()));
    if (GetCurrentDownloaderListSize() >= kMaxRunningTransfers)
        return;

    const int next = m_queue.NextWaiting();
    if (next < 0) {
        if (GetCurrentDownloaderListSize() == 0) {
            Logger::LogInfo(kManagerTag,
                QStringLiteral("XXX downloaderList.size() is %1").arg(GetCurrentDownloaderListSize()));
            FinishDownload();
        }
        return;
    }

    const DownloadFileInfo file = m_queue.File(next);
    PrivateStartRequest(QUrl(file.url), file.localPath, file.size);
}

void DownloaderManager::PrivateStartRequest(const QUrl& url, const QString& filePath, qint64 size)
{
    m_downloadUrl = url;
    m_filePath = filePath;
    m_fileSize = size;
    const qint64 localSize = QFileUtils::GetFileSize(filePath);

    // Dropping the last reference schedules the deletion: a transfer is often dropped from inside
    // one of its own signals.
    QSharedPointer<downloader> transfer(
        new downloader(this, m_networkManager.data(), m_meter.ReceivedCounter()), &QObject::deleteLater);
    connect(transfer.data(), &downloader::ReadyToTransfer, this, &DownloaderManager::onReadyRead);
    connect(transfer.data(), &downloader::DownloadResult, this, &DownloaderManager::onDownloadResult);
    connect(transfer.data(), &downloader::PartialDiscarded, this,
        [this](qint64 bytes) { m_meter.Discard(bytes); });
    m_queue.Start(m_queue.NextWaiting(), transfer);
    transfer->SetRequest(filePath, url, size);
    transfer->ReStartDownload();
    // A file found complete reports at once, and with it the whole job may have ended.
    if (m_bStop)
        return;

    Logger::LogInfo(kTag,
        QStringLiteral("download url is %1, received bytes=%2")
            .arg(url.toString(), QString::number(localSize)));
    ClearRecordSpeed();
    PrivateSetSpeedLimit();
    if (!m_speedTimer->isActive())
        m_speedTimer->start(kSpeedSampleMs);
    m_timeoutTimer->start(Morvantix::Timing::stallTimeoutMs());

    if (GetCurrentDownloaderListSize() < kMaxRunningTransfers)
        StartNextDownload();
}

int DownloaderManager::GetCurrentDownloaderListSize() const
{
    return m_queue.RunningCount();
}

void DownloaderManager::onDownloadResult(ErrorCode code, QString errStr, QString filename)
{
    if (m_bStop)
        return;
    switch (code) {
    case ErrorCode::FileFinished:
        m_queue.Finish(filename);
        StartNextDownload();
        break;
    case ErrorCode::NetworkFailed:
        HandleNetworkFailure(errStr);
        break;
    default:
        onError(code, QString());
        break;
    }
}

void DownloaderManager::HandleNetworkFailure(const QString& errStr)
{
    // Only what the files gained since the last (re)start renews the restart budget: bytes a server
    // sends again before the resume offset, or that replace a discarded partial, are no progress,
    // and counting them would restart a server that always cuts at the same place forever.
    if (m_meter.GainedSinceRestart()) {
        m_bDataArrived = true;
        m_timeoutRetryCount = 0;
    }
    // Before any byte arrived the server or the address is at fault, and retrying will not help.
    if (!m_bDataArrived) {
        qDebug() << "timeout"
                 << "direct";
        onError(ErrorCode::NetworkFailed, errStr);
        return;
    }
    qDebug() << "timeout"
             << "startDownloadedFlag" << m_timeoutRetryCount;
    if (m_timeoutRetryCount <= m_maxTimeoutRetry) {
        if (m_bRestartPending)
            return;
        qDebug() << "timeout"
                 << "add";
        ++m_timeoutRetryCount;
        ReleaseDownloaderList(TransferState::Restarting);
        m_bRestartPending = true;
        m_restartTimer->start(Morvantix::Timing::restartDelayMs());
        return;
    }
    qDebug() << "timeout"
             << "onError";
    m_timeoutRetryCount = 0;
    m_bDataArrived = false;
    onError(ErrorCode::NetworkFailed, errStr);
}

void DownloaderManager::RestartAfterFailure()
{
    qDebug() << "timeout"
             << "start download";
    m_bRestartPending = false;
    m_restartTimer->stop();
    m_bStop = true;
    // The whole list is rebuilt, so every unfinished file resumes from what it has on disk.
    const auto ctx = Morvantix::CoreSystem::GetCoreSystemInst()->GetCurGameUpdateContext();
    ResumeDownload(*ctx);
}

void DownloaderManager::onTimeout()
{
    Logger::LogInfo(kTag, QStringLiteral("error is timeout"));
    onError(ErrorCode::StallTimeout, QString());
}

void DownloaderManager::onReadyRead()
{
    if (m_bStop)
        return;
    scheduleTransfer();
}

void DownloaderManager::onError(ErrorCode errorCodem)
{
    onError(errorCodem, QString());
}

void DownloaderManager::onError(ErrorCode errorCodem, QString errString)
{
    if (m_bFinished)
        return;
    m_bFinished = true;
    m_timeoutTimer->stop();
    m_speedTimer->stop();
    m_restartTimer->stop();
    m_bRestartPending = false;
    m_bStop = true;

    if (!errString.isEmpty())
        m_callbackInfo.errorMsg = errString;
    else if (errorCodem == ErrorCode::StallTimeout)
        m_callbackInfo.errorMsg = DownloadTexts::requestTimedOut();
    else if (errorCodem == ErrorCode::WriteFailed)
        m_callbackInfo.errorMsg = DownloadTexts::diskFull();
    else
        m_callbackInfo.errorMsg = DownloadTexts::networkFailed();
    m_callbackInfo.bError = true;
    // The record outlives jobs; a failure must not read as the completion of the one before.
    m_callbackInfo.bComplete = false;
    m_callbackInfo.errorCode = errorCodem;
    ReleaseDownloaderList(
        errorCodem == ErrorCode::StallTimeout ? TransferState::Stalled : TransferState::Failed);
    ReportToCallback();
}

void DownloaderManager::FinishDownload()
{
    Logger::LogInfo(QStringLiteral("DownloaderManager"), QStringLiteral("download complete"));
    m_timeoutTimer->stop();
    m_speedTimer->stop();
    if (m_bFinished)
        return;
    m_bFinished = true;
    m_bStop = true;
    // The last sample may be up to a second old; the completion carries what is on disk now.
    m_meter.ReportFinal(m_callbackInfo);
    m_callbackInfo.bError = false;
    m_callbackInfo.bComplete = true;
    m_callbackInfo.totalBytes = m_meter.TotalSize();
    ReportToCallback();
}

void DownloaderManager::ReportToCallback()
{
    if (m_callback)
        m_callback(m_callbackInfo);
}

void DownloaderManager::ReleaseDownloaderList(TransferState why)
{
    m_queue.StopRunning(why);
}

void DownloaderManager::ResetAccessible()
{
    m_fetcher->ResetAccessible();
}

// The paced side: the loop that moves bytes from the transfers to their files within the budget of
// the limit, and the one-second sample of the figures.

void DownloaderManager::SetSpeedLimit()
{
    ClearRecordSpeed();
    PrivateSetSpeedLimit();
    m_pacer.ForgetElapsed();
}

void DownloaderManager::ClearRecordSpeed()
{
    m_meter.ClearRecord();
}

void DownloaderManager::PrivateSetSpeedLimit()
{
    const auto ctx = Morvantix::CoreSystem::GetCoreSystemInst()->GetCurGameUpdateContext();
    m_pacer.SetLimit(ctx->m_bLimitSpeed ? ctx->m_updateSetting.limitSpeed : -1);
    const qint64 readBuffer = TransferPacer::ReadBufferSize(m_pacer.Limit(), m_queue.RunningCount());
    for (const QPointer<downloader>& transfer : m_queue.RunningTransfers())
        transfer->SetReadBufferSize(readBuffer);
    Logger::LogInfo(kTag, QStringLiteral("limit is %1").arg(m_pacer.Limit()));
}

void DownloaderManager::scheduleTransfer()
{
    // The stall time-out counts from the last pass that was asked for.
    m_timeoutTimer->start(Morvantix::Timing::stallTimeoutMs());
    if (m_pacer.MarkScheduled())
        QTimer::singleShot(m_pacer.TickMs(), this, &DownloaderManager::transfer);
}

void DownloaderManager::transfer()
{
    m_pacer.ClearScheduled();
    if (m_bStop)
        return;
    const PassEnd end = m_pacer.Pass(m_queue.RunningTransfers(), [this] { return m_bStop; });
    if (end == PassEnd::BudgetSpent)
        scheduleTransfer();
}

void DownloaderManager::onCalcSpeed()
{
    const qint64 delta = m_meter.TakeDelta();
    if (m_bStop)
        return;
    m_meter.Report(delta, m_callbackInfo);
    ReportToCallback();
}

// The one-shot fetches are the fetcher's; the manager only lends them its network.

void DownloaderManager::ClearContentVector()
{
    m_fetcher->ClearContentVector();
}

void DownloaderManager::GetContentByUrl(QString url, std::function<void(const QString&, int)> callback,
    const QString& postData, bool sync, qint64 maxBytes)
{
    m_fetcher->GetContentByUrl(std::move(url), std::move(callback), postData, sync, maxBytes);
}

void DownloaderManager::GetImageByUrl(QString url, std::function<void(const char* data, int size)> callback)
{
    m_fetcher->GetImageByUrl(std::move(url), std::move(callback));
}

void DownloaderManager::GetHeaderByUrl(
    QString url, const QSet<QString>& keys, std::function<void(const QMap<QString, QString>&)> callback)
{
    m_fetcher->GetHeaderByUrl(std::move(url), keys, std::move(callback));
}

void DownloaderManager::PrivateGetContentByUrl(int index)
{
    m_fetcher->PrivateGetContentByUrl(index);
}

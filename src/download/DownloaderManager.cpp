#include "download/DownloaderManager.h"

#include "core/CoreSystem.h"
#include "core/Timing.h"
#include "download/ContentFetcher.h"
#include "download/DownloadFolder.h"
#include "download/DownloadTexts.h"
#include "download/downloader.h"
#include "log/Logger.h"

#include <QCoreApplication>
#include <QDebug>
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
    , m_restartTimer(new QTimer(this), &QObject::deleteLater)
    , m_queue({ [this](const DownloadFileInfo& file) { return PrivateStartRequest(file); },
          [this] { return m_state != JobState::Stopped; },
          [this](const DownloadFileInfo& file, qint64 bytesOnDisk) { OnTransferOpened(file, bytesOnDisk); },
          [this] { FinishDownload(); } })
    , m_pacer({ [this] { transfer(); }, [this] { onTimeout(); }, [this] { onCalcSpeed(); } })
{
    m_fetcher = new ContentFetcher(m_networkManager.data(), m_restarts.MaxRetry(), this);
    qRegisterMetaType<ErrorCode>("Morvantix::ErrorCode");
#ifdef __GLIBC__
    // The network thread allocates a fresh buffer for every socket read, and glibc gives freed heap
    // back to the system as soon as it can: the next reads fault it in again one zeroed page at a
    // time, and at loopback speeds that is where the time goes. Heaps keep their top 64 MiB instead;
    // nothing becomes resident that the download had not already touched.
    mallopt(M_TOP_PAD, 64 * 1024 * 1024);
#endif
    m_restartTimer->setSingleShot(true);
    connect(m_restartTimer.data(), &QTimer::timeout, this, &DownloaderManager::RestartAfterFailure);
    Logger::LogInfo(kTag, QStringLiteral("Downloader Constructor"));
}

DownloaderManager::~DownloaderManager()
{
    m_pacer.StopClocks();
    m_restartTimer->stop();
    m_restartTimer.reset();
    m_queue.StopRunning(TransferState::Paused);
    m_pDownloaderInstance = nullptr;
}

void DownloaderManager::RegistCallbackFunc(std::function<void(Morvantix::DownloadCallbackInfo&)> callback)
{
    m_report.Register(std::move(callback));
}

void DownloaderManager::PreStartDownload(GameUpdateContext& ctx)
{
    m_meter.ClearRecord();
    m_fetcher->ResetAccessible();
    m_report.Open();
    m_pacer.ClearScheduled();
    m_queue.Reset(ctx.m_downloadFileList);
    m_meter.Restart();
    m_pacer.RestartClock();
}

void DownloaderManager::StartDownload(GameUpdateContext& ctx)
{
    if (m_state != JobState::Stopped)
        return;
    // Data of an earlier job says nothing about this one's server.
    m_restarts.Reset();
    BeginRun(ctx, true);
}

void DownloaderManager::BeginRun(GameUpdateContext& ctx, bool bFresh)
{
    MoveTo(JobState::Running);
    PreStartDownload(ctx);
    const DownloadFolder::Prepared folder
        = DownloadFolder::Prepare(ctx.m_downloadFileList, ctx.m_updateSetting.cachePath, bFresh);
    if (!folder.refused.isEmpty())
        return onError(ErrorCode::WriteFailed, DownloadTexts::pathOutsideCache());
    m_meter.SetJob(folder.holdings.totalBytes, folder.holdings.onDiskBytes);
    StartNextDownload();
}

void DownloaderManager::ResumeDownload(GameUpdateContext& ctx)
{
    // The transfers are already gone; resuming now is the restart that was waiting.
    if (m_state == JobState::RestartDue)
        MoveTo(JobState::Stopped);
    // The retry count stays: the restart after a network failure comes through here as well.
    if (m_state == JobState::Stopped)
        BeginRun(ctx, false);
}

void DownloaderManager::PauseDownload(GameUpdateContext& ctx)
{
    Q_UNUSED(ctx);
    Logger::LogInfo(kTag,
        QStringLiteral("PauseDownload m_downloadUrl is %1, file=%2")
            .arg(m_downloadUrl.toString(), m_filePath));
    if (m_state == JobState::Stopped)
        return;
    MoveTo(JobState::Stopped);
    m_pacer.ClearScheduled();
    m_queue.StopRunning(TransferState::Paused);
}

void DownloaderManager::StartNextDownload()
{
    m_queue.FillSlots();
}

QSharedPointer<downloader> DownloaderManager::PrivateStartRequest(const DownloadFileInfo& file)
{
    m_downloadUrl = QUrl(file.url);
    m_filePath = file.localPath;
    m_fileSize = file.size;
    // Dropping the last reference schedules the deletion: a transfer is often dropped from inside
    // one of its own signals.
    QSharedPointer<downloader> transfer(
        new downloader(this, m_networkManager.data(), m_meter.ReceivedCounter()), &QObject::deleteLater);
    connect(transfer.data(), &downloader::ReadyToTransfer, this, &DownloaderManager::onReadyRead);
    connect(transfer.data(), &downloader::DownloadResult, this, &DownloaderManager::onDownloadResult);
    connect(transfer.data(), &downloader::PartialDiscarded, this,
        [this](qint64 bytes) { m_meter.Discard(bytes); });
    return transfer;
}

void DownloaderManager::OnTransferOpened(const DownloadFileInfo& file, qint64 bytesOnDisk)
{
    Logger::LogInfo(kTag,
        QStringLiteral("download url is %1, received bytes=%2").arg(file.url, QString::number(bytesOnDisk)));
    m_meter.ClearRecord();
    PrivateSetSpeedLimit();
    m_pacer.StartClocks();
}

void DownloaderManager::onDownloadResult(ErrorCode code, QString errStr, QString filename)
{
    if (m_state == JobState::Stopped)
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
    switch (m_restarts.OnFailure(m_meter.GainedSinceRestart(), m_state == JobState::RestartDue)) {
    case RestartBudget::Verdict::Report:
        return onError(ErrorCode::NetworkFailed, errStr);
    case RestartBudget::Verdict::Wait:
        return;
    case RestartBudget::Verdict::Restart:
        m_queue.StopRunning(TransferState::Restarting);
        MoveTo(JobState::RestartDue);
        return;
    }
}

void DownloaderManager::RestartAfterFailure()
{
    if (m_state != JobState::RestartDue)
        return;
    qDebug() << "timeout"
             << "start download";
    MoveTo(JobState::Stopped);
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
    if (m_state == JobState::Stopped)
        return;
    scheduleTransfer();
}

void DownloaderManager::onError(ErrorCode errorCodem, QString errString)
{
    if (!m_report.EndFailed(errorCodem, errString.isEmpty() ? DownloadTexts::ofError(errorCodem) : errString))
        return;
    MoveTo(JobState::Stopped);
    m_queue.StopRunning(
        errorCodem == ErrorCode::StallTimeout ? TransferState::Stalled : TransferState::Failed);
    m_report.Send();
}

void DownloaderManager::FinishDownload()
{
    Logger::LogInfo(QStringLiteral("DownloaderManager"), QStringLiteral("download complete"));
    // A job whose end was told already is stopped already.
    if (!m_report.EndComplete(m_meter))
        return;
    MoveTo(JobState::Stopped);
    m_report.Send();
}

void DownloaderManager::MoveTo(JobState next)
{
    // The restart timer runs exactly while a restart is due: leaving that state in any way (a pause,
    // an error, the restart itself) cancels it, so one failure never restarts the list twice. A
    // stopped job has no clock running at all.
    if (next == JobState::RestartDue)
        m_restartTimer->start(Morvantix::Timing::restartDelayMs());
    else if (m_state == JobState::RestartDue)
        m_restartTimer->stop();
    if (next == JobState::Stopped)
        m_pacer.StopClocks();
    m_state = next;
}

void DownloaderManager::SetSpeedLimit()
{
    m_meter.ClearRecord();
    PrivateSetSpeedLimit();
    m_pacer.ForgetElapsed();
}

void DownloaderManager::PrivateSetSpeedLimit()
{
    const auto ctx = Morvantix::CoreSystem::GetCoreSystemInst()->GetCurGameUpdateContext();
    m_pacer.ApplyLimit(ctx->m_bLimitSpeed ? ctx->m_updateSetting.limitSpeed : -1, m_queue.RunningTransfers());
}

void DownloaderManager::scheduleTransfer()
{
    m_pacer.Schedule();
}

void DownloaderManager::transfer()
{
    m_pacer.PassDue(m_queue.RunningTransfers(), [this] { return m_state == JobState::Stopped; });
}

void DownloaderManager::onCalcSpeed()
{
    const qint64 delta = m_meter.TakeDelta();
    if (m_state == JobState::Stopped)
        return;
    m_report.Progress(m_meter, delta);
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

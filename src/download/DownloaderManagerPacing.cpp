// The paced side of the manager: the loop that moves bytes from the transfers to their files within
// a budget derived from the speed limit, and the one-second speed sample.
#include "download/DownloaderManager.h"

#include "core/CoreSystem.h"
#include "core/Timing.h"
#include "download/downloader.h"
#include "log/Logger.h"

#include <QDebug>
#include <QPointer>
#include <QTimer>

namespace {
constexpr int kTransferTickMs = 5;
// Read buffers of the replies without a limit: each holds at most 4 MiB, and all of them together
// 16 MiB (as a response ends, the network layer adds the one capped read it still holds). Unbounded, the
// replies pile up hundreds of MiB when the disk falls behind, and the network thread then spends its time on
// fresh pages instead of on the socket; much smaller (1 MiB), and the network thread waits on the event loop
// between passes. The network layer keeps about as much again on its side, hence the shared bound for five
// transfers.
constexpr qint64 kUnlimitedReadBuffer = 4 * 1024 * 1024;
constexpr qint64 kUnlimitedReadBuffers = 16 * 1024 * 1024;
// One pass never releases more than a second's worth, however long the event loop was away.
constexpr qint64 kMaxPassMs = 1000;
// "No limit" is a limit of 4294967295 KB/s, in bytes per second.
constexpr qint64 kUnlimitedBytesPerSecond = Q_INT64_C(4294967295) * 1024;
// Samples kept for the smoothing: a dozen rotating ones plus one that is never overwritten.
constexpr int kSpeedRecordSize = 13;
constexpr int kSpeedRecordRotation = 12;
} // namespace

void DownloaderManager::SetSpeedLimit()
{
    ClearRecordSpeed();
    PrivateSetSpeedLimit();
    // The new limit applies from now on: time that passed under the old one must not become a
    // burst under the new one at the next pass.
    if (m_transferClock.isValid())
        m_lastTransferMs = m_transferClock.elapsed();
}

void DownloaderManager::ClearRecordSpeed()
{
    m_speedRecord.clear();
    m_speedRecordIndex = 0;
}

void DownloaderManager::PrivateSetSpeedLimit()
{
    const auto ctx = Morvantix::CoreSystem::GetCoreSystemInst()->GetCurGameUpdateContext();
    m_limitSpeed = ctx->m_bLimitSpeed ? ctx->m_updateSetting.limitSpeed : -1;

    // Four seconds of data at the limit: enough to never starve the loop, little enough that the
    // network layer does not run far ahead of the budget. The 32-bit wrap of huge limits is kept,
    // but a size of 0 means "unbounded" to the network layer: a limit of 0, which holds every
    // transfer, would otherwise keep whole files in memory.
    qint64 readBuffer = qMin(kUnlimitedReadBuffer, kUnlimitedReadBuffers / qMax(1, m_downloaderList.size()));
    if (m_limitSpeed != -1) {
        const qint32 fourSeconds = static_cast<qint32>(static_cast<quint32>(m_limitSpeed) << 12);
        if (fourSeconds > 0)
            readBuffer = fourSeconds;
    }
    for (const auto& transfer : qAsConst(m_downloaderList))
        transfer->SetReadBufferSize(readBuffer);
    Logger::LogInfo(QStringLiteral("Downloader"), QStringLiteral("limit is %1").arg(m_limitSpeed));
}

void DownloaderManager::scheduleTransfer()
{
    // The stall time-out counts from the last pass that was asked for.
    m_timeoutTimer->start(Morvantix::Timing::stallTimeoutMs());
    // One pass serves every reply, so the requests that arrive before it runs fold into it.
    if (m_bTransferScheduled)
        return;
    m_bTransferScheduled = true;
    // The tick only paces a budget. Without one, every millisecond of waiting is data the network
    // thread cannot take in while the read buffers are full.
    QTimer::singleShot(m_limitSpeed == -1 ? 0 : kTransferTickMs, this, &DownloaderManager::transfer);
}

qint64 DownloaderManager::ElapsedSinceLastTransfer()
{
    if (!m_transferClock.isValid()) {
        m_transferClock.start();
        m_lastTransferMs = 0;
        return kTransferTickMs;
    }
    const qint64 now = m_transferClock.elapsed();
    const qint64 msecs = qMin(now - m_lastTransferMs, kMaxPassMs);
    m_lastTransferMs = now;
    return msecs;
}

qint64 DownloaderManager::TransferBudget(qint64 msecs) const
{
    // Passes without a limit follow each other within the same millisecond: their budget must not
    // depend on the time that passed.
    if (m_limitSpeed == -1)
        return kUnlimitedBytesPerSecond;
    const qint32 bytesPerSecond = static_cast<qint32>(static_cast<quint32>(m_limitSpeed) * 1024u);
    return bytesPerSecond * msecs / 1000;
}

void DownloaderManager::transfer()
{
    m_bTransferScheduled = false;
    if (m_bStop)
        return;

    const qint64 msecs = ElapsedSinceLastTransfer();
    qint64 budget = TransferBudget(msecs);
    m_transferBudget = budget;
    m_transferElapsed += msecs;
    if (budget == 0) {
        scheduleTransfer();
        return;
    }

    QVector<QPointer<downloader>> pending;
    for (const auto& transfer : qAsConst(m_downloaderList)) {
        if (transfer->BytesAvailable() > 0)
            pending.append(transfer.data());
    }
    // Nothing buffered: the next ReadyToTransfer starts the loop again.
    if (pending.isEmpty())
        return;

    for (;;) {
        // The budget is not shared out: each transfer in turn may take all that is left of it.
        const qint64 chunk = qMax<qint64>(1, budget);
        bool canTransferMore = false;
        for (int i = pending.size() - 1; i >= 0 && budget >= 1; --i) {
            const QPointer<downloader> transfer = pending.at(i);
            bool keep = false;
            if (transfer && !transfer->IsComplete()) {
                const qint64 n = qMin(transfer->BytesAvailable(), chunk);
                if (n >= 1) {
                    const qint64 read = transfer->TransferData(qMin(n, budget));
                    // The read may have ended the job (a failed write, the last byte of the list).
                    if (m_bStop)
                        return;
                    if (read > 0)
                        budget -= read;
                    keep = read > 0 && transfer && transfer->BytesAvailable() > 0;
                }
            }
            if (keep)
                canTransferMore = true;
            else
                pending.removeAt(i);
        }
        if (!canTransferMore)
            break;
        if (budget < 1) {
            scheduleTransfer();
            return;
        }
    }
    if (budget == 0)
        scheduleTransfer();
}

void DownloaderManager::TakeBytesSinceLastSample()
{
    m_bytesCurrentTotalReceived += m_bytesTotalReceived - m_bytesLastSample;
    m_bytesLastSample = m_bytesTotalReceived;
}

void DownloaderManager::FillProgress()
{
    m_callbackInfo.receivedBytes = m_bytesCurrentTotalReceived;
    m_callbackInfo.totalBytes = m_totalSize;
    // An empty job is done as soon as it starts.
    m_callbackInfo.percent = m_totalSize > 0
        ? static_cast<float>(
            static_cast<double>(m_callbackInfo.receivedBytes) / static_cast<double>(m_totalSize))
        : 1.0f;
}

void DownloaderManager::onCalcSpeed()
{
    const qint64 delta = m_bytesTotalReceived - m_bytesLastSample;
    m_bytesLastSample = m_bytesTotalReceived;
    if (m_bStop)
        return;

    qint64 sum = delta;
    for (qint64 sample : qAsConst(m_speedRecord))
        sum += sample;
    const qint64 count = 1 + m_speedRecord.size();

    // The record grows to thirteen entries; after that only the first twelve rotate, and the
    // thirteenth keeps its sample for as long as the record is not cleared.
    if (m_speedRecord.size() < kSpeedRecordSize) {
        m_speedRecord.append(delta);
    } else {
        m_speedRecord[m_speedRecordIndex] = delta;
        m_speedRecordIndex = (m_speedRecordIndex + 1) % kSpeedRecordRotation;
    }
    qDebug() << "m_bytesCurrentTotalReceived: " << m_bytesCurrentTotalReceived;

    m_callbackInfo.speed = sum / count;
    m_bytesCurrentTotalReceived += delta;
    m_callbackInfo.bError = false;
    m_callbackInfo.bComplete = false;
    FillProgress();
    qDebug() << m_callbackInfo.receivedBytes << "/" << m_callbackInfo.totalBytes
             << "ProgValue   ---------------" << m_callbackInfo.percent;

    if (m_callbackInfo.speed > 0)
        m_callbackInfo.remainTime = static_cast<int>(
            (m_callbackInfo.totalBytes - m_callbackInfo.receivedBytes) / m_callbackInfo.speed);
    ReportToCallback();
}

#include "download/TransferPacer.h"

#include "core/Timing.h"
#include "download/downloader.h"
#include "log/Logger.h"

namespace {
constexpr int kTransferTickMs = 5;
constexpr int kSpeedSampleMs = 1000;
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
} // namespace

TransferPacer::TransferPacer(Clocks clocks)
{
    m_timeoutTimer.setSingleShot(true);
    m_passTimer.setSingleShot(true);
    const auto wire = [](QTimer& timer, std::function<void()> call) {
        if (call)
            QObject::connect(&timer, &QTimer::timeout, std::move(call));
    };
    wire(m_passTimer, std::move(clocks.pass));
    wire(m_timeoutTimer, std::move(clocks.stalled));
    wire(m_speedTimer, std::move(clocks.sample));
}

void TransferPacer::ApplyLimit(int limit, const QVector<QPointer<downloader>>& running)
{
    m_limitSpeed = limit;
    const qint64 readBuffer = ReadBufferSize(limit, running.size());
    for (const QPointer<downloader>& transfer : running) {
        if (transfer)
            transfer->SetReadBufferSize(readBuffer);
    }
    Logger::LogInfo(QStringLiteral("Downloader"), QStringLiteral("limit is %1").arg(limit));
}

void TransferPacer::StartClocks()
{
    if (!m_speedTimer.isActive())
        m_speedTimer.start(kSpeedSampleMs);
    m_timeoutTimer.start(Morvantix::Timing::stallTimeoutMs());
}

void TransferPacer::StopClocks()
{
    m_timeoutTimer.stop();
    m_speedTimer.stop();
}

void TransferPacer::Schedule()
{
    m_timeoutTimer.start(Morvantix::Timing::stallTimeoutMs());
    if (MarkScheduled())
        m_passTimer.start(TickMs());
}

void TransferPacer::PassDue(
    const QVector<QPointer<downloader>>& running, const std::function<bool()>& jobEnded)
{
    ClearScheduled();
    if (!jobEnded() && Pass(running, jobEnded) == PassEnd::BudgetSpent)
        Schedule();
}

qint64 TransferPacer::Budget(int limit, qint64 msecs)
{
    // Passes without a limit follow each other within the same millisecond: their budget must not
    // depend on the time that passed.
    if (limit == -1)
        return kUnlimitedBytesPerSecond;
    const qint32 bytesPerSecond = static_cast<qint32>(static_cast<quint32>(limit) * 1024u);
    return bytesPerSecond * msecs / 1000;
}

qint64 TransferPacer::ReadBufferSize(int limit, int running)
{
    // Four seconds of data at the limit: enough to never starve the loop, little enough that the
    // network layer does not run far ahead of the budget. The 32-bit wrap of huge limits is kept,
    // but a size of 0 means "unbounded" to the network layer: a limit of 0, which holds every
    // transfer, would otherwise keep whole files in memory.
    qint64 readBuffer = qMin(kUnlimitedReadBuffer, kUnlimitedReadBuffers / qMax(1, running));
    if (limit != -1) {
        const qint32 fourSeconds = static_cast<qint32>(static_cast<quint32>(limit) << 12);
        if (fourSeconds > 0)
            readBuffer = fourSeconds;
    }
    return readBuffer;
}

int TransferPacer::TickMs() const
{
    // The tick only paces a budget. Without one, every millisecond of waiting is data the network
    // thread cannot take in while the read buffers are full.
    return m_limitSpeed == -1 ? 0 : kTransferTickMs;
}

bool TransferPacer::MarkScheduled()
{
    if (m_bTransferScheduled)
        return false;
    m_bTransferScheduled = true;
    return true;
}

void TransferPacer::RestartClock()
{
    m_transferClock.restart();
    m_lastTransferMs = 0;
}

void TransferPacer::ForgetElapsed()
{
    if (m_transferClock.isValid())
        m_lastTransferMs = m_transferClock.elapsed();
}

qint64 TransferPacer::ElapsedSinceLastPass()
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

PassEnd TransferPacer::Pass(
    const QVector<QPointer<downloader>>& running, const std::function<bool()>& jobEnded)
{
    const qint64 msecs = ElapsedSinceLastPass();
    qint64 budget = Budget(m_limitSpeed, msecs);
    m_transferBudget = budget;
    m_transferElapsed += msecs;
    if (budget == 0)
        return PassEnd::BudgetSpent;

    QVector<QPointer<downloader>> pending;
    for (const QPointer<downloader>& transfer : running) {
        if (transfer && transfer->BytesAvailable() > 0)
            pending.append(transfer);
    }
    if (pending.isEmpty())
        return PassEnd::WaitForData;

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
                    if (jobEnded())
                        return PassEnd::JobEnded;
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
        if (budget < 1)
            return PassEnd::BudgetSpent;
    }
    return budget == 0 ? PassEnd::BudgetSpent : PassEnd::WaitForData;
}

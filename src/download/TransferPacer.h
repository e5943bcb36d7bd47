#pragma once

#include <QElapsedTimer>
#include <QPointer>
#include <QTimer>
#include <QVector>

#include <functional>

class downloader;

// How a pass of the transfer loop ended, and so what starts the next one.
enum class PassEnd
{
    WaitForData, // every buffer is drained: the next arrival asks for a pass
    BudgetSpent, // the limit held bytes back: a pass follows after a tick
    JobEnded, // a read ended the job (a failed write, the last byte of the list)
};

// The pace of the downloads: the speed limit in force, the budget each pass of the transfer loop
// may move, and the read buffer each reply may hold meanwhile. The transfers never read the network
// on their own, so this is the one place where the limit acts. It also keeps the job's clocks: the
// tick before a pass, the stall time-out and the one-second sample of the figures.
class TransferPacer
{
public:
    // What the clocks ask of the job; each runs in the thread of the event loop.
    struct Clocks
    {
        std::function<void()> pass; // a pass that was asked for is due
        std::function<void()> stalled; // no pass was asked for during the stall time
        std::function<void()> sample; // a second went by: the figures are due
    };

    explicit TransferPacer(Clocks clocks = {});

    // limit: KB/s, -1 for none.
    void SetLimit(int limit) { m_limitSpeed = limit; }
    int Limit() const { return m_limitSpeed; }
    // The limit in force from now, and the read buffer it allows each of the running replies.
    void ApplyLimit(int limit, const QVector<QPointer<downloader>>& running);

    // A file started: the stall time counts from now, and the figures are sampled each second.
    void StartClocks();
    // The job stopped: neither a stall nor a sample follows.
    void StopClocks();
    // A pass is wanted: it runs after a tick, folded into the one queued already if there is one,
    // and the stall time counts from now.
    void Schedule();

    // What a pass may move after msecs, in bytes.
    static qint64 Budget(int limit, qint64 msecs);
    // What a reply may hold unread while `running` transfers share the network.
    static qint64 ReadBufferSize(int limit, int running);
    // The wait before a pass that was asked for.
    int TickMs() const;

    // False when a pass is already queued: the requests before it runs fold into it.
    bool MarkScheduled();
    void ClearScheduled() { m_bTransferScheduled = false; }

    // A new run: its first pass counts from now.
    void RestartClock();
    // A new limit counts from now: time under the old one must not become a burst under the new.
    void ForgetElapsed();

    // The pass that was asked for: none once the job ended, and the next one asked for when the
    // limit held bytes back.
    void PassDue(const QVector<QPointer<downloader>>& running, const std::function<bool()>& jobEnded);
    // One pass over the transfers that hold data, within the budget of the time since the last one.
    PassEnd Pass(const QVector<QPointer<downloader>>& running, const std::function<bool()>& jobEnded);

private:
    qint64 ElapsedSinceLastPass();

    QTimer m_timeoutTimer; // the stall
    QTimer m_speedTimer; // the one-second sample
    QTimer m_passTimer; // the tick before a pass that was asked for
    int m_limitSpeed = 0;
    bool m_bTransferScheduled = false;
    QElapsedTimer m_transferClock;
    qint64 m_lastTransferMs = 0;
    qint64 m_transferBudget = 0;
    qint64 m_transferElapsed = 0;
};

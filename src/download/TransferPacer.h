#pragma once

#include <QElapsedTimer>
#include <QPointer>
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
// on their own, so this is the one place where the limit acts.
class TransferPacer
{
public:
    // limit: KB/s, -1 for none.
    void SetLimit(int limit) { m_limitSpeed = limit; }
    int Limit() const { return m_limitSpeed; }

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

    // One pass over the transfers that hold data, within the budget of the time since the last one.
    PassEnd Pass(const QVector<QPointer<downloader>>& running, const std::function<bool()>& jobEnded);

private:
    qint64 ElapsedSinceLastPass();

    int m_limitSpeed = 0;
    bool m_bTransferScheduled = false;
    QElapsedTimer m_transferClock;
    qint64 m_lastTransferMs = 0;
    qint64 m_transferBudget = 0;
    qint64 m_transferElapsed = 0;
};

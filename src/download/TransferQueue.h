#pragma once

#include "core/DownloadFileInfo.h"

#include <QPointer>
#include <QSharedPointer>
#include <QVector>

#include <functional>

class downloader;

// Where one file of the download list stands.
enum class TransferState
{
    Waiting, // not started in this run
    Running, // its transfer is open
    Paused, // the job was paused; the partial file stays
    Stalled, // nothing moved for the stall time; the job failed with it
    Restarting, // a network failure stopped it; the whole list resumes after a delay
    Done, // the file is complete on disk
    Failed, // the job failed while it ran
};

// The files of one download job, in the list's order, each with its state and, while it runs, its
// transfer. Files start strictly in list order, at most five at a time; a state moves only through
// MoveTo, which also closes the transfer of a file that stops running.
class TransferQueue
{
public:
    static constexpr int kMaxRunning = 5;

    // What starting a file asks of the job that runs the queue. A start can end the job (a file found
    // complete on disk reports inside its own start, and may be the last), so each step asks again
    // whether the job still runs.
    struct Starter
    {
        // A fresh transfer for the file, wired to the job but not asked for anything yet.
        std::function<QSharedPointer<downloader>(const Morvantix::DownloadFileInfo&)> make;
        std::function<bool()> jobRunning;
        // The file's request is open; bytesOnDisk: what it held before.
        std::function<void(const Morvantix::DownloadFileInfo&, qint64 bytesOnDisk)> opened;
        // Nothing waits and nothing runs: the job is complete.
        std::function<void()> drained;
    };

    explicit TransferQueue(Starter starter = {});

    // A new run of the list, which is logged: every file waits.
    void Reset(const QVector<Morvantix::DownloadFileInfo>& files);
    // Starts waiting files in list order while fewer than five run; with none waiting and none
    // running, the job is complete. A fill asked for while one runs (by a file that completes inside
    // its own start) is done by the running one, after the start that asked: fills never nest.
    void FillSlots();

    int RunningCount() const { return m_running.size(); }
    bool HasWaiting() const { return NextWaiting() >= 0; }
    // The next file to start, in list order, or -1.
    int NextWaiting() const;
    const Morvantix::DownloadFileInfo& File(int index) const { return m_entries.at(index).file; }
    TransferState State(int index) const { return m_entries.at(index).state; }
    int Size() const { return m_entries.size(); }

    // The transfer takes over the waiting file at index.
    void Start(int index, const QSharedPointer<downloader>& transfer);
    // The first running file at this local path is complete. False when none runs there.
    bool Finish(const QString& localPath);
    // Every running file stops, the last started first, and moves to `why`.
    void StopRunning(TransferState why);

    // The open transfers, in the order they started.
    QVector<QPointer<downloader>> RunningTransfers() const;

private:
    struct Entry
    {
        Morvantix::DownloadFileInfo file;
        TransferState state = TransferState::Waiting;
        QSharedPointer<downloader> transfer; // only while running
    };

    void MoveTo(int index, TransferState next);
    // One round of starts, until the slots are full, nothing waits or the job ends.
    void FillOnce();
    // The transfer is held as running before its request opens, so that a completion reported
    // inside the start finds it.
    void Open(int index);

    Starter m_starter;
    QVector<Entry> m_entries;
    // Kept beside the entries so that a pass or a start never walks a list of many thousand files.
    QVector<int> m_running; // indexes of the running files, in the order they started
    int m_nextWaiting = 0; // files before it have all started
    bool m_bFilling = false; // a fill is on the stack
    bool m_bFillAgain = false; // and was asked for again meanwhile
};

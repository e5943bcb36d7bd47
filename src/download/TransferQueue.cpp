#include "download/TransferQueue.h"

#include "download/downloader.h"
#include "files/QFileUtils.h"
#include "log/Logger.h"

#include <QUrl>

namespace {
const QString kManagerTag = QStringLiteral("DownloadManager");
} // namespace

TransferQueue::TransferQueue(Starter starter)
    : m_starter(std::move(starter))
{ }

void TransferQueue::Reset(const QVector<Morvantix::DownloadFileInfo>& files)
{
    StopRunning(TransferState::Paused);
    m_entries.clear();
    m_entries.reserve(files.size());
    for (const Morvantix::DownloadFileInfo& file : files) {
        Logger::LogInfo(QStringLiteral("Downloader"),
            QStringLiteral("StartDownload m_downloadUrl is %1, file=%2, size=%3")
                .arg(file.url, file.localPath, QString::number(file.size)));
        m_entries.append(Entry { file, TransferState::Waiting, {} });
    }
    m_nextWaiting = 0;
}

int TransferQueue::NextWaiting() const
{
    return m_nextWaiting < m_entries.size() ? m_nextWaiting : -1;
}

void TransferQueue::Start(int index, const QSharedPointer<downloader>& transfer)
{
    Q_ASSERT(index == m_nextWaiting);
    m_entries[index].transfer = transfer;
    MoveTo(index, TransferState::Running);
}

void TransferQueue::FillSlots()
{
    // A file complete on disk reports inside its own start, and its report asks for a fill: answered
    // there, every such file would nest one call deeper, and a resume of thousands of complete files
    // would overrun the stack. The fill already running takes the request over instead.
    if (m_bFilling) {
        m_bFillAgain = true;
        return;
    }
    m_bFilling = true;
    do {
        m_bFillAgain = false;
        FillOnce();
    } while (m_bFillAgain);
    m_bFilling = false;
}

void TransferQueue::FillOnce()
{
    do {
        // A transfer can still report after the job ended (the write that failed may also have been
        // its last); nothing may start then.
        if (!m_starter.jobRunning())
            return;
        Logger::LogInfo(kManagerTag, QStringLiteral("downloaderList.size() is %1").arg(RunningCount()));
        if (RunningCount() >= kMaxRunning)
            return;
        const int next = NextWaiting();
        if (next < 0) {
            if (RunningCount() == 0) {
                Logger::LogInfo(
                    kManagerTag, QStringLiteral("XXX downloaderList.size() is %1").arg(RunningCount()));
                m_starter.drained();
            }
            return;
        }
        Open(next);
    } while (RunningCount() < kMaxRunning);
}

void TransferQueue::Open(int index)
{
    // A copy: a report inside the start may even begin a new run of the list.
    const Morvantix::DownloadFileInfo file = File(index);
    const qint64 bytesOnDisk = QFileUtils::GetFileSize(file.localPath);
    const QSharedPointer<downloader> transfer = m_starter.make(file);
    Start(index, transfer);
    transfer->SetRequest(file.localPath, QUrl(file.url), file.size);
    transfer->ReStartDownload();
    // A file found complete has reported already and is done: no request of it is open.
    const bool stillRunning = index < Size() && m_entries.at(index).transfer == transfer;
    if (stillRunning && m_starter.jobRunning())
        m_starter.opened(file, bytesOnDisk);
}

bool TransferQueue::Finish(const QString& localPath)
{
    for (int index : qAsConst(m_running)) {
        if (m_entries.at(index).transfer->GetFilePath() == localPath) {
            MoveTo(index, TransferState::Done);
            return true;
        }
    }
    return false;
}

void TransferQueue::StopRunning(TransferState why)
{
    while (!m_running.isEmpty())
        MoveTo(m_running.last(), why);
}

QVector<QPointer<downloader>> TransferQueue::RunningTransfers() const
{
    QVector<QPointer<downloader>> running;
    running.reserve(m_running.size());
    for (int index : m_running)
        running.append(m_entries.at(index).transfer.data());
    return running;
}

void TransferQueue::MoveTo(int index, TransferState next)
{
    Entry& entry = m_entries[index];
    if (entry.state == next)
        return;
    if (entry.state == TransferState::Waiting)
        m_nextWaiting = index + 1;
    if (next == TransferState::Running) {
        m_running.append(index);
    } else if (entry.state == TransferState::Running) {
        m_running.removeOne(index);
        // A file that stops running lets go of its transfer: the file is closed and the reply
        // aborted now, and the object goes once the event loop is back (a transfer is often
        // dropped from inside one of its own signals).
        entry.transfer->Release();
        entry.transfer.reset();
    }
    entry.state = next;
}

#include "install/DigestQueue.h"

#include "files/Md5Hasher.h"

#include <QMutex>
#include <QRunnable>
#include <QThread>
#include <QWaitCondition>

#include <atomic>
#include <vector>

namespace {

// How many digests may wait to be taken: enough that a worker busy with a big file does not hold
// up the others, few enough to be nothing in memory.
constexpr int kWindow = 64;

// One read of a file: large enough that a big file costs few system calls and a small one a single
// read, small enough that the block is still in the processor's cache when it is hashed.
constexpr qint64 kReadSize = 256 * 1024;

// A second worker puts a second core to the hashing; more would mostly make a spinning disk seek
// between files, and on a cold disk reading, not hashing, sets the pace.
constexpr int kMaxWorkers = 2;

} // namespace

struct DigestQueue::State
{
    explicit State(const QStringList& list)
        : paths(list)
        , digests(kWindow)
        , ready(kWindow, false)
    { }

    void work();

    const QStringList paths;
    QMutex mutex;
    QWaitCondition digestReady;
    QWaitCondition roomFreed;
    std::vector<QString> digests; // a ring: file i waits in slot i % kWindow
    std::vector<bool> ready;
    int claimed = 0; // files handed to a worker
    int taken = 0; // digests handed out
    std::atomic<bool> stop { false };
};

void DigestQueue::State::work()
{
    QByteArray buffer(int(kReadSize), Qt::Uninitialized);
    for (;;) {
        int index = 0;
        {
            QMutexLocker lock(&mutex);
            while (!stop && claimed < paths.size() && claimed >= taken + kWindow)
                roomFreed.wait(&mutex);
            if (stop || claimed >= paths.size())
                return;
            index = claimed++;
        }
        QString digest = Md5Hasher::hexDigestOfFile(paths.at(index), buffer, &stop);
        QMutexLocker lock(&mutex);
        digests[size_t(index % kWindow)] = std::move(digest);
        ready[size_t(index % kWindow)] = true;
        if (index == taken)
            digestReady.wakeOne();
    }
}

DigestQueue::DigestQueue(const QStringList& paths)
    : m_state(std::make_shared<State>(paths))
{
    const int workers = qBound(1, QThread::idealThreadCount(), kMaxWorkers);
    m_pool.setMaxThreadCount(workers);
    // Each worker holds the state too: it outlives this object if the thread that owns it is
    // terminated mid-way.
    for (int i = 0; i < qMin(workers, paths.size()); ++i) {
        const std::shared_ptr<State> state = m_state;
        m_pool.start(QRunnable::create([state] { state->work(); }));
    }
}

DigestQueue::~DigestQueue()
{
    {
        QMutexLocker lock(&m_state->mutex);
        m_state->stop = true;
        m_state->roomFreed.wakeAll();
    }
    m_pool.waitForDone();
}

QString DigestQueue::takeNext()
{
    State& s = *m_state;
    QMutexLocker lock(&s.mutex);
    if (s.taken >= s.paths.size())
        return QString();
    const size_t slot = size_t(s.taken % kWindow);
    while (!s.ready[slot])
        s.digestReady.wait(&s.mutex);
    QString digest = std::move(s.digests[slot]);
    s.ready[slot] = false;
    ++s.taken;
    s.roomFreed.wakeOne();
    return digest;
}

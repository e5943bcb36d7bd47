#pragma once

#include <QString>
#include <QStringList>
#include <QThreadPool>

#include <memory>

// The MD5 digests of a list of files, worked out ahead on worker threads and handed out strictly in
// list order, so the one who reports on each file never waits for the disk or the hash of the next.
// At most a fixed number of digests wait to be taken and every worker streams its files through one
// buffer of its own, so memory stays flat whatever the list and the sizes of its files. Internal to
// the library.
class DigestQueue
{
public:
    // An empty path is never opened; its digest is empty.
    explicit DigestQueue(const QStringList& paths);
    // Stops the workers and waits for them: a file half hashed is dropped.
    ~DigestQueue();

    DigestQueue(const DigestQueue&) = delete;
    DigestQueue& operator=(const DigestQueue&) = delete;

    // The lower-case hexadecimal MD5 of the next file of the list, waiting for it if need be: empty
    // when it is not a readable file. A file that shrinks while it is read is hashed as far as it goes.
    QString takeNext();

    struct State;

private:
    std::shared_ptr<State> m_state;
    QThreadPool m_pool;
};

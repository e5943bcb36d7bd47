#pragma once

#include <QByteArray>
#include <QString>

#include <atomic>
#include <functional>

// The one way the library reads a file for its digest: regular files only (a pipe would block and a
// device never ends, so the type is asked before anything is opened), unbuffered (every block goes
// straight from the system to the hash, without a second copy through the device), in blocks of the
// caller's buffer. Internal to the library.
class FileBlockReader
{
public:
    enum class End
    {
        Read, // to its end, or to the limit
        Unreadable, // no regular file, not opened, or no buffer to read into
        ReadFailed, // after `bytes` had been handed on
        Stopped, // the stop flag turned true after `bytes`
    };

    struct Result
    {
        End end = End::Unreadable;
        qint64 bytes = 0; // handed on
    };

    // As the limit: the size the file has when it is opened, so a file that grows meanwhile is read
    // no further (one that shrinks is read as far as it goes).
    static constexpr qint64 kOpenSize = -1;

    // Hands each block read to onBlock, no more than `limit` bytes in all.
    static Result Read(const QString& path, QByteArray& buffer, qint64 limit, const std::atomic<bool>* stop,
        const std::function<void(const char* data, qint64 size)>& onBlock);
};

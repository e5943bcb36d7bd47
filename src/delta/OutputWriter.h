#pragma once

#include "ByteFile.h"

#include <condition_variable>
#include <cstdint>
#include <deque>
#include <mutex>
#include <thread>
#include <utility>

namespace Delta {

// Sums and writes the new file's bytes on a thread of its own, in the order they are handed over, so
// that the decoder makes the next bytes meanwhile. Where no thread can be started, each piece is
// written when it is handed over.
class OutputWriter
{
public:
    explicit OutputWriter(ByteFile& out);
    // Writes what was handed over, then stops the thread.
    ~OutputWriter();
    OutputWriter(const OutputWriter&) = delete;
    OutputWriter& operator=(const OutputWriter&) = delete;

    // Hands n bytes over; they must stay as they are until drain returns. An earlier piece's failure
    // is told by drain.
    void submit(const unsigned char* data, std::size_t n);
    // Waits until every piece handed over is written, and tells the first failure.
    Result drain();
    // The CRC-32 of every byte written, once drain has returned.
    std::uint32_t crc() const { return m_crc; }

private:
    void run();
    Result write(const unsigned char* data, std::size_t n);

    ByteFile& m_out;
    std::mutex m_mutex;
    std::condition_variable m_changed;
    std::deque<std::pair<const unsigned char*, std::size_t>> m_pieces;
    bool m_writing = false; // a piece taken off the queue is being written
    bool m_stopping = false;
    Result m_failure;
    std::uint32_t m_crc = 0;
    std::thread m_thread; // last: started once the rest is ready
};

} // namespace Delta

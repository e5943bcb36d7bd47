#include "OutputWriter.h"

#include "Crc32.h"

#include <system_error>

namespace Delta {

OutputWriter::OutputWriter(ByteFile& out)
    : m_out(out)
{
    try {
        m_thread = std::thread([this] { run(); });
    } catch (const std::system_error&) {
        // Written as handed over.
    }
}

OutputWriter::~OutputWriter()
{
    if (!m_thread.joinable())
        return;
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_stopping = true;
    }
    m_changed.notify_all();
    m_thread.join();
}

Result OutputWriter::write(const unsigned char* data, std::size_t n)
{
    m_crc = Crc32(m_crc, data, n);
    return m_out.write(data, n);
}

void OutputWriter::submit(const unsigned char* data, std::size_t n)
{
    if (!m_thread.joinable()) {
        if (m_failure.ok())
            m_failure = write(data, n);
        return;
    }
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_pieces.emplace_back(data, n);
    }
    m_changed.notify_all();
}

Result OutputWriter::drain()
{
    std::unique_lock<std::mutex> lock(m_mutex);
    m_changed.wait(lock, [this] { return m_pieces.empty() && !m_writing; });
    return m_failure;
}

void OutputWriter::run()
{
    std::unique_lock<std::mutex> lock(m_mutex);
    for (;;) {
        m_changed.wait(lock, [this] { return m_stopping || !m_pieces.empty(); });
        if (m_pieces.empty())
            return;
        const auto piece = m_pieces.front();
        m_pieces.pop_front();
        m_writing = true;
        // After a failure the rest is not written: the file is thrown away.
        const bool failed = !m_failure.ok();
        lock.unlock();
        const Result result = failed ? Result {} : write(piece.first, piece.second);
        lock.lock();
        if (!result.ok())
            m_failure = result;
        m_writing = false;
        m_changed.notify_all();
    }
}

} // namespace Delta

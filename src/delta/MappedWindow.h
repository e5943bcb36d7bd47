#pragma once

#include "ByteFile.h"

#include <cstdint>

namespace Delta {

// A stretch of a file opened for reading, mapped into memory: bytes read from it cost no call to the
// system, and the pages it brings in leave the process with the window, so what the process holds
// stays at the window's length however much of the file passes through it.
class MappedWindow
{
public:
    MappedWindow() = default;
    ~MappedWindow();
    MappedWindow(const MappedWindow&) = delete;
    MappedWindow& operator=(const MappedWindow&) = delete;

    // Maps at least [offset, offset + length) of file, which must lie inside it. False when the system
    // cannot map the file (some file systems cannot); the window is then empty.
    // Whole: the caller reads every byte, so on Linux the pages are brought in by the mapping, not one
    // fault at a time. Parts: only some of its pages are read, as a window that copies are taken from.
    enum class Use
    {
        Parts,
        Whole,
    };
    bool map(const ByteFile& file, std::uint64_t offset, std::size_t length, Use use = Use::Parts);
    void unmap();
    bool covers(std::uint64_t offset, std::size_t length) const
    {
        return m_base && offset >= m_start && offset - m_start + length <= m_length;
    }
    // Inside what the window covers.
    const unsigned char* at(std::uint64_t offset) const { return m_base + (offset - m_start); }

private:
    const unsigned char* m_base = nullptr;
    std::uint64_t m_start = 0;
    std::size_t m_length = 0;
};

} // namespace Delta

#include "OldFileCache.h"

#include <algorithm>
#include <cstring>
#include <new>

namespace Delta {

OldFileCache::OldFileCache(ByteFile& file, std::size_t blockSize, std::size_t blockCount)
    : m_file(file)
    , m_blockSize(std::max<std::size_t>(blockSize, 1))
    , m_blockCount(std::max<std::size_t>(blockCount, 1))
{ }

Result OldFileCache::reserve()
{
    try {
        m_bytes.resize(m_blockSize * m_blockCount);
        m_held.assign(m_blockCount, 0);
    } catch (const std::bad_alloc&) {
        return Result::Failure(Status::OutOfMemory, "no memory to read " + m_file.path());
    }
    return {};
}

Result OldFileCache::read(std::uint64_t offset, unsigned char* to, std::size_t n)
{
    if (n >= m_blockSize)
        return m_file.readAt(offset, to, n);
    while (n > 0) {
        const std::uint64_t block = offset / m_blockSize;
        const std::size_t within = std::size_t(offset % m_blockSize);
        const std::size_t piece = std::min(n, m_blockSize - within);
        const unsigned char* bytes = nullptr;
        const Result result = blockAt(block, bytes);
        if (!result.ok())
            return result;
        std::memcpy(to, bytes + within, piece);
        to += piece;
        offset += piece;
        n -= piece;
    }
    return {};
}

Result OldFileCache::blockAt(std::uint64_t block, const unsigned char*& bytes)
{
    const std::size_t place = std::size_t(block % m_blockCount);
    unsigned char* start = m_bytes.data() + place * m_blockSize;
    if (m_held[place] != block + 1) {
        const std::uint64_t offset = block * m_blockSize;
        // The last block is as long as what is left of the file.
        const std::size_t length = std::size_t(std::min<std::uint64_t>(m_blockSize, m_file.size() - offset));
        m_held[place] = 0;
        const Result result = m_file.readAt(offset, start, length);
        if (!result.ok())
            return result;
        m_held[place] = block + 1;
    }
    bytes = start;
    return {};
}

} // namespace Delta

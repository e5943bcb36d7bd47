#pragma once

#include "ByteFile.h"

#include <cstdint>
#include <vector>

namespace Delta {

// The old file as the rebuild reads it. A major version's diff copies millions of short pieces, mostly
// in the old file's order a little apart: read one by one, each was a seek and a read. Here the file is
// read in aligned blocks kept in memory, each block in the one place its number gives, so neighbours
// never push each other out and a piece costs a copy in memory. A long piece is read straight from the
// file, which is as fast and keeps the blocks for the short ones.
class OldFileCache
{
public:
    static constexpr std::size_t kBlockSize = 64 << 10;
    static constexpr std::size_t kBlockCount = 64;

    // The file stays the caller's; it must outlive the cache.
    explicit OldFileCache(
        ByteFile& file, std::size_t blockSize = kBlockSize, std::size_t blockCount = kBlockCount);

    // Takes the memory the blocks need (blockSize × blockCount): OutOfMemory when there is none.
    Result reserve();
    // Exactly n bytes at offset; the caller keeps offset + n within the file.
    Result read(std::uint64_t offset, unsigned char* to, std::size_t n);

private:
    // The block's bytes, read from the file unless they are there already.
    Result blockAt(std::uint64_t block, const unsigned char*& bytes);

    ByteFile& m_file;
    const std::size_t m_blockSize;
    const std::size_t m_blockCount;
    std::vector<unsigned char> m_bytes;
    std::vector<std::uint64_t> m_held; // per place: the number of the block there, plus one (0: none)
};

} // namespace Delta

#pragma once

#include "ByteFile.h"
#include "DiffFormat.h"
#include "StreamReader.h"

#include <vector>

namespace Delta {

// Rebuilds a new file from an old file and a diff, streaming: memory is the cache given plus a fixed
// amount, whatever the sizes of the files. Everything that can be checked before the first byte is
// written is checked first: the diff's own checksum and length, the old file's size and checksum.
class Decoder
{
public:
    static constexpr std::size_t kDefaultCache = 1 << 20;

    explicit Decoder(std::size_t cacheSize = kDefaultCache);

    // Reads the diff's header and checks the diff and the old file. Nothing is written.
    Result check(const std::string& oldPath, const std::string& diffPath);
    // After a successful check: writes the new file into out and checks it.
    Result decode(ByteFile& out);

    const DiffHeader& header() const { return m_header; }

private:
    Result checkDiff(const std::string& diffPath);
    Result checkOld(const std::string& oldPath);
    Result copyFromOld(std::uint64_t length, ByteFile& out);
    Result copyExtra(std::uint64_t length, ByteFile& out);
    Result addDifferences(unsigned char* bytes, std::size_t n);
    Result put(const unsigned char* bytes, std::size_t n, ByteFile& out);

    std::size_t m_cacheSize;
    DiffHeader m_header;
    std::string m_diffPath;
    ByteFile m_old;
    StreamReader m_streams[StreamCount];
    std::vector<unsigned char> m_cache;
    std::vector<unsigned char> m_literals;
    std::uint64_t m_oldPosition = 0;
    std::uint64_t m_zerosLeft = 0; // of the current difference run
    std::uint64_t m_literalsLeft = 0;
    unsigned m_carry = 0; // into the next literal of the run
    std::uint32_t m_newCrc = 0;
};

} // namespace Delta

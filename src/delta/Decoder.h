#pragma once

#include "ByteFile.h"
#include "DiffFormat.h"
#include "StreamReader.h"

#include <vector>

namespace Delta {

// Rebuilds a new file from an old file and a diff, streaming: memory is twice the cache given (the new
// bytes on their way out, the old file's checksum) plus a fixed amount, whatever the sizes of the files. The
// diff's own checksum and length and the old file's size are checked before the first byte is written; the
// old file's checksum is taken on a second thread while the new file is written, and the new file's at the
// end.
class Decoder
{
public:
    static constexpr std::size_t kDefaultCache = 1 << 20;

    explicit Decoder(std::size_t cacheSize = kDefaultCache);

    // Reads the diff's header and checks the diff and the old file's size. Nothing is written.
    Result check(const std::string& oldPath, const std::string& diffPath);
    // After a successful check: writes the new file into out, which the caller throws away unless
    // this succeeds, and checks the old file and the new one.
    Result decode(ByteFile& out);

    const DiffHeader& header() const { return m_header; }

private:
    Result checkDiff(const std::string& diffPath);
    Result checkOldSize(const std::string& oldPath);
    // The old file's checksum, through a handle and a buffer of its own.
    Result checkOldBytes() const;
    Result rebuild(ByteFile& out);
    Result copyFromOld(std::uint64_t length, ByteFile& out);
    Result copyExtra(std::uint64_t length, ByteFile& out);
    Result addDifferences(unsigned char* bytes, std::size_t n);
    // Checksums and writes the new bytes gathered in the cache.
    Result flushOut(ByteFile& out);

    std::size_t m_cacheSize;
    DiffHeader m_header;
    std::string m_diffPath;
    std::string m_oldPath;
    ByteFile m_old;
    StreamReader m_streams[StreamCount];
    std::vector<unsigned char> m_cache; // the new bytes on their way out
    std::size_t m_outUsed = 0;
    std::vector<unsigned char> m_literals;
    std::uint64_t m_oldPosition = 0;
    std::uint64_t m_zerosLeft = 0; // of the current difference run
    std::uint64_t m_literalsLeft = 0;
    unsigned m_carry = 0; // into the next literal of the run
    std::uint32_t m_newCrc = 0;
};

} // namespace Delta

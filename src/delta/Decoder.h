#pragma once

#include "ByteFile.h"
#include "CopyGather.h"
#include "DiffFormat.h"
#include "LargePageAllocator.h"
#include "StreamReader.h"

#include <vector>

namespace Delta {

// Rebuilds a new file from an old file and a diff, streaming, one stretch of the new file at a time:
// memory is the stretch (kStretchPerCache times the cache given), the lists of the copies it holds (at
// most a quarter of that), a window of the old file for the copies and one of the cache's length for its
// checksum, and a fixed amount, whatever the sizes of the files. The diff's own checksum and
// length and the old file's size are checked before the first byte is written; the old file's checksum
// is taken on a second thread while the new file is written, and the new file's at the end.
class Decoder
{
public:
    static constexpr std::size_t kDefaultCache = 1 << 20;
    // Each stretch reads the old file once, in order: the longer the stretch, the fewer the passes.
    static constexpr std::size_t kStretchPerCache = 16;
    // A stretch holds at most one copy for every so many of its bytes, which bounds its bookkeeping
    // when the diff's copies are tiny.
    static constexpr std::size_t kBytesPerCopy = 64;

    explicit Decoder(std::size_t cacheSize = kDefaultCache);

    // Reads the diff's header and checks the diff and the old file's size. Nothing is written.
    Result check(const std::string& oldPath, const std::string& diffPath);
    // After a successful check: writes the new file into out, which the caller throws away unless
    // this succeeds, and checks the old file and the new one.
    Result decode(ByteFile& out);

    const DiffHeader& header() const { return m_header; }

private:
    // The header, and the diff's length against it.
    Result readHeader(ByteFile& diff, const std::string& diffPath);
    // The diff's checksum; after makeRoom.
    Result checkDiffBytes(ByteFile& diff);
    Result checkOldSize(const std::string& oldPath);
    // The stretch and its list of copies, once the header gives the new file's size.
    Result makeRoom();
    // The old file's checksum, through a handle and a buffer of its own.
    Result checkOldBytes() const;
    Result rebuild(ByteFile& out);
    // The next record of the control stream, checked against both files.
    Result readRecord();
    // Takes records until the stretch is full; their copies go to the gather.
    Result planStretch();
    // With the old bytes in place: the differences and the extra bytes, in the order of the diff, and
    // out with them.
    Result completeStretch(ByteFile& out);
    Result addDifferences(unsigned char* bytes, std::size_t n);
    // The runs that lie whole in the difference stream's buffer and in the n bytes, parsed where they
    // lie; moves bytes and n past them. What it leaves, a run cut by either end or one that is not
    // sound, addDifferences takes piece by piece and judges.
    void addWholeRuns(unsigned char*& bytes, std::size_t& n);
    // Checksums and writes the stretch's bytes from from to to, and moves from there.
    Result writeOut(std::size_t& from, std::size_t to, ByteFile& out);

    std::size_t m_cacheSize;
    DiffHeader m_header;
    unsigned char m_headerBytes[kHeaderSize] {};
    std::string m_oldPath;
    ByteFile m_old;
    StreamReader m_streams[StreamCount];
    // The new bytes on their way out. In large pages: a small file's apply otherwise spends more time
    // in the faults of a fresh page for every 4 KiB of its stretch than in making its bytes.
    std::vector<unsigned char, LargePageAllocator<unsigned char>> m_stretch;
    std::size_t m_stretchUsed = 0;
    std::size_t m_mostCopies = 1; // in one stretch
    CopyGather m_gather;
    std::uint64_t m_oldPosition = 0;
    std::uint64_t m_planned = 0; // new bytes whose records have been read
    std::uint64_t m_copyLeft = 0; // of the current record, for the next stretch
    std::uint64_t m_extraLeft = 0;
    std::uint64_t m_zerosLeft = 0; // of the current difference run
    std::uint64_t m_literalsLeft = 0;
    unsigned m_carry = 0; // into the next literal of the run
    std::uint32_t m_newCrc = 0;
};

} // namespace Delta

#include "Encoder.h"

#include "ByteFile.h"
#include "Crc32.h"
#include "DiffSink.h"
#include "LargePageAllocator.h"
#include "Matcher.h"
#include "PieceList.h"

#include <algorithm>
#include <atomic>
#include <cstring>
#include <new>
#include <system_error>
#include <thread>
#include <vector>

namespace Delta {

namespace {

// Buffers, streams, the compressor and the index's tables of byte pairs and triples, whatever the
// files.
constexpr std::uint64_t kFixedMemory = 10 << 20;
// A span is matched against this much of the old file before and after it, at least: an insertion
// or a removal shorter than that keeps the rest of the span aligned.
constexpr std::uint64_t kLeastSlack = 8 << 20;
constexpr std::uint64_t kLargestBlock = 1 << 20;
// Per byte of a span: the span itself, its held matches (under a byte), and an old window up to twice
// as long with its index.
constexpr std::uint64_t kSpanBytesPerByte = 2 + 2 * (1 + Matcher::kIndexBytesPerByte);

// The new bytes are described in parts, taken in turn by one thread per core; parts of different
// cost even out over several of them. A part below this costs more at its seam than it saves.
constexpr std::int64_t kSmallestPart = 1 << 19;
constexpr std::int64_t kMostParts = 8;
// The matches of every part wait in memory until the parts before them are written: a major version
// of a 197 MB library held one per 61 bytes of the new file; counted at twice that.
constexpr std::uint64_t kNewBytesPerHeldPiece = 32;
static_assert(
    PieceList::kPieceBytes <= kNewBytesPerHeldPiece, "a span's held matches are counted below a byte");

// Describes the new bytes part by part on every core over the one index; the pieces of each part
// wait in memory until the parts before it are in the sink. Each seam costs a few bytes.
Result describeOnAllCores(
    const Matcher& matcher, const unsigned char* newBytes, std::int64_t newSize, PieceSink& sink)
{
    const unsigned threads = std::min(std::thread::hardware_concurrency(), 2u);
    const std::int64_t parts = std::min(kMostParts, newSize / kSmallestPart);
    if (threads < 2 || parts < 2)
        return matcher.describe(newBytes, newSize, 0, sink);
    std::vector<PieceList> pieces;
    pieces.reserve(static_cast<std::size_t>(parts));
    for (std::int64_t part = 0; part < parts; ++part)
        pieces.emplace_back(matcher.old(), matcher.oldBase(), newBytes + newSize * part / parts);
    std::vector<Result> results(static_cast<std::size_t>(parts));
    std::atomic<std::int64_t> next { 0 };
    const auto describeParts = [&] {
        for (std::int64_t part = next++; part < parts; part = next++) {
            const std::int64_t begin = newSize * part / parts, end = newSize * (part + 1) / parts;
            // Each part starts where the first one would have stood had it run on alone.
            results[std::size_t(part)]
                = matcher.describe(newBytes + begin, end - begin, begin, pieces[std::size_t(part)]);
        }
    };
    std::thread helper;
    try {
        helper = std::thread(describeParts);
    } catch (const std::system_error&) {
        // Without a second thread this one takes every part.
    }
    describeParts();
    if (helper.joinable())
        helper.join();
    for (std::int64_t part = 0; part < parts; ++part) {
        Result result = results[std::size_t(part)];
        if (result.ok())
            result = pieces[std::size_t(part)].handTo(sink);
        if (!result.ok())
            return result;
    }
    return {};
}

// The old bytes, which the match search reads at random places.
using OldBytes = std::vector<unsigned char, LargePageAllocator<unsigned char>>;

template <typename Buffer> bool allocate(Buffer& buffer, std::uint64_t size)
{
    try {
        buffer.resize(std::size_t(size));
    } catch (const std::bad_alloc&) {
        return false;
    }
    return true;
}

Result noMemory(const std::string& what)
{
    return Result::Failure(Status::OutOfMemory, "no memory for " + what);
}

} // namespace

// The three files of one encode and the checksums of the inputs.
class Encoder::Files
{
public:
    ByteFile oldFile;
    ByteFile newFile;
    DiffSink sink;

    Files(const std::string& diffPath, Codec codec)
        : sink(diffPath, codec)
    { }

    Result crcOfFile(ByteFile& file, std::uint32_t& crc)
    {
        std::vector<unsigned char> buffer(kLargestBlock);
        crc = 0;
        const Result moved = file.seek(0);
        return moved.ok() ? file.addToChecksum(file.size(), buffer.data(), buffer.size(), crc) : moved;
    }
};

Encoder::Encoder(const EncodeOptions& options)
    : m_options(options)
{ }

std::uint64_t Encoder::WholeMemory(std::uint64_t oldSize, std::uint64_t newSize)
{
    return oldSize * (1 + Matcher::kIndexBytesPerByte) + newSize
        + newSize / kNewBytesPerHeldPiece * PieceList::kPieceBytes + kFixedMemory;
}

std::uint64_t Encoder::MemoryFor(std::uint64_t oldSize, std::uint64_t newSize, std::uint64_t budget)
{
    return std::min(WholeMemory(oldSize, newSize), std::max(budget, kFixedMemory * 2));
}

Result Encoder::encode(const std::string& oldPath, const std::string& newPath, const std::string& diffPath)
{
    Files files(diffPath, m_options.codec);
    Result result = files.oldFile.open(oldPath, ByteFile::Mode::Read);
    if (result.ok())
        result = files.newFile.open(newPath, ByteFile::Mode::Read);
    if (result.ok())
        result = files.sink.open();
    if (!result.ok())
        return result;
    const std::uint64_t oldSize = files.oldFile.size();
    const bool whole = oldSize <= std::uint64_t(Matcher::kLargestOld)
        && WholeMemory(oldSize, files.newFile.size()) <= m_options.memoryBudget;
    if (whole)
        return encodeWhole(files);
    const std::uint64_t budget = std::max(m_options.memoryBudget, kFixedMemory * 2) - kFixedMemory;
    m_window = std::min<std::uint64_t>(budget / kSpanBytesPerByte, Matcher::kLargestOld / 2);
    m_block = std::max<std::uint64_t>(std::min(kLargestBlock, m_window / 4), 4096);
    return encodeBySpans(files);
}

Result Encoder::encodeWhole(Files& files)
{
    OldBytes oldBytes;
    std::vector<unsigned char> newBytes;
    if (!allocate(oldBytes, files.oldFile.size()) || !allocate(newBytes, files.newFile.size()))
        return noMemory("the files");
    Result result = files.oldFile.readAt(0, oldBytes.data(), oldBytes.size());
    if (result.ok())
        result = files.newFile.readAt(0, newBytes.data(), newBytes.size());
    Matcher matcher(oldBytes.data(), std::int64_t(oldBytes.size()), 0);
    if (result.ok())
        result = matcher.buildIndex();
    if (result.ok())
        result = describeOnAllCores(matcher, newBytes.data(), std::int64_t(newBytes.size()), files.sink);
    if (!result.ok())
        return result;
    return files.sink.finish(oldBytes.size(), Crc32(0, oldBytes.data(), oldBytes.size()), newBytes.size(),
        Crc32(0, newBytes.data(), newBytes.size()));
}

Result Encoder::encodeBySpans(Files& files)
{
    const std::uint64_t oldSize = files.oldFile.size(), newSize = files.newFile.size();
    std::vector<unsigned char> oldBlock, newBlock;
    if (!allocate(oldBlock, m_block) || !allocate(newBlock, m_block))
        return noMemory("the blocks");
    // Whether the new file's block at offset is the old file's block at the same offset.
    const auto sameAt = [&](std::uint64_t offset, std::uint64_t n, Result& result) {
        if (offset + n > oldSize)
            return false;
        result = files.newFile.readAt(offset, newBlock.data(), std::size_t(n));
        if (result.ok())
            result = files.oldFile.readAt(offset, oldBlock.data(), std::size_t(n));
        return result.ok() && std::memcmp(oldBlock.data(), newBlock.data(), std::size_t(n)) == 0;
    };

    Result result;
    for (std::uint64_t at = 0; result.ok() && at < newSize;) {
        const std::uint64_t n = std::min(m_block, newSize - at);
        if (sameAt(at, n, result)) {
            result = files.sink.add(at, nullptr, nullptr, n, nullptr, 0);
            at += n;
            continue;
        }
        if (!result.ok())
            break;
        // The changed span runs on to the next block that is the same, or to the window's length.
        std::uint64_t end = at + n;
        while (result.ok() && end < newSize && end - at < m_window) {
            const std::uint64_t next = std::min({ m_block, newSize - end, m_window - (end - at) });
            if (sameAt(end, next, result))
                break;
            end += next;
        }
        if (result.ok())
            result = matchSpan(files, at, end);
        at = end;
    }
    std::uint32_t oldCrc = 0, newCrc = 0;
    if (result.ok())
        result = files.crcOfFile(files.oldFile, oldCrc);
    if (result.ok())
        result = files.crcOfFile(files.newFile, newCrc);
    if (!result.ok())
        return result;
    return files.sink.finish(oldSize, oldCrc, newSize, newCrc);
}

Result Encoder::matchSpan(Files& files, std::uint64_t begin, std::uint64_t end)
{
    const std::uint64_t oldSize = files.oldFile.size();
    const std::uint64_t span = end - begin;
    const std::uint64_t slack = std::max(std::min(span, m_window / 2), std::min(kLeastSlack, m_window / 2));
    std::uint64_t oldBegin = begin > slack ? begin - slack : 0;
    std::uint64_t oldEnd = std::min(oldSize, end + slack);
    if (oldBegin >= oldEnd) { // the new file runs on past the old one: its last stretch is the window
        oldEnd = oldSize;
        oldBegin = oldSize > span + 2 * slack ? oldSize - (span + 2 * slack) : 0;
    }
    OldBytes oldBytes;
    std::vector<unsigned char> newBytes;
    if (!allocate(oldBytes, oldEnd - oldBegin) || !allocate(newBytes, span))
        return noMemory("a span");
    Result result = files.oldFile.readAt(oldBegin, oldBytes.data(), oldBytes.size());
    if (result.ok())
        result = files.newFile.readAt(begin, newBytes.data(), newBytes.size());
    Matcher matcher(oldBytes.data(), std::int64_t(oldBytes.size()), oldBegin);
    if (result.ok())
        result = matcher.buildIndex();
    if (result.ok())
        result = describeOnAllCores(matcher, newBytes.data(), std::int64_t(newBytes.size()), files.sink);
    return result;
}

} // namespace Delta

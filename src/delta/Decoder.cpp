#include "Decoder.h"

#include "Crc32.h"
#include "MappedWindow.h"

#include <algorithm>
#include <cstring>
#include <memory>
#include <new>
#include <system_error>
#include <thread>

namespace Delta {

namespace {

Result corrupt(const std::string& why)
{
    return Result::Failure(Status::CorruptDiff, "the diff is damaged: " + why);
}

constexpr std::size_t kSmallestCache = 64 * 1024;
constexpr std::size_t kLargestCache = std::size_t(1) << 30;

// The CRC-32 of the whole of file, read window by window through a mapping, which spares copying every
// byte out of the system's cache; where the system cannot map the file, read through a buffer of
// windowSize bytes from the first window it refused.
Result checksumOf(ByteFile& file, std::size_t windowSize, std::uint32_t& crc)
{
    crc = 0;
    std::uint64_t offset = 0;
    for (MappedWindow window; offset < file.size(); offset += windowSize) {
        const std::size_t n = std::size_t(std::min<std::uint64_t>(windowSize, file.size() - offset));
        if (!window.map(file, offset, n, MappedWindow::Use::Whole))
            break;
        crc = Crc32(crc, window.at(offset), n);
    }
    if (offset >= file.size())
        return {};
    std::unique_ptr<unsigned char[]> buffer(new (std::nothrow) unsigned char[windowSize]);
    if (!buffer)
        return Result::Failure(Status::OutOfMemory, "no memory to read " + file.path());
    const Result result = file.seek(offset);
    return result.ok() ? file.addToChecksum(file.size() - offset, buffer.get(), windowSize, crc) : result;
}

// Adds n literal bytes to bytes as one little-endian number with carry in, and gives the carry out:
// eight bytes at a time where the processor is little-endian, as both of ours are.
unsigned AddWithCarry(unsigned char* bytes, const unsigned char* literals, std::size_t n, unsigned carry)
{
    std::size_t i = 0;
#if defined(__BYTE_ORDER__) && __BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__
    for (; i + 8 <= n; i += 8) {
        std::uint64_t old, literal;
        std::memcpy(&old, bytes + i, 8);
        std::memcpy(&literal, literals + i, 8);
        const std::uint64_t sum = old + literal;
        const std::uint64_t total = sum + carry;
        carry = unsigned(sum < old) | unsigned(total < sum);
        std::memcpy(bytes + i, &total, 8);
    }
#endif
    for (; i < n; ++i) {
        const unsigned sum = bytes[i] + literals[i] + carry;
        bytes[i] = static_cast<unsigned char>(sum);
        carry = sum >> 8;
    }
    return carry;
}

} // namespace

Decoder::Decoder(std::size_t cacheSize)
    : m_cacheSize(std::clamp(cacheSize, kSmallestCache, kLargestCache))
{ }

Result Decoder::check(const std::string& oldPath, const std::string& diffPath)
{
    ByteFile diff;
    Result result = readHeader(diff, diffPath);
    if (result.ok())
        result = makeRoom();
    if (result.ok())
        result = checkDiffBytes(diff);
    if (result.ok())
        result = checkOldSize(oldPath);
    std::uint64_t offset = kHeaderSize;
    for (int i = 0; result.ok() && i < StreamCount; ++i) {
        result = m_streams[i].open(diffPath, offset, m_header.streams[i]);
        offset += m_header.streams[i].storedSize;
    }
    return result;
}

Result Decoder::makeRoom()
{
    // No longer than the new file, since a small patch needs no stretch of 16 MiB; no shorter than the
    // smallest cache, since the diff's checksum is read through it.
    const std::size_t stretch
        = std::size_t(std::min<std::uint64_t>(std::min(m_cacheSize * kStretchPerCache, kLargestCache),
            std::max<std::uint64_t>(m_header.newSize, kSmallestCache)));
    m_mostCopies = std::max<std::size_t>(stretch / kBytesPerCopy, 1);
    try {
        m_stretch.resize(stretch);
        m_gather.reserve(m_mostCopies);
    } catch (const std::bad_alloc&) {
        return Result::Failure(Status::OutOfMemory, "no memory for the cache of the apply");
    }
    return {};
}

Result Decoder::readHeader(ByteFile& diff, const std::string& diffPath)
{
    Result result = diff.open(diffPath, ByteFile::Mode::Read);
    if (!result.ok())
        return result;
    if (diff.size() < kHeaderSize)
        return corrupt(diffPath + " is too short to be a diff");
    result = diff.read(m_headerBytes, kHeaderSize);
    if (!result.ok())
        return result;
    switch (ReadHeader(m_headerBytes, m_header)) {
    case HeaderProblem::None:
        break;
    case HeaderProblem::NotADiff:
        return corrupt(diffPath + " is no diff");
    case HeaderProblem::UnknownVersion:
        return Result::Failure(Status::UnknownVersion,
            diffPath + " has format version " + std::to_string(m_header.version) + "; this program reads "
                + std::to_string(kFormatVersion));
    case HeaderProblem::Malformed:
        return corrupt("the header of " + diffPath + " cannot be");
    }
    if (diff.size() != DiffFileSize(m_header))
        return corrupt(diffPath + " has " + std::to_string(diff.size()) + " bytes where its header promises "
            + std::to_string(DiffFileSize(m_header)) + " (truncated?)");
    return {};
}

Result Decoder::checkDiffBytes(ByteFile& diff)
{
    // Read through the stretch, which is not yet in use: a buffer of its own would be one more
    // megabyte for the system to hand over and clear.
    std::uint32_t crc = 0;
    const Result result
        = diff.addToChecksum(diff.size() - kHeaderSize, m_stretch.data(), m_stretch.size(), crc);
    if (!result.ok())
        return result;
    crc = Crc32(crc, m_headerBytes, kChecksumOffset);
    if (crc != m_header.diffCrc)
        return corrupt("the checksum of " + diff.path() + " does not match its bytes");
    return {};
}

Result Decoder::checkOldSize(const std::string& oldPath)
{
    m_oldPath = oldPath;
    const Result result = m_old.open(oldPath, ByteFile::Mode::Read);
    if (!result.ok())
        return result;
    if (m_old.size() != m_header.oldSize)
        return Result::Failure(Status::OldMismatch,
            oldPath + " has " + std::to_string(m_old.size()) + " bytes; the diff was made from a file of "
                + std::to_string(m_header.oldSize));
    return {};
}

Result Decoder::checkOldBytes() const
{
    ByteFile old;
    Result result = old.open(m_oldPath, ByteFile::Mode::Read);
    std::uint32_t crc = 0;
    if (result.ok() && old.size() != m_header.oldSize)
        result = Result::Failure(Status::OldMismatch, m_oldPath + " changed while it was patched");
    if (result.ok())
        result = checksumOf(old, m_cacheSize, crc);
    if (result.ok() && crc != m_header.oldCrc)
        result = Result::Failure(Status::OldMismatch, m_oldPath + " is not the file the diff was made from");
    return result;
}

Result Decoder::decode(ByteFile& out)
{
    // Reading and summing the old file is a good part of the work: it runs beside the rebuild, whose
    // output stays unnamed until both are done.
    Result oldChecked;
    std::thread checker;
    try {
        checker = std::thread([this, &oldChecked] { oldChecked = checkOldBytes(); });
    } catch (const std::system_error&) {
        oldChecked = checkOldBytes();
        if (!oldChecked.ok())
            return oldChecked;
    }
    const Result rebuilt = rebuild(out);
    if (checker.joinable())
        checker.join();
    // A wrong old file spoils the new bytes too; its own message says why.
    return oldChecked.ok() ? rebuilt : oldChecked;
}

Result Decoder::rebuild(ByteFile& out)
{
    m_oldPosition = m_planned = m_copyLeft = m_extraLeft = 0;
    m_zerosLeft = m_literalsLeft = 0;
    m_carry = 0;
    m_newCrc = 0;
    while (m_planned < m_header.newSize || m_copyLeft > 0 || m_extraLeft > 0) {
        Result result = planStretch();
        if (result.ok())
            result = m_gather.fill(m_old, m_stretch.data());
        if (result.ok())
            result = completeStretch(out);
        if (!result.ok())
            return result;
    }
    for (const StreamReader& stream : m_streams) {
        if (!stream.atEnd())
            return corrupt("a stream holds more than the new file needs");
    }
    if (m_zerosLeft != 0 || m_literalsLeft != 0)
        return corrupt("the differences run past the new file");
    if (m_newCrc != m_header.newCrc)
        return corrupt("the new file's checksum does not match");
    return {};
}

Result Decoder::readRecord()
{
    std::uint64_t numbers[3];
    const Result result = m_streams[ControlStream].readVarints(numbers, 3);
    if (!result.ok())
        return result;
    const std::int64_t move = UnZigZag(numbers[0]);
    const std::uint64_t copy = numbers[1], extra = numbers[2];
    if ((move < 0 && std::uint64_t(-move) > m_oldPosition)
        || (move > 0 && std::uint64_t(move) > m_header.oldSize - m_oldPosition))
        return corrupt("a record moves outside the old file");
    m_oldPosition += std::uint64_t(move);
    if (copy > m_header.oldSize - m_oldPosition || copy > m_header.newSize - m_planned
        || extra > m_header.newSize - m_planned - copy)
        return corrupt("a record reaches past the end of a file");
    m_copyLeft = copy;
    m_extraLeft = extra;
    m_planned += copy + extra;
    return {};
}

Result Decoder::planStretch()
{
    m_gather.clear();
    m_stretchUsed = 0;
    while (m_stretchUsed < m_stretch.size() && m_gather.count() < m_mostCopies) {
        if (m_copyLeft == 0 && m_extraLeft == 0) {
            if (m_planned == m_header.newSize)
                break;
            const Result result = readRecord();
            if (!result.ok())
                return result;
        }
        const auto copy
            = std::uint32_t(std::min<std::uint64_t>(m_copyLeft, m_stretch.size() - m_stretchUsed));
        if (copy > 0)
            m_gather.add(m_oldPosition, std::uint32_t(m_stretchUsed), copy);
        m_oldPosition += copy;
        m_copyLeft -= copy;
        m_stretchUsed += copy;
        const auto extra
            = std::uint32_t(std::min<std::uint64_t>(m_extraLeft, m_stretch.size() - m_stretchUsed));
        m_extraLeft -= extra;
        m_stretchUsed += extra;
    }
    return {};
}

Result Decoder::completeStretch(ByteFile& out)
{
    // Between two copies, and after the last, the stretch holds extra bytes. What is complete goes out
    // a cache at a time, so the disk writes while the rest is made.
    std::size_t at = 0, written = 0;
    for (const CopyGather::Copy& copy : m_gather.copies()) {
        Result result = m_streams[ExtraStream].read(m_stretch.data() + at, copy.at - at);
        if (result.ok())
            result = addDifferences(m_stretch.data() + copy.at, copy.length);
        at = copy.at + copy.length;
        if (result.ok() && at - written >= m_cacheSize)
            result = writeOut(written, at, out);
        if (!result.ok())
            return result;
    }
    Result result = m_streams[ExtraStream].read(m_stretch.data() + at, m_stretchUsed - at);
    return result.ok() ? writeOut(written, m_stretchUsed, out) : result;
}

void Decoder::addWholeRuns(unsigned char*& bytes, std::size_t& n)
{
    StreamReader& differences = m_streams[DifferenceStream];
    std::size_t buffered = 0;
    const unsigned char* const begin = differences.buffered(buffered);
    const unsigned char* const end = begin + buffered;
    const unsigned char* at = begin;
    while (n > 0 && std::size_t(end - at) >= 2 * kMaxVarintBytes) {
        const unsigned char* next = at;
        std::uint64_t zeros = 0, literals = 0;
        if (!TakeVarint(next, zeros) || !TakeVarint(next, literals) || (zeros == 0 && literals == 0)
            || zeros > n || literals > n - zeros || literals > std::uint64_t(end - next))
            break;
        AddWithCarry(bytes + zeros, next, std::size_t(literals), 0);
        bytes += zeros + literals;
        n -= std::size_t(zeros + literals);
        at = next + literals;
    }
    differences.consume(std::size_t(at - begin));
}

Result Decoder::addDifferences(unsigned char* bytes, std::size_t n)
{
    StreamReader& differences = m_streams[DifferenceStream];
    while (n > 0) {
        if (m_zerosLeft == 0 && m_literalsLeft == 0) {
            addWholeRuns(bytes, n);
            if (n == 0)
                break;
            std::uint64_t run[2];
            const Result result = differences.readVarints(run, 2);
            if (!result.ok())
                return result;
            m_zerosLeft = run[0];
            m_literalsLeft = run[1];
            if (m_zerosLeft == 0 && m_literalsLeft == 0)
                return corrupt("an empty difference run");
            m_carry = 0;
        }
        const std::size_t zeros = std::size_t(std::min<std::uint64_t>(m_zerosLeft, n));
        bytes += zeros;
        n -= zeros;
        m_zerosLeft -= zeros;
        if (m_zerosLeft > 0 || n == 0)
            continue;
        const unsigned char* literals = nullptr;
        std::size_t take = 0;
        const Result result
            = differences.borrow(std::size_t(std::min<std::uint64_t>(m_literalsLeft, n)), literals, take);
        if (!result.ok())
            return result;
        m_carry = AddWithCarry(bytes, literals, take, m_carry);
        bytes += take;
        n -= take;
        m_literalsLeft -= take;
    }
    return {};
}

Result Decoder::writeOut(std::size_t& from, std::size_t to, ByteFile& out)
{
    m_newCrc = Crc32(m_newCrc, m_stretch.data() + from, to - from);
    const Result result = out.write(m_stretch.data() + from, to - from);
    from = to;
    return result;
}

} // namespace Delta

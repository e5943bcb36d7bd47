#include "Decoder.h"

#include <algorithm>
#include <new>
#include <system_error>
#include <thread>
#include <zlib.h>

namespace Delta {

namespace {

Result corrupt(const std::string& why)
{
    return Result::Failure(Status::CorruptDiff, "the diff is damaged: " + why);
}

constexpr std::size_t kSmallestCache = 64 * 1024;
constexpr std::size_t kLargestCache = std::size_t(1) << 30;

} // namespace

Decoder::Decoder(std::size_t cacheSize)
    : m_cacheSize(std::clamp(cacheSize, kSmallestCache, kLargestCache))
{ }

Result Decoder::check(const std::string& oldPath, const std::string& diffPath)
{
    m_cache.resize(m_cacheSize);
    m_literals.resize(kSmallestCache);
    Result result = checkDiff(diffPath);
    if (result.ok())
        result = checkOldSize(oldPath);
    std::uint64_t offset = kHeaderSize;
    for (int i = 0; result.ok() && i < StreamCount; ++i) {
        result = m_streams[i].open(diffPath, offset, m_header.streams[i]);
        offset += m_header.streams[i].storedSize;
    }
    return result;
}

Result Decoder::checkDiff(const std::string& diffPath)
{
    m_diffPath = diffPath;
    ByteFile diff;
    Result result = diff.open(diffPath, ByteFile::Mode::Read);
    if (!result.ok())
        return result;
    unsigned char bytes[kHeaderSize];
    if (diff.size() < kHeaderSize)
        return corrupt(diffPath + " is too short to be a diff");
    result = diff.read(bytes, kHeaderSize);
    if (!result.ok())
        return result;
    switch (ReadHeader(bytes, m_header)) {
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
    std::uint32_t crc = 0;
    result = diff.addToChecksum(diff.size() - kHeaderSize, m_cache.data(), m_cache.size(), crc);
    if (!result.ok())
        return result;
    crc = std::uint32_t(crc32(crc, bytes, uInt(kChecksumOffset)));
    if (crc != m_header.diffCrc)
        return corrupt("the checksum of " + diffPath + " does not match its bytes");
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
    std::vector<unsigned char> buffer;
    try {
        buffer.resize(m_cacheSize);
    } catch (const std::bad_alloc&) {
        return Result::Failure(Status::OutOfMemory, "no memory to read " + m_oldPath);
    }
    std::uint32_t crc = 0;
    if (result.ok())
        result = old.addToChecksum(m_header.oldSize, buffer.data(), buffer.size(), crc);
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
    m_oldPosition = 0;
    m_zerosLeft = m_literalsLeft = 0;
    m_carry = 0;
    m_outUsed = 0;
    m_newCrc = std::uint32_t(crc32(0, nullptr, 0));
    std::uint64_t written = 0;
    while (written < m_header.newSize) {
        std::uint64_t seek = 0, copy = 0, extra = 0;
        Result result = m_streams[ControlStream].readVarint(seek);
        if (result.ok())
            result = m_streams[ControlStream].readVarint(copy);
        if (result.ok())
            result = m_streams[ControlStream].readVarint(extra);
        if (!result.ok())
            return result;
        const std::int64_t move = UnZigZag(seek);
        if ((move < 0 && std::uint64_t(-move) > m_oldPosition)
            || (move > 0 && std::uint64_t(move) > m_header.oldSize - m_oldPosition))
            return corrupt("a record moves outside the old file");
        m_oldPosition += std::uint64_t(move);
        if (copy > m_header.oldSize - m_oldPosition || copy > m_header.newSize - written
            || extra > m_header.newSize - written - copy)
            return corrupt("a record reaches past the end of a file");
        result = copyFromOld(copy, out);
        if (result.ok())
            result = copyExtra(extra, out);
        if (!result.ok())
            return result;
        written += copy + extra;
    }
    const Result flushed = flushOut(out);
    if (!flushed.ok())
        return flushed;
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

Result Decoder::copyFromOld(std::uint64_t length, ByteFile& out)
{
    while (length > 0) {
        const std::size_t n = std::size_t(std::min<std::uint64_t>(length, m_cache.size() - m_outUsed));
        unsigned char* to = m_cache.data() + m_outUsed;
        // A major version's diff copies millions of short pieces from all over the old file: one
        // positioned read each, of just its bytes, and no buffer filled around it.
        Result result = m_old.readPositioned(m_oldPosition, to, n);
        if (result.ok())
            result = addDifferences(to, n);
        m_outUsed += n;
        if (result.ok() && m_outUsed == m_cache.size())
            result = flushOut(out);
        if (!result.ok())
            return result;
        m_oldPosition += n;
        length -= n;
    }
    return {};
}

Result Decoder::addDifferences(unsigned char* bytes, std::size_t n)
{
    StreamReader& differences = m_streams[DifferenceStream];
    while (n > 0) {
        if (m_zerosLeft == 0 && m_literalsLeft == 0) {
            Result result = differences.readVarint(m_zerosLeft);
            if (result.ok())
                result = differences.readVarint(m_literalsLeft);
            if (!result.ok())
                return result;
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
        const std::size_t take
            = std::min({ std::size_t(std::min<std::uint64_t>(m_literalsLeft, n)), m_literals.size() });
        const Result result = differences.read(m_literals.data(), take);
        if (!result.ok())
            return result;
        unsigned carry = m_carry;
        for (std::size_t i = 0; i < take; ++i) {
            const unsigned sum = bytes[i] + m_literals[i] + carry;
            bytes[i] = static_cast<unsigned char>(sum);
            carry = sum >> 8;
        }
        m_carry = carry;
        bytes += take;
        n -= take;
        m_literalsLeft -= take;
    }
    return {};
}

Result Decoder::copyExtra(std::uint64_t length, ByteFile& out)
{
    while (length > 0) {
        const std::size_t n = std::size_t(std::min<std::uint64_t>(length, m_cache.size() - m_outUsed));
        Result result = m_streams[ExtraStream].read(m_cache.data() + m_outUsed, n);
        m_outUsed += n;
        if (result.ok() && m_outUsed == m_cache.size())
            result = flushOut(out);
        if (!result.ok())
            return result;
        length -= n;
    }
    return {};
}

Result Decoder::flushOut(ByteFile& out)
{
    const std::size_t n = m_outUsed;
    m_outUsed = 0;
    m_newCrc = std::uint32_t(crc32(m_newCrc, m_cache.data(), uInt(n)));
    return out.write(m_cache.data(), n);
}

} // namespace Delta

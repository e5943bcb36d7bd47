#include "DiffSink.h"

#include "Crc32.h"

namespace Delta {

namespace {

// Fewer zeros than this between literals stay literals: a new run pair costs about as much.
constexpr std::uint64_t kShortestZeroRun = 4;
constexpr std::size_t kLongestLiteralRun = 1 << 16;
const char* const kStreamSuffixes[StreamCount] = { ".control", ".difference", ".extra" };

} // namespace

DiffSink::DiffSink(const std::string& diffPath, Codec codec)
    : m_diffPath(diffPath)
    , m_streams { StreamWriter(Codec::Stored), StreamWriter(codec), StreamWriter(codec) }
{ }

Result DiffSink::open()
{
    m_literals.reserve(kLongestLiteralRun);
    for (int i = 0; i < StreamCount; ++i) {
        const Result opened = m_streams[i].open(m_diffPath + kStreamSuffixes[i]);
        if (!opened.ok())
            return opened;
    }
    return {};
}

Result DiffSink::putVarint(int stream, std::uint64_t value)
{
    unsigned char bytes[kMaxVarintBytes];
    return m_streams[stream].write(bytes, PutVarint(value, bytes));
}

Result DiffSink::add(std::uint64_t oldStart, const unsigned char* oldCopy, const unsigned char* newCopy,
    std::uint64_t copy, const unsigned char* extra, std::uint64_t extraLength)
{
    if (copy == 0 && extraLength == 0)
        return {};
    const std::int64_t seek = copy == 0 ? 0 : std::int64_t(oldStart - m_oldPosition);
    if (m_hasRecord && seek == 0 && m_record.extra == 0) {
        m_record.copy += copy;
        m_record.extra = extraLength;
    } else {
        const Result flushed = flushRecord();
        if (!flushed.ok())
            return flushed;
        m_record = { seek, copy, extraLength };
        m_hasRecord = true;
    }
    m_oldPosition += std::uint64_t(seek) + copy;
    Result result = oldCopy && newCopy ? putDifferences(oldCopy, newCopy, copy) : putZeros(copy);
    if (result.ok() && extraLength > 0)
        result = m_streams[ExtraStream].write(extra, std::size_t(extraLength));
    return result;
}

Result DiffSink::flushRecord()
{
    if (!m_hasRecord)
        return {};
    m_hasRecord = false;
    Result result = putVarint(ControlStream, ZigZag(m_record.seek));
    if (result.ok())
        result = putVarint(ControlStream, m_record.copy);
    if (result.ok())
        result = putVarint(ControlStream, m_record.extra);
    return result;
}

Result DiffSink::putDifferences(const unsigned char* oldCopy, const unsigned char* newCopy, std::uint64_t n)
{
    for (std::uint64_t i = 0; i < n;) {
        // Equal stretches are counted without touching the run state byte by byte.
        std::uint64_t same = i;
        while (same < n && oldCopy[same] == newCopy[same])
            ++same;
        if (same > i) {
            const Result result = putZeros(same - i);
            if (!result.ok())
                return result;
            i = same;
            continue;
        }
        const Result result = putLiteral(oldCopy[i], newCopy[i]);
        if (!result.ok())
            return result;
        ++i;
    }
    return {};
}

Result DiffSink::putZeros(std::uint64_t n)
{
    if (m_literals.empty())
        m_leadingZeros += n;
    else
        m_trailingZeros += n;
    return {};
}

Result DiffSink::putLiteral(unsigned char oldByte, unsigned char newByte)
{
    if (!m_literals.empty() && m_trailingZeros >= kShortestZeroRun) {
        const Result result = emitRun();
        if (!result.ok())
            return result;
    }
    // An equal byte inside the run passes a pending carry on: 0xff plus the carry leaves it as it was.
    m_literals.insert(m_literals.end(), std::size_t(m_trailingZeros), m_carry ? 0xff : 0);
    m_trailingZeros = 0;
    const unsigned char literal = static_cast<unsigned char>(newByte - oldByte - m_carry);
    m_carry = (unsigned(oldByte) + literal + m_carry) >> 8;
    m_literals.push_back(literal);
    if (m_literals.size() >= kLongestLiteralRun)
        return emitRun();
    return {};
}

// Writes the pending pair; the zeros after its literals lead the next one.
Result DiffSink::emitRun()
{
    Result result = putVarint(DifferenceStream, m_leadingZeros);
    if (result.ok())
        result = putVarint(DifferenceStream, m_literals.size());
    if (result.ok() && !m_literals.empty())
        result = m_streams[DifferenceStream].write(m_literals.data(), m_literals.size());
    m_leadingZeros = m_trailingZeros;
    m_trailingZeros = 0;
    m_literals.clear();
    m_carry = 0;
    return result;
}

Result DiffSink::finish(
    std::uint64_t oldSize, std::uint32_t oldCrc, std::uint64_t newSize, std::uint32_t newCrc)
{
    Result result = flushRecord();
    if (result.ok() && !m_literals.empty())
        result = emitRun();
    if (result.ok() && m_leadingZeros > 0)
        result = emitRun();
    for (StreamWriter& stream : m_streams) {
        if (result.ok())
            result = stream.finish();
    }
    if (!result.ok())
        return result;
    DiffHeader header;
    header.oldSize = oldSize;
    header.oldCrc = oldCrc;
    header.newSize = newSize;
    header.newCrc = newCrc;
    return assemble(header);
}

Result DiffSink::assemble(DiffHeader& header)
{
    ByteFile diff;
    Result result = diff.open(m_diffPath, ByteFile::Mode::Write);
    unsigned char bytes[kHeaderSize] = {};
    if (result.ok())
        result = diff.write(bytes, kHeaderSize);
    std::vector<unsigned char> buffer(1 << 20);
    std::uint32_t streamsCrc = 0;
    for (int i = 0; result.ok() && i < StreamCount; ++i) {
        header.streams[i] = m_streams[i].info();
        ByteFile part;
        result = part.open(m_streams[i].path(), ByteFile::Mode::Read);
        for (std::uint64_t left = part.size(); result.ok() && left > 0;) {
            const std::size_t n = std::size_t(std::min<std::uint64_t>(left, buffer.size()));
            result = part.read(buffer.data(), n);
            if (result.ok())
                result = diff.write(buffer.data(), n);
            streamsCrc = Crc32(streamsCrc, buffer.data(), n);
            left -= n;
        }
        // Closed before its removal, which Windows refuses for an open file.
        part.close();
        m_streams[i].discard();
    }
    if (result.ok()) {
        WriteHeader(header, bytes);
        header.diffCrc = Crc32(streamsCrc, bytes, kChecksumOffset);
        WriteHeader(header, bytes);
        result = diff.seek(0);
    }
    if (result.ok())
        result = diff.write(bytes, kHeaderSize);
    if (result.ok())
        result = diff.flush();
    diff.close();
    if (!result.ok())
        Files::Remove(m_diffPath);
    return result;
}

} // namespace Delta

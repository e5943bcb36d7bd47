#include "StreamReader.h"

#include <algorithm>
#include <cstring>

namespace Delta {

namespace {

constexpr std::size_t kBufferSize = 64 * 1024;

Result corrupt(const std::string& why)
{
    return Result::Failure(Status::CorruptDiff, "the diff is damaged: " + why);
}

} // namespace

StreamReader::~StreamReader()
{
    if (m_zipOpen)
        inflateEnd(&m_zip);
}

Result StreamReader::open(const std::string& diffPath, std::uint64_t offset, const StreamInfo& info)
{
    m_info = info;
    m_storedLeft = info.storedSize;
    m_output.resize(kBufferSize);
    Result opened = m_file.open(diffPath, ByteFile::Mode::Read);
    if (opened.ok() && m_storedLeft > 0)
        opened = m_file.seek(offset);
    if (!opened.ok() || info.codec != Codec::Deflate)
        return opened;
    m_input.resize(kBufferSize);
    if (inflateInit(&m_zip) != Z_OK)
        return Result::Failure(Status::OutOfMemory, "cannot start the stream decompressor");
    m_zipOpen = true;
    return {};
}

Result StreamReader::fillInput()
{
    const std::size_t n = std::size_t(std::min<std::uint64_t>(m_storedLeft, m_input.size()));
    const Result got = m_file.read(m_input.data(), n);
    if (!got.ok())
        return got;
    m_storedLeft -= n;
    m_zip.next_in = m_input.data();
    m_zip.avail_in = uInt(n);
    return {};
}

Result StreamReader::refill()
{
    m_begin = m_end = 0;
    const std::uint64_t wanted = m_info.unpackedSize - m_delivered;
    if (wanted == 0)
        return corrupt("a stream ends early");
    if (m_info.codec == Codec::Stored) {
        const std::size_t n = std::size_t(std::min<std::uint64_t>(wanted, m_output.size()));
        const Result got = m_file.read(m_output.data(), n);
        if (!got.ok())
            return got;
        m_end = n;
        m_delivered += n;
        return {};
    }
    m_zip.next_out = m_output.data();
    m_zip.avail_out = uInt(std::min<std::uint64_t>(wanted, m_output.size()));
    const uInt room = m_zip.avail_out;
    while (m_zip.avail_out == room) {
        if (m_zipEnded)
            return corrupt("a stream holds less than its header says");
        if (m_zip.avail_in == 0) {
            if (m_storedLeft == 0)
                return corrupt("a compressed stream is cut short");
            const Result got = fillInput();
            if (!got.ok())
                return got;
        }
        const int code = inflate(&m_zip, Z_NO_FLUSH);
        if (code == Z_STREAM_END)
            m_zipEnded = true;
        else if (code == Z_MEM_ERROR)
            return Result::Failure(Status::OutOfMemory, "out of memory while decompressing");
        else if (code != Z_OK && code != Z_BUF_ERROR)
            return corrupt("a compressed stream does not decompress");
    }
    m_end = room - m_zip.avail_out;
    m_delivered += m_end;
    return {};
}

Result StreamReader::readAcrossRefills(void* data, std::size_t n)
{
    auto* out = static_cast<unsigned char*>(data);
    while (n > 0) {
        if (m_begin == m_end) {
            const Result filled = refill();
            if (!filled.ok())
                return filled;
        }
        const std::size_t take = std::min(n, m_end - m_begin);
        std::memcpy(out, m_output.data() + m_begin, take);
        m_begin += take;
        out += take;
        n -= take;
    }
    return {};
}

Result StreamReader::readVarintsAcrossRefills(std::uint64_t* values, std::size_t count)
{
    for (std::size_t k = 0; k < count; ++k) {
        const Result got = readVarintByBytes(values[k]);
        if (!got.ok())
            return got;
    }
    return {};
}

Result StreamReader::readVarintByBytes(std::uint64_t& value)
{
    value = 0;
    for (int shift = 0; shift < 64; shift += 7) {
        unsigned char byte = 0;
        const Result got = read(&byte, 1);
        if (!got.ok())
            return got;
        value |= std::uint64_t(byte & 0x7f) << shift;
        if ((byte & 0x80) == 0)
            return {};
    }
    return runsOnTooLong();
}

Result StreamReader::runsOnTooLong()
{
    return corrupt("a number runs on too long");
}

} // namespace Delta

#pragma once

#include "ByteFile.h"
#include "DiffFormat.h"

#include <algorithm>
#include <cstring>
#include <vector>
#include <zlib.h>

namespace Delta {

// One stream of a diff as the decoder reads it: its own handle on the diff file, a fixed buffer, and
// the stream decoded as it is read, so memory never grows with the stream.
class StreamReader
{
public:
    StreamReader() = default;
    ~StreamReader();
    StreamReader(const StreamReader&) = delete;
    StreamReader& operator=(const StreamReader&) = delete;

    Result open(const std::string& diffPath, std::uint64_t offset, const StreamInfo& info);

    // The three reads below are called for every record of a diff that has millions: what the buffer
    // holds is taken here, inline, and only a refill leaves the header.

    // Exactly n bytes, or CorruptDiff when the stream has fewer.
    Result read(void* data, std::size_t n)
    {
        if (n > m_end - m_begin)
            return readAcrossRefills(data, n);
        std::memcpy(data, m_output.data() + m_begin, n);
        m_begin += n;
        return {};
    }
    // The next bytes, at most most of them, where they lie in the buffer: valid until the next call.
    // At least one byte, or CorruptDiff when the stream has ended.
    Result borrow(std::size_t most, const unsigned char*& data, std::size_t& n)
    {
        if (m_begin == m_end) {
            const Result filled = refill();
            if (!filled.ok())
                return filled;
        }
        data = m_output.data() + m_begin;
        n = std::min(most, m_end - m_begin);
        m_begin += n;
        return {};
    }
    // The bytes the buffer holds unread, for a caller that parses them in place and then says with
    // consume how many it took: a diff has a hundred thousand difference runs of a few bytes each.
    const unsigned char* buffered(std::size_t& n) const
    {
        n = m_end - m_begin;
        return m_output.data() + m_begin;
    }
    void consume(std::size_t n) { m_begin += n; }

    // The next count variable-length numbers.
    Result readVarints(std::uint64_t* values, std::size_t count)
    {
        if (m_end - m_begin < count * kMaxVarintBytes)
            return readVarintsAcrossRefills(values, count);
        const unsigned char* at = m_output.data() + m_begin;
        for (std::size_t k = 0; k < count; ++k) {
            if (!TakeVarint(at, values[k]))
                return runsOnTooLong();
        }
        m_begin = std::size_t(at - m_output.data());
        return {};
    }
    // Every byte the header promised has been read.
    bool atEnd() const { return m_delivered == m_info.unpackedSize && m_begin == m_end; }

private:
    Result refill();
    Result fillInput();
    Result readAcrossRefills(void* data, std::size_t n);
    Result readVarintsAcrossRefills(std::uint64_t* values, std::size_t count);
    // One number across a refill.
    Result readVarintByBytes(std::uint64_t& value);
    static Result runsOnTooLong();

    StreamInfo m_info;
    ByteFile m_file;
    std::uint64_t m_storedLeft = 0;
    std::uint64_t m_delivered = 0; // bytes decoded so far
    z_stream m_zip {};
    bool m_zipOpen = false;
    bool m_zipEnded = false;
    std::vector<unsigned char> m_input;
    std::vector<unsigned char> m_output;
    std::size_t m_begin = 0; // unread decoded bytes in m_output
    std::size_t m_end = 0;
};

} // namespace Delta

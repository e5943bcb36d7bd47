#pragma once

#include "ByteFile.h"
#include "DiffFormat.h"

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

    // Exactly n bytes, or CorruptDiff when the stream has fewer.
    Result read(void* data, std::size_t n);
    // The next bytes, at most most of them, where they lie in the buffer: valid until the next call.
    // At least one byte, or CorruptDiff when the stream has ended.
    Result borrow(std::size_t most, const unsigned char*& data, std::size_t& n);
    // The next count variable-length numbers.
    Result readVarints(std::uint64_t* values, std::size_t count);
    // Every byte the header promised has been read.
    bool atEnd() const { return m_delivered == m_info.unpackedSize && m_begin == m_end; }

private:
    Result refill();
    Result fillInput();
    // One number across a refill.
    Result readVarintByBytes(std::uint64_t& value);

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

#pragma once

// The diff format, version 2. Everything the encoder writes and the decoder reads is described here.
//
// A diff file is a fixed header followed by three streams, in this order:
//
//   offset  size  field
//   0       8     magic "CoDiff\r\n" (the line end catches a text-mode copy)
//   8       4     format version (2)
//   12      4     reserved, 0
//   16      8     size of the old file
//   24      8     size of the new file
//   32      4     CRC-32 of the old file
//   36      4     CRC-32 of the new file
//   40      20    control stream: codec (4), stored size (8), unpacked size (8)
//   60      20    difference stream, the same three fields
//   80      20    extra stream, the same three fields
//   100     4     CRC-32 of the diff itself: every stream byte, then bytes 0 to 99 of the header
//   104           the streams, stored back to back
//
// All numbers are little-endian. A codec is 0 (stored as is) or 1 (zlib's deflate). A file whose
// length is not the header plus the three stored sizes is truncated or padded, and refused.
//
// The control stream is a list of records, each three numbers as variable-length integers (seven bits
// a byte, low bits first, the high bit set on every byte but the last):
//   seek   (zig-zag signed) moves the old position before the copy;
//   copy   bytes of the new file made by adding the next copy difference bytes to the old bytes at the
//          old position, which then advances by copy;
//   extra  bytes of the new file taken as they are from the extra stream.
// The records together make exactly the new file's size; a copy never reads outside the old file.
//
// The difference stream is coded by runs, because a match that tolerates changed bytes leaves mostly
// zeros there: pairs of a variable-length count of zero bytes and a count of literal bytes, followed by
// those bytes. The pairs run on across records. The literal bytes of a pair are added to their old
// bytes as one little-endian number: the carry out of each byte goes into the next, and the carry out
// of the last is dropped. An address that moved by some distance then differs by the same literal bytes
// wherever it stands, whatever its low bytes were, which the package's compressor finds again and
// again. The extra stream is plain bytes.

#include <cstddef>
#include <cstdint>

namespace Delta {

constexpr char kMagic[8] = { 'C', 'o', 'D', 'i', 'f', 'f', '\r', '\n' };
constexpr std::uint32_t kFormatVersion = 2;
constexpr std::size_t kHeaderSize = 104;
constexpr std::size_t kChecksumOffset = 100;

enum class Codec : std::uint32_t
{
    Stored = 0,
    Deflate = 1,
};

enum StreamIndex
{
    ControlStream = 0,
    DifferenceStream = 1,
    ExtraStream = 2,
    StreamCount = 3,
};

struct StreamInfo
{
    Codec codec = Codec::Stored;
    std::uint64_t storedSize = 0;
    std::uint64_t unpackedSize = 0;
};

struct DiffHeader
{
    std::uint32_t version = kFormatVersion;
    std::uint64_t oldSize = 0;
    std::uint64_t newSize = 0;
    std::uint32_t oldCrc = 0;
    std::uint32_t newCrc = 0;
    StreamInfo streams[StreamCount];
    std::uint32_t diffCrc = 0;
};

// Why a header cannot be read.
enum class HeaderProblem
{
    None,
    NotADiff, // no magic
    UnknownVersion,
    Malformed, // an unknown codec or sizes that cannot be
};

// The 104 bytes of a header.
void WriteHeader(const DiffHeader& header, unsigned char* bytes);
HeaderProblem ReadHeader(const unsigned char* bytes, DiffHeader& header);

// The file length the header promises.
std::uint64_t DiffFileSize(const DiffHeader& header);

// Variable-length integers of the streams. PutVarint writes at most kMaxVarintBytes.
constexpr std::size_t kMaxVarintBytes = 10;
std::size_t PutVarint(std::uint64_t value, unsigned char* out);
// One number from bytes known to hold kMaxVarintBytes, moving at past it; false when it runs on longer.
inline bool TakeVarint(const unsigned char*& at, std::uint64_t& value)
{
    std::uint64_t byte = *at++;
    value = byte & 0x7f;
    for (unsigned shift = 7; byte & 0x80; shift += 7) {
        if (shift > 63)
            return false;
        byte = *at++;
        value |= (byte & 0x7f) << shift;
    }
    return true;
}
inline std::uint64_t ZigZag(std::int64_t value)
{
    return (std::uint64_t(value) << 1) ^ std::uint64_t(value >> 63);
}
inline std::int64_t UnZigZag(std::uint64_t value)
{
    return std::int64_t(value >> 1) ^ -std::int64_t(value & 1);
}

} // namespace Delta

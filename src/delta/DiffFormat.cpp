#include "DiffFormat.h"

#include <cstring>

namespace Delta {

namespace {

void put32(unsigned char* at, std::uint32_t value)
{
    for (int i = 0; i < 4; ++i)
        at[i] = static_cast<unsigned char>(value >> (8 * i));
}

void put64(unsigned char* at, std::uint64_t value)
{
    for (int i = 0; i < 8; ++i)
        at[i] = static_cast<unsigned char>(value >> (8 * i));
}

std::uint32_t get32(const unsigned char* at)
{
    std::uint32_t value = 0;
    for (int i = 3; i >= 0; --i)
        value = (value << 8) | at[i];
    return value;
}

std::uint64_t get64(const unsigned char* at)
{
    std::uint64_t value = 0;
    for (int i = 7; i >= 0; --i)
        value = (value << 8) | at[i];
    return value;
}

constexpr std::size_t kStreamsOffset = 40;
constexpr std::size_t kStreamFieldSize = 20;

} // namespace

void WriteHeader(const DiffHeader& header, unsigned char* bytes)
{
    std::memcpy(bytes, kMagic, sizeof kMagic);
    put32(bytes + 8, header.version);
    put32(bytes + 12, 0);
    put64(bytes + 16, header.oldSize);
    put64(bytes + 24, header.newSize);
    put32(bytes + 32, header.oldCrc);
    put32(bytes + 36, header.newCrc);
    for (int i = 0; i < StreamCount; ++i) {
        unsigned char* at = bytes + kStreamsOffset + i * kStreamFieldSize;
        put32(at, std::uint32_t(header.streams[i].codec));
        put64(at + 4, header.streams[i].storedSize);
        put64(at + 12, header.streams[i].unpackedSize);
    }
    put32(bytes + kChecksumOffset, header.diffCrc);
}

HeaderProblem ReadHeader(const unsigned char* bytes, DiffHeader& header)
{
    if (std::memcmp(bytes, kMagic, sizeof kMagic) != 0)
        return HeaderProblem::NotADiff;
    header.version = get32(bytes + 8);
    if (header.version != kFormatVersion)
        return HeaderProblem::UnknownVersion;
    header.oldSize = get64(bytes + 16);
    header.newSize = get64(bytes + 24);
    header.oldCrc = get32(bytes + 32);
    header.newCrc = get32(bytes + 36);
    // Sizes past 2^62 cannot be real files, and keep every sum below from overflowing.
    constexpr std::uint64_t kLimit = std::uint64_t(1) << 62;
    bool sane = get32(bytes + 12) == 0 && header.oldSize < kLimit && header.newSize < kLimit;
    for (int i = 0; i < StreamCount; ++i) {
        const unsigned char* at = bytes + kStreamsOffset + i * kStreamFieldSize;
        const std::uint32_t codec = get32(at);
        header.streams[i].codec = Codec(codec);
        header.streams[i].storedSize = get64(at + 4);
        header.streams[i].unpackedSize = get64(at + 12);
        sane = sane && codec <= std::uint32_t(Codec::Deflate) && header.streams[i].storedSize < kLimit
            && header.streams[i].unpackedSize < kLimit
            && (header.streams[i].codec != Codec::Stored
                || header.streams[i].storedSize == header.streams[i].unpackedSize);
    }
    header.diffCrc = get32(bytes + kChecksumOffset);
    return sane ? HeaderProblem::None : HeaderProblem::Malformed;
}

std::uint64_t DiffFileSize(const DiffHeader& header)
{
    std::uint64_t size = kHeaderSize;
    for (const StreamInfo& stream : header.streams)
        size += stream.storedSize;
    return size;
}

std::size_t PutVarint(std::uint64_t value, unsigned char* out)
{
    std::size_t n = 0;
    while (value >= 0x80) {
        out[n++] = static_cast<unsigned char>(value | 0x80);
        value >>= 7;
    }
    out[n++] = static_cast<unsigned char>(value);
    return n;
}

} // namespace Delta

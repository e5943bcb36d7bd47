#pragma once

#include <cstddef>
#include <cstdint>

namespace Delta {

// The CRC-32 of the diff format, the same checksum as zlib's crc32: crc carried on over n bytes, 0 to
// begin. Where the processor multiplies without carries (every x86-64 of the last decade), blocks are
// folded 64 bytes at a time, several times faster than zlib's tables; the apply sums every byte of the
// old and the new file, so this is a good part of its time.
std::uint32_t Crc32(std::uint32_t crc, const unsigned char* data, std::size_t n);

} // namespace Delta

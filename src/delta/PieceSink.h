#pragma once

#include "DeltaStatus.h"

#include <cstdint>

namespace Delta {

// What the matcher hands on, piece by piece in the order of the new file: copy bytes from the old file
// at oldStart, each new byte being oldCopy[i] plus a difference, then extra bytes as they are.
// oldCopy and newCopy may both be null when the copy is known to be exact. The bytes pointed to stay
// valid until the whole new file is described.
class PieceSink
{
public:
    virtual ~PieceSink() = default;
    virtual Result add(std::uint64_t oldStart, const unsigned char* oldCopy, const unsigned char* newCopy,
        std::uint64_t copy, const unsigned char* extra, std::uint64_t extraLength)
        = 0;
};

} // namespace Delta

#pragma once

#include "ByteFile.h"

#include <cstdint>
#include <vector>

namespace Delta {

// The copies from the old file that make one stretch of the new file, read in the order of the old
// file rather than the order of the diff. A major version's diff copies millions of pieces of a few
// dozen bytes from all over the old file; read one by one that is a call to the system per piece.
// Sorted by old position, neighbouring pieces share one read, so a stretch costs a few thousand reads
// whatever the number of its pieces, and memory stays at the stretch and one read buffer.
class CopyGather
{
public:
    struct Copy
    {
        std::uint64_t oldOffset;
        std::uint32_t at;
        std::uint32_t length;
    };

    // Pieces this far apart or closer are read together: reading the bytes between costs less than a
    // call to the system.
    static constexpr std::uint64_t kJoinGap = 4096;
    static constexpr std::size_t kReadBuffer = 1 << 20;
    // Bounds the counts of the sort by page.
    static constexpr std::size_t kMostPages = 1 << 16;

    CopyGather();

    // Room for mostCopies pieces taken at once: grown step by step, the vectors would leave the
    // allocator holding several times that. Throws std::bad_alloc.
    void reserve(std::size_t mostCopies);

    void clear() { m_copies.clear(); }
    std::size_t count() const { return m_copies.size(); }
    // length bytes at oldOffset in the old file belong at offset at of the stretch.
    void add(std::uint64_t oldOffset, std::uint32_t at, std::uint32_t length);
    // Reads every piece added since the last clear into stretch.
    Result fill(ByteFile& old, unsigned char* stretch);

    // The copies added, in the order they were added.
    const std::vector<Copy>& copies() const { return m_copies; }

private:
    // Puts the copies into m_sorted by the page of the old file they start in, one counting pass: a
    // stretch holds a quarter of a million copies, and sorting them by comparison cost more than
    // reading them. Within a page their order does not matter, since neighbours are read together.
    // Offsets are below oldSize.
    void sortByOldPage(std::uint64_t oldSize);
    // A piece this long is a read of its own, straight into place.
    static bool isLarge(const Copy& copy) { return copy.length > kReadBuffer / 2; }
    // Reads the old bytes from begin to end once and hands each of the copies [first, last) its part.
    Result readJoined(ByteFile& old, unsigned char* stretch, std::size_t first, std::size_t last,
        std::uint64_t begin, std::uint64_t end);

    std::vector<Copy> m_copies; // in the order of the diff
    std::vector<Copy> m_sorted; // by the page of the old file they start in
    std::vector<std::uint32_t> m_pageCounts;
    std::vector<unsigned char> m_buffer;
};

} // namespace Delta

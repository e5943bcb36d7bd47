#pragma once

#include "LargePageAllocator.h"
#include "PieceSink.h"

#include <cstdint>
#include <vector>

namespace Delta {

// Finds where the new bytes come from in the old bytes: a suffix array of the old bytes gives the
// longest exact match at each place, and each match is then extended byte by byte while it still
// agrees more than it differs, so code whose addresses moved still pairs with its old self and leaves
// mostly zeros in the differences. Both buffers are held in memory; the caller decides how much.
class Matcher
{
public:
    // old holds the old file's bytes from oldBase on.
    Matcher(const unsigned char* old, std::int64_t oldSize, std::uint64_t oldBase);

    // Bytes of memory the index takes per old byte, besides the bytes themselves.
    static constexpr std::uint64_t kIndexBytesPerByte = 4;
    // The largest old window one index covers.
    static constexpr std::int64_t kLargestOld = 0x7fffffff - 1;

    const unsigned char* old() const { return m_old; }
    std::uint64_t oldBase() const { return m_oldBase; }

    Result buildIndex();
    // Describes newBytes as pieces in the sink, starting from the guess that they are the old bytes
    // from firstOffset on. Only reads the index: several threads may describe parts of the new file
    // at once.
    Result describe(
        const unsigned char* newBytes, std::int64_t newSize, std::int64_t firstOffset, PieceSink& sink) const;

private:
    // The longest match of text in the old bytes; index is where the suffix array holds it.
    std::int64_t longestMatch(
        const unsigned char* text, std::int64_t n, std::int64_t& position, std::int64_t& index) const;
    // Of the suffixes next to index that match text as far, the one starting nearest near.
    std::int64_t nearestOfEqual(const unsigned char* text, std::int64_t n, std::int64_t length,
        std::int64_t index, std::int64_t near) const;
    // Where text and the old bytes at oldAt first differ, looking from skip on.
    std::int64_t commonPrefix(
        std::int64_t oldAt, const unsigned char* text, std::int64_t n, std::int64_t skip) const;
    void buildBuckets();
    void buildTriples();

    const unsigned char* m_old;
    std::int64_t m_oldSize;
    std::uint64_t m_oldBase;
    std::vector<std::int32_t, LargePageAllocator<std::int32_t>> m_suffixes;
    // The suffixes starting with each two bytes, as the first index into m_suffixes; one entry more
    // closes the last range.
    std::vector<std::int32_t> m_buckets;
    // One bit for each three bytes, set when the old bytes hold them somewhere. A search whose text
    // starts with three bytes the old file lacks can only find two, and needs no steps.
    std::vector<std::uint64_t> m_triples;
};

} // namespace Delta

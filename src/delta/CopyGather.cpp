#include "CopyGather.h"

#include <algorithm>
#include <cstring>
#include <utility>

namespace Delta {

CopyGather::CopyGather()
    : m_buffer(kReadBuffer)
{ }

void CopyGather::reserve(std::size_t mostCopies)
{
    m_copies.reserve(mostCopies);
    m_sorted.reserve(mostCopies);
    m_pageCounts.reserve(kMostPages);
}

void CopyGather::add(std::uint64_t oldOffset, std::uint32_t at, std::uint32_t length)
{
    m_copies.push_back({ oldOffset, at, length });
}

void CopyGather::sortByOldPage(std::uint64_t oldSize)
{
    // Pages of 4 KiB, or larger for an old file of more than kMostPages of them.
    unsigned shift = 12;
    while ((oldSize >> shift) >= kMostPages)
        ++shift;
    m_pageCounts.assign(std::size_t(oldSize >> shift) + 1, 0);
    for (const Copy& copy : m_copies)
        ++m_pageCounts[std::size_t(copy.oldOffset >> shift)];
    std::uint32_t start = 0;
    for (std::uint32_t& count : m_pageCounts)
        start += std::exchange(count, start);
    m_sorted.resize(m_copies.size());
    for (const Copy& copy : m_copies)
        m_sorted[m_pageCounts[std::size_t(copy.oldOffset >> shift)]++] = copy;
}

Result CopyGather::fill(ByteFile& old, unsigned char* stretch)
{
    sortByOldPage(old.size());
    bool joining = false;
    std::size_t first = 0;
    std::uint64_t begin = 0, end = 0;
    for (std::size_t i = 0; i < m_sorted.size(); ++i) {
        const Copy& copy = m_sorted[i];
        const std::uint64_t copyEnd = copy.oldOffset + copy.length;
        if (isLarge(copy)) {
            const Result result = old.readPositioned(copy.oldOffset, stretch + copy.at, copy.length);
            if (!result.ok())
                return result;
            continue;
        }
        // Copies of one page come in any order, so the joined read may grow at either end.
        const std::uint64_t joinedBegin = std::min(begin, copy.oldOffset);
        const std::uint64_t joinedEnd = std::max(end, copyEnd);
        if (joining && copy.oldOffset <= end + kJoinGap && joinedEnd - joinedBegin <= kReadBuffer) {
            begin = joinedBegin;
            end = joinedEnd;
            continue;
        }
        if (joining) {
            const Result result = readJoined(old, stretch, first, i, begin, end);
            if (!result.ok())
                return result;
        }
        joining = true;
        first = i;
        begin = copy.oldOffset;
        end = copyEnd;
    }
    return joining ? readJoined(old, stretch, first, m_sorted.size(), begin, end) : Result {};
}

Result CopyGather::readJoined(ByteFile& old, unsigned char* stretch, std::size_t first, std::size_t last,
    std::uint64_t begin, std::uint64_t end)
{
    const Result result = old.readPositioned(begin, m_buffer.data(), std::size_t(end - begin));
    if (!result.ok())
        return result;
    for (std::size_t i = first; i < last; ++i) {
        const Copy& copy = m_sorted[i];
        if (!isLarge(copy))
            std::memcpy(stretch + copy.at, m_buffer.data() + (copy.oldOffset - begin), copy.length);
    }
    return {};
}

} // namespace Delta

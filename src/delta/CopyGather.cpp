#include "CopyGather.h"

#include <algorithm>
#include <cstring>
#include <utility>

namespace Delta {

namespace {

constexpr std::size_t kLookAhead = 8;

} // namespace

void CopyGather::reserve(std::size_t mostCopies)
{
    m_copies.reserve(mostCopies);
    m_sorted.reserve(mostCopies);
    m_windowCounts.reserve(kMostWindows);
}

void CopyGather::sortByWindow(std::uint64_t oldSize)
{
    // Windows of kWindow bytes; for an old file of more than kMostWindows of them, groups of several,
    // whose copies then come in any order among them.
    unsigned shift = 0;
    while ((std::size_t(1) << shift) < kWindow)
        ++shift;
    while ((oldSize >> shift) >= kMostWindows)
        ++shift;
    m_windowCounts.assign(std::size_t(oldSize >> shift) + 1, 0);
    for (const Copy& copy : m_copies)
        ++m_windowCounts[std::size_t(copy.oldOffset >> shift)];
    std::uint32_t start = 0;
    for (std::uint32_t& count : m_windowCounts)
        start += std::exchange(count, start);
    m_sorted.resize(m_copies.size());
    for (const Copy& copy : m_copies)
        m_sorted[m_windowCounts[std::size_t(copy.oldOffset >> shift)]++] = copy;
}

bool CopyGather::mapWindowOf(const ByteFile& old, const Copy& copy)
{
    const std::uint64_t start = copy.oldOffset - copy.oldOffset % kWindow;
    const std::size_t length = std::size_t(std::min<std::uint64_t>(kWindow + kLargeCopy, old.size() - start));
    m_mappable = m_window.map(old, start, length);
    return m_mappable;
}

Result CopyGather::fill(ByteFile& old, unsigned char* stretch)
{
    sortByWindow(old.size());
    for (std::size_t i = 0; i < m_sorted.size(); ++i) {
        const Copy& copy = m_sorted[i];
        // The copies land all over the stretch and come from all over the window: ask for the bytes of
        // a later one while this one is made.
        if (i + kLookAhead < m_sorted.size()) {
            const Copy& later = m_sorted[i + kLookAhead];
            if (m_window.covers(later.oldOffset, later.length))
                __builtin_prefetch(m_window.at(later.oldOffset));
            __builtin_prefetch(stretch + later.at, 1);
        }
        const bool inWindow = copy.length <= kLargeCopy
            && (m_window.covers(copy.oldOffset, copy.length) || (m_mappable && mapWindowOf(old, copy)));
        if (inWindow) {
            std::memcpy(stretch + copy.at, m_window.at(copy.oldOffset), copy.length);
            continue;
        }
        const Result result = old.readPositioned(copy.oldOffset, stretch + copy.at, copy.length);
        if (!result.ok())
            return result;
    }
    // The window's pages leave the process with it.
    m_window.unmap();
    return {};
}

} // namespace Delta

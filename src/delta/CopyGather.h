#pragma once

#include "ByteFile.h"
#include "MappedWindow.h"

#include <cstdint>
#include <vector>

namespace Delta {

// The copies from the old file that make one stretch of the new file, taken in the order of the old
// file rather than the order of the diff. A major version's diff copies millions of pieces of a few
// dozen bytes from all over the old file; read one by one, that is a call to the system per piece.
// Taken window by window through a mapping, a stretch costs a few hundred calls whatever the number
// of its pieces, and the process never holds more than one window of the old file.
class CopyGather
{
public:
    struct Copy
    {
        std::uint64_t oldOffset;
        std::uint32_t at;
        std::uint32_t length;
    };

    static constexpr std::size_t kWindow = 2 << 20;
    // A copy longer than this is a read of its own, straight into place.
    static constexpr std::size_t kLargeCopy = 256 << 10;
    // Bounds the counts of the sort by window.
    static constexpr std::size_t kMostWindows = 1 << 16;

    // Room for mostCopies pieces taken at once: grown step by step, the vectors would leave the
    // allocator holding several times that. Throws std::bad_alloc.
    void reserve(std::size_t mostCopies);
    void clear() { m_copies.clear(); }
    std::size_t count() const { return m_copies.size(); }
    // length bytes at oldOffset in the old file belong at offset at of the stretch.
    void add(std::uint64_t oldOffset, std::uint32_t at, std::uint32_t length)
    {
        m_copies.push_back({ oldOffset, at, length });
    }
    // Copies every piece added since the last clear into stretch.
    Result fill(ByteFile& old, unsigned char* stretch);
    // The copies added, in the order they were added.
    const std::vector<Copy>& copies() const { return m_copies; }

private:
    // Puts the copies into m_sorted by the window of the old file they start in, in one counting
    // pass: a stretch holds a hundred thousand copies, and sorting them by comparison cost more than
    // reading them. Offsets are below oldSize.
    void sortByWindow(std::uint64_t oldSize);
    // Maps the window that holds copy; false when the old file cannot be mapped.
    bool mapWindowOf(const ByteFile& old, const Copy& copy);

    std::vector<Copy> m_copies; // in the order of the diff
    std::vector<Copy> m_sorted; // by the window they start in
    std::vector<std::uint32_t> m_windowCounts;
    MappedWindow m_window;
    bool m_mappable = true; // until the system refuses a mapping, then copies are read
};

} // namespace Delta

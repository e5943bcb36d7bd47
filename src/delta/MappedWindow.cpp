#include "MappedWindow.h"

#ifdef _WIN32
#include <windows.h>
#else
#include <sys/mman.h>
#include <unistd.h>
#endif

namespace Delta {

namespace {

// Where a view may start: a page on Linux, the allocation granularity (64 KiB) on Windows.
std::uint64_t viewAlignment()
{
#ifdef _WIN32
    SYSTEM_INFO info;
    GetSystemInfo(&info);
    return info.dwAllocationGranularity;
#else
    return std::uint64_t(sysconf(_SC_PAGESIZE));
#endif
}

} // namespace

MappedWindow::~MappedWindow()
{
    unmap();
}

bool MappedWindow::map(const ByteFile& file, std::uint64_t offset, std::size_t length, Use use)
{
    unmap();
    static const std::uint64_t alignment = viewAlignment();
    const std::uint64_t start = offset - offset % alignment;
    const std::size_t viewLength = std::size_t(offset - start) + length;
    if (viewLength == 0)
        return false;
#ifdef _WIN32
    (void)use; // a view's pages come in as they are read
    const HANDLE mapping
        = CreateFileMappingW(HANDLE(file.systemHandle()), nullptr, PAGE_READONLY, 0, 0, nullptr);
    if (!mapping)
        return false;
    void* view = MapViewOfFile(mapping, FILE_MAP_READ, DWORD(start >> 32), DWORD(start), viewLength);
    // The view keeps the mapping alive.
    CloseHandle(mapping);
    if (!view)
        return false;
#else
#ifdef MAP_POPULATE
    const int flags = use == Use::Whole ? MAP_SHARED | MAP_POPULATE : MAP_SHARED;
#else
    const int flags = MAP_SHARED;
#endif
    void* view = mmap(nullptr, viewLength, PROT_READ, flags, int(file.systemHandle()), off_t(start));
    if (view == MAP_FAILED)
        return false;
#endif
    m_base = static_cast<const unsigned char*>(view);
    m_start = start;
    m_length = viewLength;
    return true;
}

void MappedWindow::unmap()
{
    if (!m_base)
        return;
#ifdef _WIN32
    UnmapViewOfFile(m_base);
#else
    munmap(const_cast<unsigned char*>(m_base), m_length);
#endif
    m_base = nullptr;
    m_length = 0;
}

} // namespace Delta

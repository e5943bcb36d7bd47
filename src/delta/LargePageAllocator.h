#pragma once

#include <cstddef>
#include <cstdlib>
#include <new>
#include <type_traits>
#include <utility>

#ifdef __linux__
#include <sys/mman.h>
#endif

namespace Delta {

// Memory for the big buffers of the encoder, which the match search reads at random places, and of the
// decoder's stretch: on Linux it is asked for in 2 MiB pages where the system offers them, so that a
// search step in a suffix array of hundreds of megabytes costs one cache miss instead of a cache miss
// and a page-table walk, and a fresh stretch one page fault per 2 MiB. Elsewhere, or where the system
// declines, the memory is the same, in ordinary pages. A resize leaves the elements uninitialised:
// every buffer it serves is filled from a file or by the sort before it is read, and zeroing hundreds
// of megabytes first would cost time for nothing.
template <typename T> class LargePageAllocator
{
public:
    using value_type = T;

    LargePageAllocator() = default;
    template <typename U> LargePageAllocator(const LargePageAllocator<U>&) noexcept { }

    T* allocate(std::size_t n)
    {
        const std::size_t bytes = n * sizeof(T);
        if (bytes < kLargePage)
            return static_cast<T*>(::operator new(bytes));
        void* memory = nullptr;
#ifdef __linux__
        // Rounded up to whole large pages, which aligned_alloc wants; the bytes past the end are never
        // touched, so they cost no memory.
        memory = std::aligned_alloc(kLargePage, (bytes + kLargePage - 1) / kLargePage * kLargePage);
        if (memory)
            madvise(memory, bytes, MADV_HUGEPAGE);
#else
        memory = std::malloc(bytes);
#endif
        if (!memory)
            throw std::bad_alloc();
        return static_cast<T*>(memory);
    }

    template <typename U> void construct(U* at) noexcept(std::is_nothrow_default_constructible<U>::value)
    {
        ::new (static_cast<void*>(at)) U;
    }
    template <typename U, typename... Args> void construct(U* at, Args&&... args)
    {
        ::new (static_cast<void*>(at)) U(std::forward<Args>(args)...);
    }

    void deallocate(T* memory, std::size_t n) noexcept
    {
        if (n * sizeof(T) < kLargePage)
            ::operator delete(memory);
        else
            std::free(memory);
    }

    template <typename U> bool operator==(const LargePageAllocator<U>&) const noexcept
    {
        return true;
    }
    template <typename U> bool operator!=(const LargePageAllocator<U>&) const noexcept
    {
        return false;
    }

private:
    static constexpr std::size_t kLargePage = std::size_t(2) << 20;
};

} // namespace Delta

#include "tests/support/CountedAllocations.h"

#include <cstddef>
#include <cstdlib>
#include <new>

// The replacements pair malloc with free on purpose; GCC can't see that they are one family.
#if defined(__GNUC__) && !defined(__clang__)
#pragma GCC diagnostic ignored "-Wmismatched-new-delete"
#endif

namespace
{

// Per thread: only the thread that counts sees its own counter, so no ordering is needed.
thread_local bool tCounting = false;
thread_local int64_t tCount = 0;

void* allocate(std::size_t size, std::size_t alignment)
{
    if (tCounting)
    {
        ++tCount;
    }
    if (size == 0)
    {
        size = 1;
    }
    if (alignment <= alignof(std::max_align_t))
    {
        return std::malloc(size);
    }
    void* p = nullptr;
    return ::posix_memalign(&p, alignment, size) == 0 ? p : nullptr;
}

void* allocateOrThrow(std::size_t size, std::size_t alignment)
{
    void* p = allocate(size, alignment);
    if (p == nullptr)
    {
        throw std::bad_alloc();
    }
    return p;
}

} // namespace

namespace testsupport
{

CountedAllocations::CountedAllocations()
{
    tCount = 0;
    tCounting = true;
}

CountedAllocations::~CountedAllocations()
{
    tCounting = false;
}

int64_t CountedAllocations::count() const
{
    return tCount;
}

} // namespace testsupport

void* operator new(std::size_t size)
{
    return allocateOrThrow(size, alignof(std::max_align_t));
}
void* operator new[](std::size_t size)
{
    return allocateOrThrow(size, alignof(std::max_align_t));
}
void* operator new(std::size_t size, const std::nothrow_t&) noexcept
{
    return allocate(size, alignof(std::max_align_t));
}
void* operator new[](std::size_t size, const std::nothrow_t&) noexcept
{
    return allocate(size, alignof(std::max_align_t));
}
void* operator new(std::size_t size, std::align_val_t alignment)
{
    return allocateOrThrow(size, static_cast<std::size_t>(alignment));
}
void* operator new[](std::size_t size, std::align_val_t alignment)
{
    return allocateOrThrow(size, static_cast<std::size_t>(alignment));
}
void* operator new(std::size_t size, std::align_val_t alignment, const std::nothrow_t&) noexcept
{
    return allocate(size, static_cast<std::size_t>(alignment));
}
void* operator new[](std::size_t size, std::align_val_t alignment, const std::nothrow_t&) noexcept
{
    return allocate(size, static_cast<std::size_t>(alignment));
}
void operator delete(void* p) noexcept
{
    std::free(p);
}
void operator delete[](void* p) noexcept
{
    std::free(p);
}
void operator delete(void* p, std::size_t) noexcept
{
    std::free(p);
}
void operator delete[](void* p, std::size_t) noexcept
{
    std::free(p);
}
void operator delete(void* p, std::align_val_t) noexcept
{
    std::free(p);
}
void operator delete[](void* p, std::align_val_t) noexcept
{
    std::free(p);
}
void operator delete(void* p, std::size_t, std::align_val_t) noexcept
{
    std::free(p);
}
void operator delete[](void* p, std::size_t, std::align_val_t) noexcept
{
    std::free(p);
}
void operator delete(void* p, const std::nothrow_t&) noexcept
{
    std::free(p);
}
void operator delete[](void* p, const std::nothrow_t&) noexcept
{
    std::free(p);
}
void operator delete(void* p, std::align_val_t, const std::nothrow_t&) noexcept
{
    std::free(p);
}
void operator delete[](void* p, std::align_val_t, const std::nothrow_t&) noexcept
{
    std::free(p);
}

#pragma once

#include <cstdint>

namespace testsupport
{

/**
 * Counts the allocations this thread makes through the C++ allocator while the object lives: the
 * audio thread's promise that nothing allocates. A test that uses it links `testalloc`, which
 * replaces the global allocation operators (not in the sanitizer builds, which bring their own).
 */
class CountedAllocations
{
public:
    CountedAllocations();
    ~CountedAllocations();
    CountedAllocations(const CountedAllocations&) = delete;
    CountedAllocations& operator=(const CountedAllocations&) = delete;

    int64_t count() const;
};

} // namespace testsupport

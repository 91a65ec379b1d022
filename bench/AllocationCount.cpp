#include <AllocationCount.h>

#include <atomic>
#include <cstdlib>
#include <new>

// The replaced operators stand alone in this file: the compiler must not see through them.

namespace {

std::atomic<uint64_t> count{0};

} // namespace

uint64_t bench::allocations()
{
    return count;
}

void* operator new(std::size_t size, const std::nothrow_t& /*mark*/) noexcept
{
    count.fetch_add(1, std::memory_order_relaxed);
    return std::malloc(size);
}

void* operator new(std::size_t size)
{
    if (void* const storage = operator new(size, std::nothrow)) {
        return storage;
    }
    throw std::bad_alloc();
}

void operator delete(void* storage) noexcept
{
    std::free(storage);
}

void operator delete(void* storage, std::size_t /*size*/) noexcept
{
    std::free(storage);
}

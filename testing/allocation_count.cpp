#include <testing/allocation_count.h>

#include <atomic>
#include <cstdlib>
#include <limits>
#include <new>
#include <utility>

namespace {

std::atomic<std::uint64_t> allocations{0};
std::atomic<std::int64_t> objects{0};
std::atomic<std::int64_t> arrays{0};
constinit thread_local std::size_t largest = std::numeric_limits<std::size_t>::max();

void* tryAllocate(std::size_t size, std::atomic<std::int64_t>& live) {
    allocations.fetch_add(1, std::memory_order_relaxed);
    if (size > largest) {
        return nullptr;
    }
    void* const memory = std::malloc(size != 0 ? size : 1);
    if (memory != nullptr) {
        live.fetch_add(1, std::memory_order_relaxed);
    }
    return memory;
}

void* allocate(std::size_t size, std::atomic<std::int64_t>& live) {
    if (void* const memory = tryAllocate(size, live)) {
        return memory;
    }
    throw std::bad_alloc();
}

void giveBack(void* memory, std::atomic<std::int64_t>& live) {
    if (memory != nullptr) {
        live.fetch_sub(1, std::memory_order_relaxed);
        std::free(memory);
    }
}

} // namespace

namespace GxfTesting {

std::uint64_t allocationCount() { return allocations.load(std::memory_order_relaxed); }
std::int64_t liveObjects() { return objects.load(std::memory_order_relaxed); }
std::int64_t liveArrays() { return arrays.load(std::memory_order_relaxed); }

AllocationLimit::AllocationLimit(std::size_t limit) : m_before(std::exchange(largest, limit)) {}
AllocationLimit::~AllocationLimit() { largest = m_before; }

} // namespace GxfTesting

void* operator new(std::size_t size) { return allocate(size, objects); }
void* operator new[](std::size_t size) { return allocate(size, arrays); }
void* operator new(std::size_t size, std::nothrow_t const&) noexcept {
    return tryAllocate(size, objects);
}
void* operator new[](std::size_t size, std::nothrow_t const&) noexcept {
    return tryAllocate(size, arrays);
}
void operator delete(void* memory) noexcept { giveBack(memory, objects); }
void operator delete[](void* memory) noexcept { giveBack(memory, arrays); }
void operator delete(void* memory, std::size_t) noexcept { giveBack(memory, objects); }
void operator delete[](void* memory, std::size_t) noexcept { giveBack(memory, arrays); }

#pragma once

#include <cstddef>
#include <cstdint>

namespace GxfTesting {

/// Heap allocations of this process since it began, by any thread. A program that links the count
/// replaces operator new.
std::uint64_t allocationCount();

/// Objects made with new that no delete has given back yet.
std::int64_t liveObjects();

/// Arrays made with new[] that no delete[] has given back yet.
std::int64_t liveArrays();

/// While it lives, allocations of this thread of more than `limit` bytes fail.
class AllocationLimit {
  public:
    explicit AllocationLimit(std::size_t limit);
    AllocationLimit(AllocationLimit const&) = delete;
    AllocationLimit& operator=(AllocationLimit const&) = delete;
    ~AllocationLimit();

  private:
    std::size_t m_before;
};

} // namespace GxfTesting

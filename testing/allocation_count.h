#pragma once

#include <cstdint>

namespace GxfTesting {

/// Heap allocations of this process since it began, by any thread. A program that links the count
/// replaces operator new.
std::uint64_t allocationCount();

} // namespace GxfTesting

#pragma once

#include <atomic>
#include <cstddef>

namespace Zorvan {

/// The word under every counter of the library.
using zvAtomic_t = int;

/// The value as it stands. Relaxed: nothing is published through a plain read of a counter.
inline int atomicGet32(zvAtomic_t const* word) {
    return std::atomic_ref<zvAtomic_t>(*const_cast<zvAtomic_t*>(word))
        .load(std::memory_order_relaxed);
}

/// `value` + `change`, wrapping around as the counters do.
constexpr int wrappingAdd(int value, int change) {
    return static_cast<int>(static_cast<unsigned>(value) + static_cast<unsigned>(change));
}

/// Adds one with full ordering and returns the new value.
inline int atomicInc32(zvAtomic_t* word) {
    return wrappingAdd(std::atomic_ref<zvAtomic_t>(*word).fetch_add(1), 1);
}

/// Takes one off with full ordering and returns the new value.
inline int atomicDec32(zvAtomic_t* word) {
    return wrappingAdd(std::atomic_ref<zvAtomic_t>(*word).fetch_add(-1), -1);
}

/// Selects the operations by the size of the counted type.
template <std::size_t Size> struct __Atomics; // NOLINT(bugprone-reserved-identifier)

template <> struct __Atomics<4> { // NOLINT(bugprone-reserved-identifier)
    static int get(int const* word) { return atomicGet32(word); }
    static int inc(int* word) { return atomicInc32(word); }
    static int dec(int* word) { return atomicDec32(word); }
};

template <typename T> T atomicGet(T const* word) { return __Atomics<sizeof(T)>::get(word); }
template <typename T> T atomicInc(T* word) { return __Atomics<sizeof(T)>::inc(word); }
template <typename T> T atomicDec(T* word) { return __Atomics<sizeof(T)>::dec(word); }

/// A signed 32-bit counter that several threads may change.
class AtomicCounter {
  public:
    explicit AtomicCounter(int start) : m_word(start) {}
    AtomicCounter(AtomicCounter const&) = delete;
    AtomicCounter& operator=(AtomicCounter const&) = delete;

    int getCount() const { return atomicGet(&m_word); }
    int operator++() { return atomicInc(&m_word); }
    int operator--() { return atomicDec(&m_word); }
    /// The value before the addition.
    int operator++(int) { return wrappingAdd(atomicInc(&m_word), -1); }

    // A read-modify-write costs as much as a hundred other instructions, so two of them are spared.

    /// Adds one to a counter of references that nobody has: no other thread can use it now.
    int takeFirstReference() {
        int const count = wrappingAdd(getCount(), 1);
        std::atomic_ref<zvAtomic_t>(m_word).store(count, std::memory_order_relaxed);
        return count;
    }
    /// Takes one off a counter of references, of which the caller has one.
    int dropReference() {
        if (!isOnlyReference()) {
            return atomicDec(&m_word);
        }
        std::atomic_ref<zvAtomic_t>(m_word).store(0, std::memory_order_relaxed);
        return 0;
    }
    /// Of a counter of references, of which the caller has one: nobody else has one, and what all
    /// others did with theirs is seen. So it stays, as nobody else can take one.
    bool isOnlyReference() const {
        return std::atomic_ref<zvAtomic_t>(const_cast<zvAtomic_t&>(m_word))
                   .load(std::memory_order_acquire) == 1;
    }

  private:
    zvAtomic_t m_word;
};

} // namespace Zorvan

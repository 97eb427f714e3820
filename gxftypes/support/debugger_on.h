#pragma once

#include <atomic>

namespace Zorvan {

/// A named debug channel: a level, or 32 independent bits. Starts at 0. Reads take no lock: a
/// change takes effect at some later read.
class DebuggerOn {
  public:
    /// Registers the channel and the names of its first `nNames` bits, each a char const* that
    /// outlives the channel.
    DebuggerOn(char const* name, unsigned nNames, ...);
    DebuggerOn(DebuggerOn const&) = delete;
    DebuggerOn& operator=(DebuggerOn const&) = delete;
    ~DebuggerOn();

    unsigned get() const { return m_value.load(std::memory_order_relaxed); }
    /// Bit `n` & 31.
    bool on(unsigned n) const { return ((get() >> (n & 31U)) & 1U) != 0; }
    void set(unsigned value) { m_value.store(value, std::memory_order_relaxed); }

    char const* name() const { return m_name; }
    /// The name of a bit; null for a bit without one.
    char const* bitName(unsigned n) const { return n < maxBits ? m_bitNames[n] : nullptr; }

    /// The channel of that name, or null.
    static DebuggerOn* find(char const* name);

  private:
    static constexpr unsigned maxBits = 32;

    std::atomic<unsigned> m_value{0};
    char const* m_name;
    char const* m_bitNames[maxBits] = {};
    DebuggerOn* m_next;
};

} // namespace Zorvan

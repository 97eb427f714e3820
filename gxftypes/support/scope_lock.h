#pragma once

#include <atomic>
#include <cerrno>
#include <type_traits>

namespace ZorvanPosix {

/// A plain, non-recursive lock. Where nobody waits, it costs one atomic instruction each way, which
/// is what a stream's packets do all the time.
class JMutex {
  public:
    void lock() {
        State expected = free;
        if (!m_state.compare_exchange_strong(expected, taken, std::memory_order_acquire)) {
            lockTaken();
        }
    }

    void unlock() {
        if (m_state.exchange(free, std::memory_order_release) == awaited) {
            wakeOne();
        }
    }

  private:
    enum State { free, taken, awaited };

    void lockTaken();
    void wakeOne();

    std::atomic<State> m_state{free};
};

/// Holds a mutex for a scope; may be let go and taken again in between.
template <typename Mutex> class ScopeLock {
  public:
    explicit ScopeLock(Mutex& mutex) : m_locked(true), m_mutex(mutex) { m_mutex.lock(); }
    ScopeLock(ScopeLock const&) = delete;
    ScopeLock& operator=(ScopeLock const&) = delete;

    // The caller may be about to read errno, which unlocking must not disturb.
    ~ScopeLock() {
        if constexpr (std::is_same_v<Mutex, JMutex>) {
            unlock(); // leaves it alone
        } else {
            int const error = errno;
            unlock();
            errno = error;
        }
    }

    void lock() {
        if (!m_locked) {
            m_mutex.lock();
            m_locked = true;
        }
    }

    void unlock() {
        if (m_locked) {
            m_locked = false;
            m_mutex.unlock();
        }
    }

  private:
    bool m_locked;
    Mutex& m_mutex;
};

} // namespace ZorvanPosix

namespace Zorvan {
using ZorvanPosix::JMutex;
using ZorvanPosix::ScopeLock;
} // namespace Zorvan

#pragma once

#include <cerrno>
#include <mutex>

namespace ZorvanPosix {

/// A plain, non-recursive lock.
class JMutex {
  public:
    void lock() { m_mutex.lock(); }
    void unlock() { m_mutex.unlock(); }

  private:
    std::mutex m_mutex;
};

/// Holds a mutex for a scope; may be let go and taken again in between.
template <typename Mutex> class ScopeLock {
  public:
    explicit ScopeLock(Mutex& mutex) : m_locked(true), m_mutex(mutex) { m_mutex.lock(); }
    ScopeLock(ScopeLock const&) = delete;
    ScopeLock& operator=(ScopeLock const&) = delete;

    // The caller may be about to read errno, which unlocking must not disturb.
    ~ScopeLock() {
        int const error = errno;
        unlock();
        errno = error;
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

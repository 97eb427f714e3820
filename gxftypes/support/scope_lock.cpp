#include <gxftypes/support/scope_lock.h>

namespace ZorvanPosix {

void JMutex::lockTaken() {
    // Who had to wait can't know whether others do, so it leaves the lock as awaited.
    while (m_state.exchange(awaited, std::memory_order_acquire) != free) {
        m_state.wait(awaited);
    }
}

void JMutex::wakeOne() {
    int const error = errno;
    m_state.notify_one();
    errno = error;
}

} // namespace ZorvanPosix

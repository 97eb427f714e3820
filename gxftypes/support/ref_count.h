#pragma once

#include <gxftypes/support/atomic.h>

namespace Zorvan {

/// Base of objects that AutoRefPtr counts. Starts without a reference and deletes itself with the
/// last one.
class RefCount {
  public:
    RefCount() : m_count(0) {}
    RefCount(RefCount const&) = delete;
    RefCount& operator=(RefCount const&) = delete;

    /// Takes a reference; returns the new count.
    int preserve() { return ++m_count; }

    /// Drops a reference; returns the new count. At 0 the object is gone.
    int release() {
        int const left = --m_count;
        if (left == 0) {
            delete this;
        }
        return left;
    }

  protected:
    virtual ~RefCount() = default;

  private:
    AtomicCounter m_count;
};

} // namespace Zorvan

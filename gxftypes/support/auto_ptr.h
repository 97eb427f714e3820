#pragma once

namespace Zorvan {

/// How an AutoPtr gives back what it owns.
template <typename T> struct AutoPtrDeleter {
    static void destroy(T* object) { delete object; }
};

/// Texts are handed out as AutoPtr<char> and are made with new[].
template <> struct AutoPtrDeleter<char> {
    static void destroy(char* text) { delete[] text; }
};

/// Sole owner of one object. A copy moves the ownership and leaves the source empty, also through
/// a const reference.
template <typename T> class AutoPtr {
  public:
    explicit AutoPtr(T* object = nullptr) : m_object(object) {}
    AutoPtr(AutoPtr const& other) : m_object(other.forget()) {}
    ~AutoPtr() { AutoPtrDeleter<T>::destroy(m_object); }

    AutoPtr& operator=(T* object) {
        if (object != m_object) {
            AutoPtrDeleter<T>::destroy(m_object);
            m_object = object;
        }
        return *this;
    }

    // Two owners of one object: the other is cleared, so that it can't be deleted twice.
    AutoPtr& operator=(AutoPtr const& other) { // NOLINT(bugprone-unhandled-self-assignment)
        if (this != &other) {
            *this = other.forget();
        }
        return *this;
    }

    T* get() const { return m_object; }
    T* operator->() const { return m_object; }
    T& operator*() const { return *m_object; }

    /// Gives up the object: the caller owns it now.
    T* forget() const {
        T* const object = m_object;
        m_object = nullptr;
        return object;
    }

  private:
    mutable T* m_object;
};

} // namespace Zorvan

#pragma once

namespace Zorvan {

/// Sole owner of one array made with new[]. A copy moves the ownership and leaves the source
/// empty, also through a const reference.
template <typename T> class AutoArrayPtr {
  public:
    explicit AutoArrayPtr(T* array = nullptr) : m_array(array) {}
    AutoArrayPtr(AutoArrayPtr const& other) : m_array(other.forget()) {}
    ~AutoArrayPtr() { delete[] m_array; }

    AutoArrayPtr& operator=(T* array) {
        if (array != m_array) {
            delete[] m_array;
            m_array = array;
        }
        return *this;
    }

    AutoArrayPtr&
    operator=(AutoArrayPtr const& other) { // NOLINT(bugprone-unhandled-self-assignment)
        if (this != &other) {
            *this = other.forget();
        }
        return *this;
    }

    T* get() const { return m_array; }
    T& operator*() const { return *m_array; }
    T& operator[](unsigned index) const { return m_array[index]; }

    /// Gives up the array: the caller owns it now.
    T* forget() const {
        T* const array = m_array;
        m_array = nullptr;
        return array;
    }

  private:
    mutable T* m_array;
};

} // namespace Zorvan

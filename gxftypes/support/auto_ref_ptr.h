#pragma once

namespace Zorvan {

/// Says that a reference exists already and is handed over.
enum PreReferenced { preReferenced };

/// One counted reference to a T, which offers preserve() and release().
template <typename T> class AutoRefPtr {
  public:
    AutoRefPtr() : m_object(nullptr) {}
    AutoRefPtr(T* object) : m_object(object) { preserve(m_object); }
    AutoRefPtr(T* object, PreReferenced) : m_object(object) {}
    AutoRefPtr(AutoRefPtr const& other) : m_object(other.m_object) { preserve(m_object); }
    AutoRefPtr(AutoRefPtr&& other) noexcept : m_object(other.m_object) { other.m_object = nullptr; }
    ~AutoRefPtr() { release(m_object); }

    AutoRefPtr& operator=(T* object) {
        copy(object);
        return *this;
    }

    AutoRefPtr& operator=(AutoRefPtr const& other) { // NOLINT(bugprone-unhandled-self-assignment)
        copy(other.m_object);
        return *this;
    }

    AutoRefPtr& operator=(AutoRefPtr&& other) noexcept {
        if (this != &other) {
            T* const old = m_object;
            m_object = other.m_object;
            other.m_object = nullptr;
            release(old);
        }
        return *this;
    }

    T* get() const { return m_object; }
    T* operator->() const { return m_object; }
    T& operator*() const { return *m_object; }

  private:
    static void preserve(T* object) {
        if (object != nullptr) {
            object->preserve();
        }
    }

    static void release(T* object) {
        if (object != nullptr) {
            object->release();
        }
    }

    // The new reference is taken before the old one is dropped: the old object may own the new.
    void copy(T* object) {
        if (object == m_object) {
            return;
        }
        T* const old = m_object;
        preserve(object);
        m_object = object;
        release(old);
    }

    T* m_object;
};

} // namespace Zorvan

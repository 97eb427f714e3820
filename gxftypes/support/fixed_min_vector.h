#pragma once

#include <algorithm>
#include <cstdint>

#include <gxftypes/support/auto_array_ptr.h>

namespace Zorvan {

/// A vector that holds up to N elements inside the object and moves to the heap beyond that. N is
/// a starting capacity, not a limit. Elements move by assignment, so that AutoPtr elements are
/// handed on and not duplicated.
template <typename T, unsigned N> class FixedMinVector {
    static_assert(N > 0);

  public:
    FixedMinVector() : m_data(m_inlineElems), m_capacity(N), m_count(0) {}
    FixedMinVector(FixedMinVector const& other) : FixedMinVector() { *this = other; }
    FixedMinVector& operator=(FixedMinVector const& other) {
        if (this != &other) {
            resize(other.m_count);
            for (unsigned i = 0; i < m_count; ++i) {
                m_data[i] = other.m_data[i];
            }
        }
        return *this;
    }
    virtual ~FixedMinVector() { freeHeap(); }

    unsigned size() const { return m_count; }

    /// REQUIRES: index below size().
    T& operator[](unsigned index) { return m_data[index]; }
    T const& operator[](unsigned index) const { return m_data[index]; }
    T const& elemAt(unsigned index) const { return m_data[index]; }

    void resize(unsigned n) { resize(n, T()); }

    /// New places get `fill`; places that fall away are overwritten with it, which releases what
    /// they hold. Comes out short, without a failure, where the doubling would turn negative as a
    /// signed 32-bit number and still not reach `n`.
    void resize(unsigned n, T const& fill) {
        if (n > m_capacity) {
            n = grow(n, fill);
        }
        for (unsigned i = n; i < m_count; ++i) {
            m_data[i] = fill;
        }
        for (unsigned i = m_count; i < n; ++i) {
            m_data[i] = fill;
        }
        m_count = n;
    }

    /// REQUIRES: `value` isn't an element of this vector, which growth moves.
    void push_back(T const& value) {
        resize(m_count + 1);
        m_data[m_count - 1] = value;
    }

    /// An index at or beyond size() does nothing.
    void erase(unsigned index) {
        if (index >= m_count) {
            return;
        }
        for (unsigned i = index + 1; i < m_count; ++i) {
            m_data[i - 1] = m_data[i];
        }
        resize(m_count - 1);
    }

    /// The state of a new vector: releases every element and gives a heap array back, which a
    /// shrink by resize() doesn't.
    void reset() {
        for (unsigned i = 0; i < m_count; ++i) {
            m_data[i] = T();
        }
        freeHeap();
        m_data = m_inlineElems;
        m_capacity = N;
        m_count = 0;
    }

  private:
    /// Makes the capacity reach `n`; returns the count that it does reach.
    unsigned grow(unsigned n, T const& fill) {
        std::uint32_t capacity = m_capacity;
        while (capacity < n && static_cast<std::int32_t>(capacity) >= 0) {
            capacity *= 2;
        }
        AutoArrayPtr<T> const grown(new T[capacity]);
        for (unsigned i = 0; i < m_count; ++i) {
            grown[i] = m_data[i];
            if (m_data == m_inlineElems) {
                m_data[i] = fill;
            }
        }
        freeHeap();
        m_data = grown.forget();
        m_capacity = capacity;
        return std::min(n, capacity);
    }

    void freeHeap() {
        if (m_data != m_inlineElems) {
            delete[] m_data;
        }
    }

    T m_inlineElems[N];
    T* m_data;
    std::uint32_t m_capacity;
    std::uint32_t m_count;
};

} // namespace Zorvan

#pragma once

#include <gxftypes/support/auto_array_ptr.h>

namespace Zorvan {

/// A set of bits; bit i is bit i % 8 of byte i / 8.
class Bitset {
  public:
    /// `nBits` bits, all of the value `initial`.
    Bitset(int nBits, bool initial);
    Bitset(Bitset const&) = delete;
    Bitset& operator=(Bitset const&) = delete;

    void clearAll();

    /// REQUIRES: bit below the size.
    void set(unsigned bit) {
        m_bytes[bit / 8] = static_cast<unsigned char>(m_bytes[bit / 8] | mask(bit));
    }
    void clear(unsigned bit) {
        m_bytes[bit / 8] = static_cast<unsigned char>(m_bytes[bit / 8] & ~mask(bit));
    }
    bool get(unsigned bit) const { return (m_bytes[bit / 8] & mask(bit)) != 0; }

    /// The lowest clear bit; the size in bits when all are set.
    unsigned findFirstClear() const;
    /// The lowest clear bit of a word. REQUIRES: the word has one.
    static unsigned findFirstClear(unsigned word);

  private:
    static unsigned mask(unsigned bit) { return 1U << (bit % 8); }
    unsigned nBytes() const { return (m_nBits + 7) / 8; }
    unsigned wordAt(unsigned byte) const;

    unsigned m_nBits;
    AutoArrayPtr<unsigned char> m_bytes;
};

} // namespace Zorvan

#include <gxftypes/support/bitset.h>

#include <algorithm>
#include <cstdint>
#include <cstring>

namespace Zorvan {

Bitset::Bitset(int nBits, bool initial)
    : m_nBits(static_cast<unsigned>(std::max(nBits, 0))), m_bytes(new unsigned char[nBytes()]) {
    std::memset(m_bytes.get(), initial ? 0xFF : 0, nBytes());
}

void Bitset::clearAll() { std::memset(m_bytes.get(), 0, nBytes()); }

unsigned Bitset::findFirstClear() const {
    unsigned bit = 0;
    for (std::uint64_t bits = 0; m_nBits - bit >= 64; bit += 64) {
        std::memcpy(&bits, m_bytes.get() + bit / 8, sizeof(bits));
        if (~bits != 0) {
            break;
        }
    }
    for (; bit < m_nBits; bit += 32) {
        unsigned const word = wordAt(bit / 8);
        if (word != ~0U) {
            return bit + findFirstClear(word);
        }
    }
    return m_nBits;
}

unsigned Bitset::findFirstClear(unsigned word) {
    unsigned bit = 0;
    for (unsigned half = 16; half != 0; half /= 2) {
        unsigned const lower = (1U << half) - 1;
        if ((word & lower) == lower) {
            word >>= half;
            bit += half;
        }
    }
    return bit;
}

/// 32 bits from the given byte on. Bits behind the end of the set read as clear, and memory behind
/// its last byte isn't read.
unsigned Bitset::wordAt(unsigned byte) const {
    unsigned const count = std::min(4U, nBytes() - byte);
    unsigned word = 0;
    for (unsigned i = 0; i < count; ++i) {
        word |= static_cast<unsigned>(m_bytes[byte + i]) << (8 * i);
    }
    unsigned const bits = std::min(32U, m_nBits - byte * 8);
    return bits == 32 ? word : word & ((1U << bits) - 1);
}

} // namespace Zorvan

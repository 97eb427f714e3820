#include <gxftypes/support/bit_chunk_parser.h>

namespace Zorvan {

bool BitChunkParser::getBits(unsigned count, unsigned& value) {
    BitChunkParser ahead = *this;
    unsigned bits = 0;
    for (unsigned left = count; left != 0;) {
        if (ahead.atEnd()) {
            return false;
        }
        unsigned const available = 8 - ahead.m_bit;
        unsigned const taken = left < available ? left : available;
        unsigned const byte = ahead.m_list[ahead.m_entry].data[ahead.m_byte];
        bits = (bits << taken) | ((byte >> (available - taken)) & ((1U << taken) - 1));
        left -= taken;
        ahead.m_bit += taken;
        if (ahead.m_bit == 8) {
            ahead.alignToByte();
        }
    }
    *this = ahead;
    value = bits;
    return true;
}

void BitChunkParser::alignToByte() {
    if (m_bit != 0) {
        m_bit = 0;
        ++m_byte;
        passEmptyEntries();
    }
}

void BitChunkParser::passEmptyEntries() {
    while (m_entry != m_count && m_byte >= m_list[m_entry].length) {
        ++m_entry;
        m_byte = 0;
    }
}

} // namespace Zorvan

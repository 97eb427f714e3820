#pragma once

#include <gxftypes/support/sgl.h>

namespace Zorvan {

/// Reads bits, most significant first, from the bytes of a scatter-gather list.
class BitChunkParser {
  public:
    /// Starts anew at the first of `count` entries. The list and its bytes stay the caller's and
    /// must live as long as the parser reads them.
    void setList(unsigned count, simpleSgl_s* list) {
        m_list = list;
        m_count = count;
        m_entry = 0;
        m_byte = 0;
        m_bit = 0;
        if (count != 0) {
            passEmptyEntries();
        }
    }

    /// The next `count` bits, at most 32, as a number. False, with nothing consumed, when fewer are
    /// left.
    bool getBits(unsigned count, unsigned& value);
    /// Passes over up to seven bits to the next whole byte.
    void alignToByte();

  private:
    bool atEnd() const { return m_entry == m_count; }
    void passEmptyEntries();

    simpleSgl_s* m_list = nullptr;
    unsigned m_count = 0;
    unsigned m_entry = 0; ///< entry that holds the next bit
    unsigned m_byte = 0;  ///< byte in that entry
    unsigned m_bit = 0;   ///< bits of that byte read already, 0 to 7
};

} // namespace Zorvan

#pragma once

#include <cstdint>

#include <gxftypes/support/gxf_buffer.h>

namespace GxfTypes {

/// Bytes of the wire that the library doesn't interpret, kept to be written back unchanged.
class GxfPreservedData {
  public:
    /// Any value but `keep` skips the bytes and notes only their number and position.
    enum DecodeMode : std::uint32_t { skip = 0, keep = 1 };

    GxfPreservedData() = default;
    GxfPreservedData(GxfPreservedData const&) = delete;
    GxfPreservedData& operator=(GxfPreservedData const&) = delete;

    /// Takes `n` bytes. Code 9, with nothing changed, when the buffer holds fewer.
    Zorvan::OpResult decode(Zorvan::GxfBuffer& buffer, unsigned n, DecodeMode mode);
    /// Writes the bytes. Code 12 without room, code 14 when more were skipped than are kept, code
    /// 13 when the buffer refuses them.
    Zorvan::OpResult encode(Zorvan::GxfBuffer& out) const;
    void copy(GxfPreservedData const& other);
    void discard();

    unsigned size() const { return m_size; }
    /// The bytes, or null; they stay this object's.
    unsigned char const* getData() const { return m_data.get(); }
    /// Stream position of the first byte.
    unsigned long long getFileOffset() const { return m_fileOffset; }

  private:
    Zorvan::AutoArrayPtr<unsigned char> m_data;
    std::uint32_t m_kept = 0; ///< bytes in m_data; m_size may say more after a skipping decode
    std::uint32_t m_size = 0;
    std::uint64_t m_fileOffset = 0;
};

} // namespace GxfTypes

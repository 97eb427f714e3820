#pragma once

#include <gxftypes/support/gxf_buffer.h>

namespace Zorvan {

/// Verifies that an encoder wrote as many bytes as it announced. Advisory: a difference is told by
/// message, and the encoder goes on.
class EncodeChecker {
  public:
    EncodeChecker(GxfBuffer& buffer, unsigned dataLen)
        : m_buffer(buffer), m_occupiedBefore(buffer.nOccupied()), m_dataLen(dataLen) {}

    void check() const;

  private:
    GxfBuffer& m_buffer;
    unsigned m_occupiedBefore;
    unsigned m_dataLen;
};

} // namespace Zorvan

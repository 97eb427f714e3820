#include <gxftypes/support/encode_checker.h>

#include <gxftypes/support/messages.h>

namespace Zorvan {

void EncodeChecker::check() const {
    unsigned const written = m_buffer.nOccupied() - m_occupiedBefore;
    if (written == m_dataLen) {
        return;
    }
    infoMsg("<<<<<<<\nEncoded %ub != dataLen of %ub (missing %db)\n>>>>>>>\n", written, m_dataLen,
            static_cast<int>(m_dataLen - written));
    debugBkpt();
}

} // namespace Zorvan

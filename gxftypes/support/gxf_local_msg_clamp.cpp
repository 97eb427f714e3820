#include <gxftypes/support/gxf_local_msg_clamp.h>

#include <gxftypes/support/messages.h>

namespace Zorvan {

void GxfLocalMsgClamp::sendMessage(FormatStr const& text) {
    if (m_sent >= m_limit) {
        return;
    }
    FormatStr message(128);
    message.catAsFormat(text.get());
    errorMsg("%s", message.get());
    ++m_sent;
}

} // namespace Zorvan

#pragma once

#include <gxftypes/support/format_str.h>

namespace Zorvan {

/// Lets a number of error messages through and drops the rest. Only a new clamp starts anew.
class GxfLocalMsgClamp {
  public:
    explicit GxfLocalMsgClamp(unsigned limit) : m_limit(limit) {}

    /// Sends the text in the role of a format without arguments, see FormatStr::catAsFormat().
    void sendMessage(FormatStr const& text);

  private:
    unsigned m_limit;
    unsigned m_sent = 0;
};

} // namespace Zorvan

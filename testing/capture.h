#pragma once

#include <string>
#include <utility>
#include <vector>

#include <gxftypes/packet/gxf.h>

namespace GxfTesting {

/// Takes every message of the library while it lives, from all threads. One at a time.
class MessageCapture {
  public:
    MessageCapture();
    MessageCapture(MessageCapture const&) = delete;
    MessageCapture& operator=(MessageCapture const&) = delete;
    ~MessageCapture();

    /// The texts of one kind so far, in order.
    std::vector<std::string> texts(GxfTypes::MessageKind kind) const;
    /// The texts of all kinds but Trace so far, in order.
    std::vector<std::string> texts() const;
    unsigned count(GxfTypes::MessageKind kind) const;
    void clear();

  private:
    GxfTypes::MessageSink m_before;
};

/// Sets a debug channel for a scope.
class ChannelSetting {
  public:
    ChannelSetting(GxfTypes::DebuggerOn& channel, unsigned value)
        : m_channel(channel), m_before(channel.get()) {
        channel.set(value);
    }
    ChannelSetting(ChannelSetting const&) = delete;
    ChannelSetting& operator=(ChannelSetting const&) = delete;
    ~ChannelSetting() { m_channel.set(m_before); }

  private:
    GxfTypes::DebuggerOn& m_channel;
    unsigned m_before;
};

} // namespace GxfTesting

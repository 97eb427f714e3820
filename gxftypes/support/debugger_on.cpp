#include <gxftypes/support/debugger_on.h>

#include <cstdarg>
#include <cstring>
#include <mutex>

namespace Zorvan {

namespace {

// A list through the channels themselves: usable before and after all static objects.
constinit std::mutex registryMutex;
constinit DebuggerOn* registryHead = nullptr;

} // namespace

DebuggerOn::DebuggerOn(char const* name, unsigned nNames, ...) : m_name(name) {
    std::va_list names;
    va_start(names, nNames);
    for (unsigned bit = 0; bit < nNames && bit < maxBits; ++bit) {
        m_bitNames[bit] = va_arg(names, char const*);
    }
    va_end(names);

    std::lock_guard const lock(registryMutex);
    m_next = registryHead;
    registryHead = this;
}

DebuggerOn::~DebuggerOn() {
    std::lock_guard const lock(registryMutex);
    for (DebuggerOn** link = &registryHead; *link != nullptr; link = &(*link)->m_next) {
        if (*link == this) {
            *link = m_next;
            return;
        }
    }
}

DebuggerOn* DebuggerOn::find(char const* name) {
    std::lock_guard const lock(registryMutex);
    for (DebuggerOn* channel = registryHead; channel != nullptr; channel = channel->m_next) {
        if (std::strcmp(channel->m_name, name) == 0) {
            return channel;
        }
    }
    return nullptr;
}

} // namespace Zorvan

#include <gxftypes/support/op_subsystem.h>

#include <mutex>

namespace Zorvan {

namespace {

// A list through the declarations themselves: usable before and after all static objects.
constinit std::mutex registryMutex;
constinit OpSubsystemDecl* registryHead = nullptr;
constinit OpSubsystem lastId = 0;

} // namespace

OpSubsystemDecl::OpSubsystemDecl(char const* name, char const* (*getErrorName)(int))
    : m_name(name), m_getErrorName(getErrorName) {
    std::lock_guard const lock(registryMutex);
    m_id = ++lastId;
    m_next = registryHead;
    registryHead = this;
}

OpSubsystemDecl::~OpSubsystemDecl() {
    std::lock_guard const lock(registryMutex);
    for (OpSubsystemDecl** link = &registryHead; *link != nullptr; link = &(*link)->m_next) {
        if (*link == this) {
            *link = m_next;
            return;
        }
    }
}

char const* OpSubsystemDecl::errorNameOf(OpSubsystem id, int code) {
    char const* (*getErrorName)(int) = nullptr;
    {
        std::lock_guard const lock(registryMutex);
        for (OpSubsystemDecl const* decl = registryHead; decl != nullptr; decl = decl->m_next) {
            if (decl->m_id == id) {
                getErrorName = decl->m_getErrorName;
            }
        }
    }
    // Behind the lock: a subsystem may raise a result of its own while it looks up the name.
    return getErrorName != nullptr ? getErrorName(code) : "";
}

} // namespace Zorvan

#pragma once

#include <cstdint>

namespace Zorvan {

/// The number under which a subsystem's results are known.
using OpSubsystem = std::int32_t;

/// Registers a subsystem of the system: a name and the texts of its result codes.
class OpSubsystemDecl {
  public:
    /// Both arguments must outlive the program's last result.
    OpSubsystemDecl(char const* name, char const* (*getErrorName)(int));
    OpSubsystemDecl(OpSubsystemDecl const&) = delete;
    OpSubsystemDecl& operator=(OpSubsystemDecl const&) = delete;
    ~OpSubsystemDecl();

    OpSubsystem getId() const { return m_id; }
    char const* name() const { return m_name; }

    /// The name of a code of the given subsystem; "" when the subsystem isn't registered.
    static char const* errorNameOf(OpSubsystem id, int code);

  private:
    char const* m_name;
    char const* (*m_getErrorName)(int);
    OpSubsystem m_id;
    OpSubsystemDecl* m_next;
};

} // namespace Zorvan

#pragma once

#include <gxftypes/support/messages.h>

namespace Zorvan {

/// Returns the condition; a false one is logged with what failed and where.
inline bool logIfFalse(bool condition, char const* what, char const* file, unsigned line) {
    if (!condition) {
        logFalse(what, file, line);
    }
    return condition;
}

} // namespace Zorvan

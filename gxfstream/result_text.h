#pragma once

#include <string>

#include <gxftypes/packet/gxf.h>

namespace GxfStream {

/// Why a result is no success, in one line for people: the parser of the XML ends its texts with a
/// line feed.
inline std::string reasonOf(GxfTypes::OpResult const& result) {
    std::string reason = GxfTypes::GxfOpSubsystem::getErrorName(result.getCode());
    if (*result.getText() != '\0') {
        reason += std::string(": ") + result.getText();
    }
    reason.erase(reason.find_last_not_of('\n') + 1);
    for (char& c : reason) {
        c = c == '\n' ? ' ' : c;
    }
    return reason;
}

} // namespace GxfStream

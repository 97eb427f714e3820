#include <gxftypes/support/gxf_op_subsystem.h>

#include <iterator>

#include <gxftypes/support/format_str.h>

namespace GxfTypes {

using Zorvan::DebuggerOn;
using Zorvan::FormatStr;

DebuggerOn gxfDecodeDetail("gxfDecodeDetail", 0);
DebuggerOn gxfEncodeDetail("gxfEncodeDetail", 0);
DebuggerOn gxfDebug("gxfDebug", 11, "errors", "arrays", "decode", "duration", "find entry",
                    "index block", "add index", "scan", "packet use", "xml debug",
                    "dump xml tree (expensive)");
GxfOpSubsystem gxfOpSubsystem;

char const* GxfOpSubsystem::getErrorName(int code) {
    static char const* const names[] = {
        "umf partial",
        "umf final",
        "premature eof",
        "internalInfo",
        "unexpected packet",
        "no packet found",
        "eof (info)",
        "internalError",
        "internalWarning",
        "badDecodeSize",
        "badDecodeData",
        "umf userdata (error)",
        "badEncodeSize",
        "badEncodeData",
        "unimplemented",
        "scan vetoed",
        "can't converge",
        "eof (error)",
        "eof (warning)",
        "no xml data",
        "xml tree is too large",
        "xml data may not be usable",
        "xml decode failed",
        "GXF does not currently support modifications to existing clips",
        "unsupported",
    };
    if (static_cast<unsigned>(code) < std::size(names)) {
        return names[code];
    }
    // Appends, where getStringOf replaces: intended.
    thread_local FormatStr unknown(128);
    return unknown.format("error#%d", code).get();
}

char const* getStringOf(char const* what, int value) {
    thread_local FormatStr text(128);
    return text.reformat("?(%s=0x%x)", what, static_cast<unsigned>(value)).get();
}

} // namespace GxfTypes

#pragma once

#include <gxftypes/support/debugger_on.h>
#include <gxftypes/support/op_result.h>

namespace GxfTypes {

/// The result codes of the library and their names.
class GxfOpSubsystem : public Zorvan::OpSubsystemDecl {
  public:
    enum Code : int {
        umfPartial = 0,
        umfFinal = 1,
        internalError = 7,
        internalWarning = 8,
        badDecodeSize = 9,
        badDecodeData = 10,
        umfUserDataError = 11,
        badEncodeSize = 12,
        badEncodeData = 13,
        unimplemented = 14,
        noXmlData = 19,
        xmlTreeTooLarge = 20,
        xmlDataMayNotBeUsable = 21,
        xmlDecodeFailed = 22,
    };

    GxfOpSubsystem() : OpSubsystemDecl("gxf", &getErrorName) {}

    /// The name of a code. One text per thread for the codes that have no name, to which each
    /// further unknown code is appended: this is intended.
    static char const* getErrorName(int code);
};

/// Level of the start and end messages of the decoders.
extern Zorvan::DebuggerOn gxfDecodeDetail;
/// Level of the start and end messages of the encoders.
extern Zorvan::DebuggerOn gxfEncodeDetail;
/// Independent bits, see GxfDebugBit.
extern Zorvan::DebuggerOn gxfDebug;

extern GxfOpSubsystem gxfOpSubsystem;

/// The bits of gxfDebug that the library reads.
enum GxfDebugBit : unsigned {
    gxfDebugErrors = 0,
    gxfDebugArrays = 1,
    gxfDebugXml = 9,
    gxfDebugDumpXmlTree = 10,
};

/// "?(WHAT=0xVALUE)": the fallback of the getName functions. One text per thread, valid until the
/// next call.
char const* getStringOf(char const* what, int value);

/// An error of the library with the place of the call; `text` may be null.
inline Zorvan::OpResult
gxfError(int code, char const* text = nullptr,
         Zorvan::OpCodeLocation const& location = Zorvan::OpCodeLocation::here()) {
    return {Zorvan::OpResult::Error, code, gxfOpSubsystem.getId(), location, text};
}

} // namespace GxfTypes

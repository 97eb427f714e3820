#pragma once

#include <string>

#include <gxftypes/packet/gxf.h>

namespace Gxf {

/// The type of that name, in any case; throws NotDone, with the names that there are.
GxfTypes::UmfPacket::GxfUserDataType userDataTypeOf(std::string const& name);

/// All of them, with commas between.
std::string userDataTypeNames();

/// A value's bytes from how people write it: whole numbers in decimal digits and fractions as
/// numbers of the type's size, least significant byte first; "true" and "false" as one byte; any
/// other type as the text stands. Throws NotDone for what the type can't hold.
std::string valueOf(GxfTypes::UmfPacket::GxfUserDataType type, std::string const& text);

} // namespace Gxf

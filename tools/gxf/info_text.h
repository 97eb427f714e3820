#pragma once

#include <string>

#include "clip.h"

namespace Gxf {

/// "M0": the letter of the type and the character of the number.
std::string umfTrackText(GxfTypes::UmfTrackNum const& number);

/// The clip for people: what an operator wants to see at a glance.
std::string clipText(Input const& input, Clip const& clip, bool quickly);

} // namespace Gxf

#pragma once

#include <string>

#include "clip.h"

namespace Gxf {

/// "M0": the letter of the type and the character of the number, as UTF-8.
std::string umfTrackText(GxfTypes::UmfTrackNum const& number);
/// That of a track of the MAP; "" for one that has none.
std::string umfTrackText(Clip const& clip, TrackFacts const& facts);

/// The clip for people: what an operator wants to see at a glance.
std::string clipText(Input const& input, Clip const& clip, bool quickly);

} // namespace Gxf

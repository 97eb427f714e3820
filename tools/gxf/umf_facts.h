#pragma once

#include <nlohmann/json_fwd.hpp>
#include <string>

#include <gxfstream/umf_joiner.h>

namespace Gxf {

/// What a UMF says, as info prints it.
nlohmann::ordered_json umfJson(GxfStream::StreamUmf const& umf);

/// The user data of a UMF: an array of name, type, track, size and value.
nlohmann::ordered_json userDataJson(GxfTypes::UmfPacket const& umf);

/// The UMF for people, in a few lines.
std::string umfText(GxfStream::StreamUmf const& umf);

} // namespace Gxf

#pragma once

#include <string>
#include <string_view>
#include <vector>

#include <testing/umf_builder.h>

#include "run_tool.h"

namespace GxfTesting {

// Clips for what reads and changes a UMF.

/// A pair of user data with the type as it stands on the wire, on a track.
Bytes pairOf(unsigned id, std::string_view name, Bytes const& value,
             std::string_view type = "String", UmfTrack const& track = {});

/// The tracks M0 and A1; the user data "Title" (a text of 12 bytes) and "Take" (the number 7 on
/// A1); an index with a number in each word, and an XML document of 92 bytes.
UmfContent newsContent();
/// The same without user data, and that many zero bytes at the end.
UmfContent roomyContent(std::size_t room);
/// The content with as many zeros at its end as it needs for that size.
UmfContent filledTo(UmfContent content, std::size_t size);

/// Where the UMF of clipOf() begins.
constexpr std::size_t umfOffset = 40;

/// A picture, the packets with a picture between each two, a picture, and an end.
std::string clipAround(std::vector<Bytes> const& packets);
/// A clip with that UMF, cut as the format has it.
std::string clipOf(UmfContent const& content);
/// A clip with that gathered payload as its UMF.
std::string clipOf(Bytes const& payload);

} // namespace GxfTesting

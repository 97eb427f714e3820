#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace Gxf {

/// The text as UTF-8: as it stands when it is valid UTF-8, else taken as Latin-1.
std::string toUtf8(std::string_view text);

/// UTF-8 for a terminal: control characters, which could move its cursor, become '?'. Line feeds
/// stay.
std::string forPeople(std::string_view text);

/// The text in one line: a line feed and the indent behind it become one blank.
std::string inOneLine(std::string_view text);

/// A number with a blank between groups of three digits.
std::string grouped(std::uint64_t number);

/// Columns that a terminal needs for the text.
std::size_t displayWidth(std::string_view utf8);

} // namespace Gxf

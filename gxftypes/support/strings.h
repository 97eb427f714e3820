#pragma once

#include <string>
#include <vector>

namespace GxfTypes {

/// errno as an unsigned number.
unsigned getLastError();
void clearLastError();

/// strtoull.
unsigned long long strToUint64(char const* text, char** end, int base);
std::string upperCase(std::string const& text);
/// True when `part` occurs in `text`, whatever the case.
bool hasSubString(std::string const& text, std::string const& part);
bool hasSubString(char const* text, char const* part);
/// Case-blind compare: negative, 0 or positive.
int striCmp(char const* a, char const* b);
int strniCmp(char const* a, char const* b, unsigned long count);
/// Appends the pieces of `text` between occurrences of `separator` to `parts`. A separator at the
/// very end gives no empty last piece, and an empty text no piece at all.
void strSplit(std::vector<std::string>& parts, std::string const& text,
              std::string const& separator);

} // namespace GxfTypes

#include <gxftypes/support/strings.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstdlib>
#include <string_view>
#include <strings.h>

namespace GxfTypes {

namespace {

bool isHeld(std::string_view text, std::string_view part) {
    auto const upper = [](char c) { return std::toupper(static_cast<unsigned char>(c)); };
    auto const equal = [&](char a, char b) { return a == b || upper(a) == upper(b); };
    return part.empty() ||
           std::search(text.begin(), text.end(), part.begin(), part.end(), equal) != text.end();
}

} // namespace

unsigned getLastError() { return static_cast<unsigned>(errno); }

void clearLastError() { errno = 0; }

unsigned long long strToUint64(char const* text, char** end, int base) {
    return std::strtoull(text, end, base);
}

std::string upperCase(std::string const& text) {
    std::string upper = text;
    for (char& c : upper) {
        c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
    }
    return upper;
}

bool hasSubString(std::string const& text, std::string const& part) { return isHeld(text, part); }

bool hasSubString(char const* text, char const* part) { return isHeld(text, part); }

int striCmp(char const* a, char const* b) { return strcasecmp(a, b); }

int strniCmp(char const* a, char const* b, unsigned long count) { return strncasecmp(a, b, count); }

void strSplit(std::vector<std::string>& parts, std::string const& text,
              std::string const& separator) {
    std::size_t position = 0;
    while (position < text.size()) {
        // An empty separator separates nothing.
        std::size_t const found =
            separator.empty() ? std::string::npos : text.find(separator, position);
        if (found == std::string::npos) {
            parts.push_back(text.substr(position));
            return;
        }
        parts.push_back(text.substr(position, found - position));
        position = found + separator.size();
    }
}

} // namespace GxfTypes

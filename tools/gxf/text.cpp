#include "text.h"

namespace Gxf {

namespace {

bool isContinuation(unsigned char byte) { return (byte & 0xC0) == 0x80; }

/// Bytes of the UTF-8 sequence at the front; 0 when it isn't valid.
std::size_t sequenceLength(std::string_view text) {
    auto const at = [text](std::size_t i) {
        return i < text.size() ? static_cast<unsigned char>(text[i]) : 0U;
    };
    unsigned const first = at(0);
    unsigned const second = at(1);
    if (first < 0x80) {
        return 1;
    }
    std::size_t const length = first >= 0xF0 ? 4 : first >= 0xE0 ? 3 : 2;
    for (std::size_t i = 1; i < length; ++i) {
        if (!isContinuation(static_cast<unsigned char>(at(i)))) {
            return 0;
        }
    }
    bool const overlong =
        first < 0xC2 || (first == 0xE0 && second < 0xA0) || (first == 0xF0 && second < 0x90);
    bool const surrogate = first == 0xED && second >= 0xA0;
    bool const behindUnicode = first > 0xF4 || (first == 0xF4 && second >= 0x90);
    return overlong || surrogate || behindUnicode ? 0 : length;
}

bool isUtf8(std::string_view text) {
    while (!text.empty()) {
        std::size_t const length = sequenceLength(text);
        if (length == 0) {
            return false;
        }
        text.remove_prefix(length);
    }
    return true;
}

} // namespace

std::string toUtf8(std::string_view text) {
    if (isUtf8(text)) {
        return std::string(text);
    }
    std::string utf8;
    for (char const c : text) {
        auto const byte = static_cast<unsigned char>(c);
        if (byte < 0x80) {
            utf8 += c;
        } else {
            utf8 += static_cast<char>(0xC0 | (byte >> 6));
            utf8 += static_cast<char>(0x80 | (byte & 0x3F));
        }
    }
    return utf8;
}

std::string forPeople(std::string_view text) {
    std::string clean = toUtf8(text);
    for (std::size_t i = 0; i < clean.size(); ++i) {
        auto const byte = static_cast<unsigned char>(clean[i]);
        if ((byte < 0x20 && byte != '\n') || byte == 0x7F) {
            clean[i] = '?';
        }
        // The control characters of Latin-1, C2 80 to C2 9F.
        if (byte == 0xC2 && i + 1 < clean.size() &&
            static_cast<unsigned char>(clean[i + 1]) < 0xA0) {
            clean.replace(i, 2, "?");
        }
    }
    return clean;
}

std::string inOneLine(std::string_view text) {
    std::string line;
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (text[i] != '\n') {
            line += text[i];
            continue;
        }
        while (i + 1 < text.size() && (text[i + 1] == ' ' || text[i + 1] == '\n')) {
            ++i;
        }
        if (!line.empty() && line.back() != '{' && i + 1 < text.size()) {
            line += ' ';
        }
    }
    return line;
}

std::string grouped(std::uint64_t number) {
    std::string digits = std::to_string(number);
    for (std::size_t i = digits.size(); i > 3; i -= 3) {
        digits.insert(i - 3, 1, ' ');
    }
    return digits;
}

std::size_t displayWidth(std::string_view utf8) {
    std::size_t width = 0;
    for (char const c : utf8) {
        width += isContinuation(static_cast<unsigned char>(c)) ? 0 : 1;
    }
    return width;
}

} // namespace Gxf

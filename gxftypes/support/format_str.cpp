#include <gxftypes/support/format_str.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <utility>

namespace Zorvan {

// Delegates, so that a failed allocation on the way finds an object to destroy.
FormatStr::FormatStr(char const* format, ...) : FormatStr(0U) {
    std::va_list arguments;
    va_start(arguments, format);
    vformat(format, arguments);
    va_end(arguments);
}

FormatStr::FormatStr(FormatStr const& other) : m_firstAllocation(other.m_firstAllocation) {
    append(other.get(), other.m_size);
}

FormatStr::FormatStr(FormatStr&& other) noexcept
    : m_text(std::exchange(other.m_text, nullptr)), m_size(std::exchange(other.m_size, 0)),
      m_capacity(std::exchange(other.m_capacity, 0)), m_firstAllocation(other.m_firstAllocation) {}

FormatStr& FormatStr::operator=(FormatStr const& other) {
    if (this != &other) {
        clear();
        append(other.get(), other.m_size);
    }
    return *this;
}

FormatStr& FormatStr::operator=(FormatStr&& other) noexcept {
    std::swap(m_text, other.m_text);
    std::swap(m_size, other.m_size);
    std::swap(m_capacity, other.m_capacity);
    return *this;
}

FormatStr& FormatStr::format(char const* format, ...) {
    std::va_list arguments;
    va_start(arguments, format);
    vformat(format, arguments);
    va_end(arguments);
    return *this;
}

FormatStr& FormatStr::reformat(char const* format, ...) {
    FormatStr text(static_cast<unsigned>(m_firstAllocation));
    std::va_list arguments;
    va_start(arguments, format);
    text.vformat(format, arguments);
    va_end(arguments);
    return *this = std::move(text);
}

FormatStr& FormatStr::vformat(char const* format, std::va_list arguments) {
    reserve(1);
    std::va_list again;
    va_copy(again, arguments);
    std::size_t const room = m_capacity - m_size;
    int const needed = std::vsnprintf(m_text + m_size, room, format, arguments);
    if (needed > 0 && static_cast<std::size_t>(needed) >= room) {
        m_text[m_size] = '\0'; // the text as it was, should memory end here
        reserve(static_cast<std::size_t>(needed) + 1);
        std::vsnprintf(m_text + m_size, m_capacity - m_size, format, again);
    }
    va_end(again);
    if (needed > 0) {
        m_size += static_cast<std::size_t>(needed);
    }
    m_text[m_size] = '\0';
    return *this;
}

FormatStr& FormatStr::cat(char const* text) {
    append(text, std::strlen(text));
    return *this;
}

FormatStr& FormatStr::catAsFormat(char const* text) {
    while (char const* const percents = std::strstr(text, "%%")) {
        append(text, static_cast<std::size_t>(percents - text) + 1);
        text = percents + 2;
    }
    return cat(text);
}

void FormatStr::clear() {
    m_size = 0;
    if (m_text != nullptr) {
        m_text[0] = '\0';
    }
}

FormatStr::operator AutoPtr<char>() const {
    char* const text = new char[m_size + 1];
    std::memcpy(text, get(), m_size + 1);
    return AutoPtr<char>(text);
}

char* FormatStr::releaseArrayString() {
    reserve(1);
    m_text[m_size] = '\0';
    m_size = 0;
    m_capacity = 0;
    return std::exchange(m_text, nullptr);
}

/// Room for `more` bytes behind the text, its terminating zero among them.
void FormatStr::reserve(std::size_t more) {
    if (m_text != nullptr && m_capacity - m_size >= more) {
        return;
    }
    std::size_t const capacity = std::max({m_size + more, m_capacity * 2, m_firstAllocation});
    char* const grown = new char[capacity];
    std::memcpy(grown, get(), m_size + 1);
    delete[] m_text;
    m_text = grown;
    m_capacity = capacity;
}

void FormatStr::append(char const* bytes, std::size_t count) {
    reserve(count + 1);
    std::memcpy(m_text + m_size, bytes, count);
    m_size += count;
    m_text[m_size] = '\0';
}

} // namespace Zorvan

#pragma once

#include <cstdarg>
#include <cstddef>

#include <gxftypes/support/auto_ptr.h>

namespace Zorvan {

/// A text that grows as it is appended to, printf-style or as it stands.
class FormatStr {
  public:
    /// An empty text; `size` is a first allocation in bytes, made with the first append.
    explicit FormatStr(unsigned size) : m_firstAllocation(size) {}
    explicit FormatStr(char const* format, ...) __attribute__((format(printf, 2, 3)));
    FormatStr(FormatStr const& other);
    FormatStr(FormatStr&& other) noexcept;
    FormatStr& operator=(FormatStr const& other);
    FormatStr& operator=(FormatStr&& other) noexcept;
    ~FormatStr() { delete[] m_text; }

    /// Appends printf-style.
    FormatStr& format(char const* format, ...) __attribute__((format(printf, 2, 3)));
    /// Replaces the text printf-style. The arguments may point into the text that is replaced.
    FormatStr& reformat(char const* format, ...) __attribute__((format(printf, 2, 3)));
    FormatStr& vformat(char const* format, std::va_list arguments)
        __attribute__((format(printf, 2, 0)));
    /// Appends a text as it stands.
    FormatStr& cat(char const* text);
    /// Appends a foreign text in the role of a format without arguments: two percent signs become
    /// one, every other byte is copied. It never reaches a printf-family function.
    FormatStr& catAsFormat(char const* text);
    void clear();

    /// The text, never null; valid until the next change.
    char const* get() const { return m_text != nullptr ? m_text : ""; }
    /// Bytes of text, without the terminating zero.
    unsigned size() const { return static_cast<unsigned>(m_size); }

    /// The text as a new array that the caller owns.
    operator AutoPtr<char>() const;
    /// Hands over the text's own array, to be freed with delete[], and leaves the object empty.
    char* releaseArrayString();

  private:
    void reserve(std::size_t more);
    void append(char const* bytes, std::size_t count);

    char* m_text = nullptr;
    std::size_t m_size = 0;
    std::size_t m_capacity = 0;
    std::size_t m_firstAllocation = 0;
};

} // namespace Zorvan

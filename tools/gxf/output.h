#pragma once

#include <cstdint>
#include <cstdio>
#include <span>
#include <string>
#include <string_view>

namespace Gxf {

/// Where a command's results go: standard output, or a file that appears whole under its name or
/// not at all.
class Output {
  public:
    /// Results on standard output.
    static Output standard();
    /// A file, written beside its name and put there by finish(). A name that exists and is no
    /// regular file (a device, a pipe) is written as it is.
    static Output file(std::string const& path);

    Output(Output&& other) noexcept;
    Output& operator=(Output&&) = delete;
    /// Without finish() nothing appears.
    ~Output();

    /// Throws NotDone when there is no room.
    void write(std::span<unsigned char const> bytes);
    void write(std::string_view text);
    /// Writes over bytes at the front. REQUIRES: canRewind().
    void rewriteFront(std::span<unsigned char const> bytes);
    bool canRewind() const { return !m_temporary.empty(); }
    bool isTerminal() const;

    /// Makes the output whole, or throws NotDone. Returns 0.
    int finish();

  private:
    Output(std::FILE* stream, std::string path, std::string temporary);
    [[noreturn]] void fail();

    std::FILE* m_stream;
    std::string m_path;
    std::string m_temporary; ///< empty when the output isn't put in place by renaming
};

} // namespace Gxf

#pragma once

#include <csignal>
#include <cstdint>
#include <cstdio>
#include <memory>
#include <span>
#include <string>
#include <string_view>

#include <gxfstream/whole_file.h>

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
    /// Writes over bytes that were written before. REQUIRES: canRewind().
    void rewrite(std::span<unsigned char const> bytes, std::uint64_t offset);
    bool canRewind() const { return m_file != nullptr; }
    bool isTerminal() const;
    /// What was written so far, as a file of its own. REQUIRES: canRewind().
    std::string const& unfinished();

    /// Makes the output whole, or throws NotDone. Returns 0.
    int finish();

  private:
    Output(std::FILE* stream, std::string path, std::unique_ptr<GxfStream::WholeFile> file);
    [[noreturn]] void fail(std::string const& reason);
    void flush();

    std::FILE* m_stream;
    std::string m_path;
    std::unique_ptr<GxfStream::WholeFile> m_file; ///< null when nothing is put in place by renaming
};

/// No interrupt ends the process while it lives.
class InterruptsHeld {
  public:
    InterruptsHeld();
    ~InterruptsHeld();
    InterruptsHeld(InterruptsHeld const&) = delete;
    InterruptsHeld& operator=(InterruptsHeld const&) = delete;

  private:
    sigset_t m_before;
};

} // namespace Gxf

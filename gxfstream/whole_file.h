#pragma once

#include <memory>
#include <string>

#include <gxfstream/byte_source.h>

namespace GxfStream {

/// A new file that appears under its name whole or not at all: written beside it, synced, renamed.
class WholeFile {
  public:
    /// Begins a file that is to replace, or to become, `path`; where that is a symbolic link, what
    /// it points to. An existing file's mode is kept. Null, with the reason in `error`, when
    /// nothing can be written beside it.
    static std::unique_ptr<WholeFile> create(std::string const& path, std::string& error);
    WholeFile(WholeFile const&) = delete;
    WholeFile& operator=(WholeFile const&) = delete;
    /// Without finish() nothing appears.
    ~WholeFile();

    /// Of the unfinished file, open for reading and writing.
    int descriptor() const { return m_descriptor; }
    /// The unfinished file's own name.
    std::string const& temporary() const { return m_temporary; }

    /// Appends; false, with error(), without room.
    bool write(Span bytes);
    /// Makes the file appear; false, with error(), when it can't be synced or renamed.
    bool finish();
    /// Why the last step failed, as a text for people.
    std::string const& error() const { return m_error; }

  private:
    WholeFile(int descriptor, std::string target, std::string temporary);
    bool fail();

    int m_descriptor;
    std::string m_target;
    std::string m_temporary; ///< empty when it is there no more
    std::string m_error;
};

/// Writes all bytes at a position of a file, however many calls it takes; false, with errno, when
/// that fails.
bool writeAll(int descriptor, Span bytes, std::uint64_t offset);

/// Makes what was made, renamed or removed in the folder of a path last. False, with errno, when
/// the system can't promise that.
bool syncFolderOf(std::string const& path);

} // namespace GxfStream

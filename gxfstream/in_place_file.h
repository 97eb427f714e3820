#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include <gxfstream/byte_source.h>

namespace GxfStream {

/// Bytes of a stream that are to be replaced by as many others.
struct Patch {
    std::uint64_t offset = 0;
    std::vector<unsigned char> before;
    std::vector<unsigned char> after;
};

/// What undoInterrupted() found.
enum class Undone {
    nothing, ///< no change of the file was interrupted
    done,    ///< the file has its old bytes again
    failed,  ///< it may have some old and some new ones
};

/// A file that is changed where it lies, as a whole or not at all.
///
/// Before the first byte is changed, the bytes that were there, and those that come, are synced to
/// an undo file beside it, `NAME.gxf-undo`. That file goes when all new bytes are synced. Whoever
/// finds it after a crash puts the old bytes back: open() and undoInterrupted() do, unless the undo
/// file belongs to somebody else than the file's owner, the user or root.
///
///     undo file, least significant byte first:
///     "GXFUNDO1" 8 | size of the changed file 8 | patches 4 | check of all the rest 8 |
///     for each patch: offset 8 | length 4 | bytes before | bytes after
class InPlaceFile {
  public:
    /// Opens a file to change it, and keeps others from changing it meanwhile. What an interrupted
    /// change left is undone first. Null, with the reason in `error`, for what is no regular file,
    /// can't be written, or is being changed by somebody else.
    static std::unique_ptr<InPlaceFile> open(std::string const& path, std::string& error);
    ~InPlaceFile();
    InPlaceFile(InPlaceFile const&) = delete;
    InPlaceFile& operator=(InPlaceFile const&) = delete;

    /// Replaces the bytes. False, with error(), when that failed: the file has its old bytes then,
    /// or the undo file still lies beside it, or another file has taken the file's name.
    bool apply(std::vector<Patch> const& patches);
    /// Why the last step failed, as a text for people.
    std::string const& error() const { return m_error; }
    /// An interrupted change was found and undone.
    bool hasUndone() const { return m_hasUndone; }

  private:
    friend Undone undoInterrupted(std::string const& path, std::string& error);

    InPlaceFile(int descriptor, std::string path)
        : m_descriptor(descriptor), m_path(std::move(path)) {}

    bool isAsBefore(std::vector<Patch> const& patches);
    bool writeUndoFile(std::vector<Patch> const& patches);
    bool undo();
    bool putBack(std::vector<Patch> const& patches);
    bool fail(std::string const& what);

    int m_descriptor;
    std::string m_path; ///< without symbolic links
    std::string m_error;
    bool m_hasUndone = false;
};

/// While it lives, nobody changes the file in place. It waits up to ten seconds for somebody who
/// does, and then does without.
class UnchangedFile {
  public:
    explicit UnchangedFile(std::string const& path);
    UnchangedFile(UnchangedFile const&) = delete;
    UnchangedFile& operator=(UnchangedFile const&) = delete;
    ~UnchangedFile();

  private:
    int m_descriptor;
};

/// Undoes a change of a file that was interrupted; to be called before the file is read. Waits for
/// a change that is going on. `error` tells why it failed.
Undone undoInterrupted(std::string const& path, std::string& error);

/// The undo file of a file.
std::string undoFileOf(std::string const& path);

} // namespace GxfStream

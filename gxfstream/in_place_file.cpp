#include <gxfstream/in_place_file.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <optional>
#include <sys/file.h>
#include <sys/stat.h>
#include <system_error>
#include <thread>
#include <unistd.h>

#include <gxfstream/whole_file.h>

namespace GxfStream {

namespace {

constexpr char magic[] = {'G', 'X', 'F', 'U', 'N', 'D', 'O', '1'};
constexpr std::size_t headSize = 28;
constexpr std::size_t checkOffset = 20;

using Bytes = std::vector<unsigned char>;

std::string reason() { return std::generic_category().message(errno); }

void put(Bytes& to, std::uint64_t value, unsigned count) {
    for (unsigned i = 0; i < count; ++i) {
        to.push_back(static_cast<unsigned char>(value >> (8 * i)));
    }
}

std::uint64_t get(Span bytes, std::size_t offset, unsigned count) {
    std::uint64_t value = 0;
    for (unsigned i = 0; i < count; ++i) {
        value |= static_cast<std::uint64_t>(bytes[offset + i]) << (8 * i);
    }
    return value;
}

/// The 64-bit FNV-1a hash, over all but the check itself.
std::uint64_t checkOf(Span file) {
    std::uint64_t hash = 0xCBF29CE484222325;
    for (std::size_t i = 0; i < file.size(); ++i) {
        if (i < checkOffset || i >= headSize) {
            hash = (hash ^ file[i]) * 0x100000001B3;
        }
    }
    return hash;
}

Bytes undoFile(std::uint64_t fileSize, std::vector<Patch> const& patches) {
    Bytes file(std::begin(magic), std::end(magic));
    put(file, fileSize, 8);
    put(file, patches.size(), 4);
    put(file, 0, 8);
    for (Patch const& patch : patches) {
        put(file, patch.offset, 8);
        put(file, patch.before.size(), 4);
        file.insert(file.end(), patch.before.begin(), patch.before.end());
        file.insert(file.end(), patch.after.begin(), patch.after.end());
    }
    Bytes check;
    put(check, checkOf(file), 8);
    std::copy(check.begin(), check.end(), file.begin() + checkOffset);
    return file;
}

struct UndoFile {
    std::uint64_t fileSize = 0;
    std::vector<Patch> patches;
};

/// Nothing for a file that was never whole.
std::optional<UndoFile> parsed(Span file) {
    if (file.size() < headSize || std::memcmp(file.data(), magic, sizeof magic) != 0 ||
        get(file, checkOffset, 8) != checkOf(file)) {
        return std::nullopt;
    }
    UndoFile undo;
    undo.fileSize = get(file, 8, 8);
    std::uint64_t const count = get(file, 16, 4);
    Span rest = file.subspan(headSize);
    for (std::uint64_t i = 0; i < count; ++i) {
        if (rest.size() < 12) {
            return std::nullopt;
        }
        std::uint64_t const offset = get(rest, 0, 8);
        std::size_t const length = get(rest, 8, 4);
        rest = rest.subspan(12);
        if (rest.size() < 2 * length) {
            return std::nullopt;
        }
        Span const before = rest.first(length);
        Span const after = rest.subspan(length, length);
        undo.patches.push_back(
            {offset, {before.begin(), before.end()}, {after.begin(), after.end()}});
        rest = rest.subspan(2 * length);
    }
    return undo;
}

/// True for an undo file, be it whole or as a crash leaves it while it is written.
bool isBegun(Span file) {
    Span const begin = file.first(std::min(file.size(), sizeof magic));
    bool const isEmpty = std::all_of(file.begin(), file.end(), [](auto c) { return c == 0; });
    return isEmpty || std::equal(begin.begin(), begin.end(), std::begin(magic));
}

/// False, with errno, when they can't be read; errno is 0 when the file ends before them.
bool readAll(int descriptor, std::span<unsigned char> to, std::uint64_t offset) {
    while (!to.empty()) {
        ssize_t const got = ::pread(descriptor, to.data(), to.size(), static_cast<off_t>(offset));
        if (got < 0 && errno == EINTR) {
            continue;
        }
        if (got <= 0) {
            errno = got == 0 ? 0 : errno;
            return false;
        }
        to = to.subspan(static_cast<std::size_t>(got));
        offset += static_cast<std::uint64_t>(got);
    }
    return true;
}

/// The file that lies where an undo file is to lie.
struct FoundUndo {
    enum State {
        none,
        foreign,    ///< no undo file, or one that a stranger has put there
        unfinished, ///< interrupted while it was written, before the file was touched
        whole,
        unreadable, ///< with errno
    };

    State state;
    UndoFile undo;
};

/// A stranger's undo file would write a stranger's bytes.
bool isTrusted(uid_t owner, uid_t ownerOfFile) {
    return owner == ownerOfFile || owner == ::geteuid() || owner == 0;
}

FoundUndo readUndo(int descriptor, struct stat const& file) {
    struct stat status {};
    if (::fstat(descriptor, &status) != 0) {
        return {FoundUndo::unreadable, {}};
    }
    // All bytes twice, and each of them in a patch of its own.
    std::uint64_t const most = headSize + 14 * static_cast<std::uint64_t>(file.st_size);
    auto const size = static_cast<std::uint64_t>(status.st_size);
    if (!S_ISREG(status.st_mode) || !isTrusted(status.st_uid, file.st_uid) || size > most) {
        return {FoundUndo::foreign, {}};
    }
    Bytes content(static_cast<std::size_t>(size));
    if (!readAll(descriptor, content, 0)) {
        return {FoundUndo::unreadable, {}};
    }
    if (!isBegun(content)) {
        return {FoundUndo::foreign, {}};
    }
    std::optional<UndoFile> undo = parsed(content);
    return undo ? FoundUndo{FoundUndo::whole, std::move(*undo)}
                : FoundUndo{FoundUndo::unfinished, {}};
}

/// `file` is what the undo file would belong to.
FoundUndo findUndo(std::string const& path, struct stat const& file) {
    // A named pipe would wait for its writer.
    int const descriptor = ::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK);
    if (descriptor < 0) {
        switch (errno) {
        case ENOENT:
        case ENAMETOOLONG:
            return {FoundUndo::none, {}};
        case ELOOP:
        case ENXIO:
            return {FoundUndo::foreign, {}};
        default:
            return {FoundUndo::unreadable, {}};
        }
    }
    FoundUndo found = readUndo(descriptor, file);
    int const error = errno;
    ::close(descriptor);
    errno = error;
    return found;
}

/// Each byte is an old or a new one, as a change that was interrupted leaves them.
bool isMixOf(Span bytes, Patch const& patch) {
    for (std::size_t i = 0; i < bytes.size(); ++i) {
        if (bytes[i] != patch.before[i] && bytes[i] != patch.after[i]) {
            return false;
        }
    }
    return true;
}

/// The file is what an interrupted change of that undo file can have left.
/// False with errno 0 when it isn't, else when it can't be read.
bool isOf(UndoFile const& undo, std::uint64_t size, int descriptor) {
    errno = 0;
    if (size != undo.fileSize) {
        return false;
    }
    for (Patch const& patch : undo.patches) {
        Bytes now(patch.before.size());
        if (!readAll(descriptor, now, patch.offset)) {
            return false;
        }
        if (!isMixOf(now, patch)) {
            errno = 0;
            return false;
        }
    }
    return true;
}

/// Without symbolic links; as it stands when it leads nowhere.
std::string realPath(std::string const& path) {
    char* const real = ::realpath(path.c_str(), nullptr);
    std::string const result = real != nullptr ? real : path;
    std::free(real);
    return result;
}

bool isSameFile(int descriptor, std::string const& path) {
    struct stat mine {};
    struct stat other {};
    return ::fstat(descriptor, &mine) == 0 && ::stat(path.c_str(), &other) == 0 &&
           mine.st_dev == other.st_dev && mine.st_ino == other.st_ino;
}

/// False when somebody else holds the lock for longer than ten seconds.
bool lock(int descriptor, int kind = LOCK_EX) {
    constexpr int tries = 200;
    for (int i = 0; i < tries; ++i) {
        if (::flock(descriptor, kind | LOCK_NB) == 0) {
            return true;
        }
        if (errno != EWOULDBLOCK && errno != EINTR) {
            return false;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
    }
    errno = EWOULDBLOCK;
    return false;
}

/// A descriptor that holds the lock on what the path names now. Negative, with the reason.
int openLocked(std::string const& path, std::string& error) {
    for (;;) {
        // A named pipe would wait for its writer.
        int const descriptor = ::open(path.c_str(), O_RDWR | O_CLOEXEC | O_NONBLOCK);
        if (descriptor < 0) {
            error = reason();
            return -1;
        }
        struct stat status {};
        if (::fstat(descriptor, &status) != 0 || !S_ISREG(status.st_mode)) {
            error = "it is not a regular file";
        } else if (!lock(descriptor)) {
            error = errno == EWOULDBLOCK ? "somebody else is changing or copying it" : reason();
        } else if (isSameFile(descriptor, path)) {
            return descriptor;
        } else {
            // It was replaced meanwhile.
            ::close(descriptor);
            continue;
        }
        ::close(descriptor);
        return -1;
    }
}

} // namespace

std::string undoFileOf(std::string const& path) { return realPath(path) + ".gxf-undo"; }

UnchangedFile::UnchangedFile(std::string const& path)
    : m_descriptor(::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK)) {
    if (m_descriptor >= 0) {
        lock(m_descriptor, LOCK_SH);
    }
}

UnchangedFile::~UnchangedFile() {
    if (m_descriptor >= 0) {
        ::close(m_descriptor);
    }
}

Undone undoInterrupted(std::string const& path, std::string& error) {
    struct stat status {};
    if (::stat(path.c_str(), &status) != 0) {
        return Undone::nothing;
    }
    FoundUndo::State const found = findUndo(undoFileOf(path), status).state;
    if (found == FoundUndo::none) {
        return Undone::nothing;
    }
    std::string why;
    int const descriptor = openLocked(path, why);
    if (descriptor < 0) {
        // It may have been going on, and be done now.
        UnchangedFile const unchanged(path);
        if (findUndo(undoFileOf(path), status).state == FoundUndo::none) {
            return Undone::nothing;
        }
        error = "a change of it was interrupted, and undoing that needs to write it: " + why +
                "; use it once as somebody who may";
        // What can't be changed can be read as it is when it wasn't touched.
        return found == FoundUndo::unfinished ? Undone::nothing : Undone::failed;
    }
    InPlaceFile file(descriptor, realPath(path));
    if (!file.undo()) {
        error = file.error();
        return Undone::failed;
    }
    return file.hasUndone() ? Undone::done : Undone::nothing;
}

std::unique_ptr<InPlaceFile> InPlaceFile::open(std::string const& path, std::string& error) {
    int const descriptor = openLocked(path, error);
    if (descriptor < 0) {
        return nullptr;
    }
    std::unique_ptr<InPlaceFile> file(new InPlaceFile(descriptor, realPath(path)));
    if (!file->undo()) {
        error = file->error();
        return nullptr;
    }
    return file;
}

InPlaceFile::~InPlaceFile() { ::close(m_descriptor); }

bool InPlaceFile::fail(std::string const& what) {
    m_error = what;
    return false;
}

bool InPlaceFile::apply(std::vector<Patch> const& patches) {
    if (!isAsBefore(patches) || !writeUndoFile(patches)) {
        return false;
    }
    std::string const undoPath = undoFileOf(m_path);
    bool written = true;
    for (Patch const& patch : patches) {
        written = written && writeAll(m_descriptor, patch.after, patch.offset);
    }
    if (written && ::fsync(m_descriptor) == 0 && ::unlink(undoPath.c_str()) == 0) {
        syncFolderOf(undoPath);
        return isSameFile(m_descriptor, m_path) ||
               fail("another file has taken its place meanwhile");
    }
    std::string const why = reason();
    bool const isBack = putBack(patches);
    if (isBack && ::unlink(undoPath.c_str()) != 0) {
        return fail("writing failed, " + why + "; it has its old bytes, and " + undoPath +
                    " can't be removed, " + reason() + ": remove it");
    }
    if (!isBack) {
        return fail("writing failed, " + why + ", and so did putting the old bytes back, " +
                    reason() + ": they are kept in " + undoPath +
                    ", and the next use of the file puts them back");
    }
    return fail("writing failed, " + why + "; it has its old bytes");
}

/// Nobody changed the file since the patches were made.
bool InPlaceFile::isAsBefore(std::vector<Patch> const& patches) {
    for (Patch const& patch : patches) {
        Bytes now(patch.before.size());
        if (!readAll(m_descriptor, now, patch.offset) && errno != 0) {
            return fail("it can't be read, " + reason());
        }
        if (patch.after.size() != patch.before.size() || now != patch.before) {
            return fail("somebody else has changed it meanwhile");
        }
    }
    return isSameFile(m_descriptor, m_path) || fail("another file has taken its place meanwhile");
}

bool InPlaceFile::writeUndoFile(std::vector<Patch> const& patches) {
    struct stat status {};
    if (::fstat(m_descriptor, &status) != 0) {
        return fail(reason());
    }
    std::string const path = undoFileOf(m_path);
    int const descriptor =
        ::open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, status.st_mode & 0777);
    if (descriptor < 0) {
        return fail("its old bytes can't be kept in " + path + ", " + reason());
    }
    bool const written =
        writeAll(descriptor, undoFile(static_cast<std::uint64_t>(status.st_size), patches), 0) &&
        ::fsync(descriptor) == 0 && (syncFolderOf(path) || ::syncfs(descriptor) == 0);
    std::string const why = reason();
    ::close(descriptor);
    if (!written) {
        ::unlink(path.c_str());
        return fail("its old bytes can't be kept in " + path + ", " + why);
    }
    return true;
}

/// Puts the old bytes back that an undo file keeps, if there is one.
bool InPlaceFile::undo() {
    std::string const path = undoFileOf(m_path);
    struct stat status {};
    if (::fstat(m_descriptor, &status) != 0) {
        return fail(reason());
    }
    FoundUndo const found = findUndo(path, status);
    switch (found.state) {
    case FoundUndo::none:
        return true;
    case FoundUndo::foreign:
        return fail(path + " is in the way of changing it; move it away");
    case FoundUndo::unreadable:
        return fail("a change of it was interrupted, and " + path + " can't be read, " + reason() +
                    "; make it readable");
    case FoundUndo::whole:
        if (!isOf(found.undo, static_cast<std::uint64_t>(status.st_size), m_descriptor)) {
            if (errno != 0) {
                return fail("a change of it was interrupted, and it can't be read, " + reason() +
                            "; use it again when that is mended");
            }
            return fail(path + " keeps old bytes of another file; move it away, or back to the "
                               "file that it belongs to");
        }
        if (!putBack(found.undo.patches)) {
            return fail("a change of it was interrupted, and putting the old bytes back failed, " +
                        reason() + "; use it again when that is mended");
        }
        m_hasUndone = true;
        break;
    case FoundUndo::unfinished:
        break;
    }
    if (::unlink(path.c_str()) != 0) {
        return fail("a change of it was interrupted, and " + path + " can't be removed, " +
                    reason() + "; remove it");
    }
    syncFolderOf(path);
    return true;
}

/// False, with errno, when a byte can't be written or synced.
bool InPlaceFile::putBack(std::vector<Patch> const& patches) {
    for (Patch const& patch : patches) {
        if (!writeAll(m_descriptor, patch.before, patch.offset)) {
            return false;
        }
    }
    return ::fsync(m_descriptor) == 0;
}

} // namespace GxfStream

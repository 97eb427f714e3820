// Preloaded into the tool, it counts the steps that change a file system, and lets one go wrong:
//
//     GXF_FAULT=kill   the process is killed in front of the step GXF_FAULT_STEP
//     GXF_FAULT=torn   a write is done by half, any other step whole, then the process is killed
//     GXF_FAULT=once   a write is done by half and fails for want of room, any other step just
//     fails GXF_FAULT=full   the same, and all writes from then on fail

#include <cerrno>
#include <csignal>
#include <cstdarg>
#include <cstdlib>
#include <cstring>
#include <dlfcn.h>
#include <fcntl.h>
#include <sys/types.h>
#include <unistd.h>

namespace {

template <typename Function> Function real(char const* name) {
    return reinterpret_cast<Function>(::dlsym(RTLD_NEXT, name));
}

bool isFault(char const* kind) {
    char const* const wanted = std::getenv("GXF_FAULT");
    return wanted != nullptr && std::strcmp(wanted, kind) == 0;
}

/// True for the step that goes wrong.
bool isStep() {
    static long steps = 0;
    char const* const wanted = std::getenv("GXF_FAULT_STEP");
    return wanted != nullptr && ++steps == std::strtol(wanted, nullptr, 10);
}

bool diskIsFull = false;

template <typename Half, typename Whole> ssize_t write(Half half, Whole whole) {
    if (diskIsFull) {
        errno = ENOSPC;
        return -1;
    }
    if (!isStep()) {
        return whole();
    }
    if (!isFault("kill")) {
        half();
    }
    if (isFault("kill") || isFault("torn")) {
        ::raise(SIGKILL);
    }
    diskIsFull = isFault("full");
    errno = ENOSPC;
    return -1;
}

template <typename Whole> int change(int error, Whole whole) {
    if (!isStep()) {
        return whole();
    }
    if (isFault("torn")) {
        whole();
    }
    if (isFault("kill") || isFault("torn")) {
        ::raise(SIGKILL);
    }
    if (isFault("full")) {
        diskIsFull = true;
        return whole();
    }
    errno = error;
    return -1;
}

bool isStandard(int descriptor) { return descriptor <= STDERR_FILENO; }

} // namespace

extern "C" {

ssize_t pwrite(int descriptor, void const* bytes, size_t count, off_t offset) {
    static auto const next = real<ssize_t (*)(int, void const*, size_t, off_t)>("pwrite");
    return write([&] { return next(descriptor, bytes, count / 2, offset); },
                 [&] { return next(descriptor, bytes, count, offset); });
}

ssize_t write(int descriptor, void const* bytes, size_t count) {
    static auto const next = real<ssize_t (*)(int, void const*, size_t)>("write");
    if (isStandard(descriptor)) {
        return next(descriptor, bytes, count);
    }
    return write([&] { return next(descriptor, bytes, count / 2); },
                 [&] { return next(descriptor, bytes, count); });
}

int fsync(int descriptor) {
    static auto const next = real<int (*)(int)>("fsync");
    return change(EIO, [&] { return next(descriptor); });
}

int unlink(char const* path) noexcept {
    static auto const next = real<int (*)(char const*)>("unlink");
    return change(EACCES, [&] { return next(path); });
}

int rename(char const* from, char const* to) noexcept {
    static auto const next = real<int (*)(char const*, char const*)>("rename");
    return change(EACCES, [&] { return next(from, to); });
}

int open(char const* path, int flags, ...) {
    static auto const next = real<int (*)(char const*, int, ...)>("open");
    std::va_list arguments;
    va_start(arguments, flags);
    mode_t const mode = (flags & O_CREAT) != 0 ? va_arg(arguments, mode_t) : 0;
    va_end(arguments);
    if ((flags & O_CREAT) == 0) {
        return next(path, flags, mode);
    }
    return change(ENOSPC, [&] { return next(path, flags, mode); });
}
}

#pragma once

namespace Zorvan {

/// One entry of a scatter-gather list: a stretch of bytes that belongs to somebody else.
struct simpleSgl_s {
    unsigned char* data = nullptr;
    unsigned length = 0;
};

/// A scatter-gather list of one entry.
struct initSgl_t : simpleSgl_s {
    initSgl_t(unsigned char* bytes, unsigned count) { set(bytes, count); }

    void set(unsigned char* bytes, unsigned count) {
        data = bytes;
        length = count;
    }
};

} // namespace Zorvan

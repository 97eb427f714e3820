#pragma once

#include <string>

namespace Zorvan {

/// What the file classes share.
class BasicFileIO {
  public:
    /// The name of an errno value; the text is one per thread and valid until the next call.
    static char const* getErrorName(unsigned error);
};

/// A file that is written anew.
class FsFileIO : public BasicFileIO {
  public:
    /// `name` is for diagnostics; a `mode` of 0 means writing a new file, and there is no other.
    FsFileIO(char const* name, char const* path, int mode);
    FsFileIO(FsFileIO const&) = delete;
    FsFileIO& operator=(FsFileIO const&) = delete;
    ~FsFileIO();

    bool exists() const;
    bool remove();
    bool open();
    /// The bytes written, fewer than `count` when there is no room.
    int write(void const* data, int count);
    bool close();

  private:
    std::string m_name;
    std::string m_path;
    int m_descriptor = -1;
};

} // namespace Zorvan

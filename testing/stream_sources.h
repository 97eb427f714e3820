#pragma once

#include <memory>
#include <string>
#include <thread>

#include <gxfstream/byte_source.h>
#include <testing/bytes.h>

namespace GxfTesting {

/// A file of these bytes in the folder for temporary files; gone with the object.
class TemporaryFile {
  public:
    explicit TemporaryFile(Bytes const& bytes = {});
    TemporaryFile(TemporaryFile const&) = delete;
    TemporaryFile& operator=(TemporaryFile const&) = delete;
    ~TemporaryFile();

    std::string const& path() const { return m_path; }
    /// Open for reading and writing; the object's.
    int descriptor() const { return m_descriptor; }

  private:
    std::string m_path;
    int m_descriptor;
};

/// The reading end of a pipe into which a thread writes the bytes in pieces of odd sizes. The bytes
/// must outlive it.
class FedPipe {
  public:
    explicit FedPipe(Bytes const& bytes);
    FedPipe(FedPipe const&) = delete;
    FedPipe& operator=(FedPipe const&) = delete;
    /// What wasn't read is dropped.
    ~FedPipe();

    int descriptor() const { return m_readingEnd; }

  private:
    static void feed(int writingEnd, Bytes const& bytes);

    int m_readingEnd;
    std::thread m_writer;
};

enum class SourceKind { memory, file, pipe };
char const* getName(SourceKind kind);

/// The same bytes, which must outlive it, as a source of any kind.
class StreamSource {
  public:
    StreamSource(SourceKind kind, Bytes const& bytes);

    GxfStream::ByteSource& operator*() const { return *m_source; }
    GxfStream::ByteSource* operator->() const { return m_source.get(); }

  private:
    std::unique_ptr<TemporaryFile> m_file;
    std::unique_ptr<FedPipe> m_pipe;
    std::unique_ptr<GxfStream::ByteSource> m_source;
};

} // namespace GxfTesting

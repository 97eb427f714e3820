#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>

namespace GxfStream {

using Span = std::span<unsigned char const>;

/// The bytes of a stream, wherever they lie. Used by one thread at a time.
class ByteSource {
  public:
    ByteSource() = default;
    ByteSource(ByteSource const&) = delete;
    ByteSource& operator=(ByteSource const&) = delete;
    virtual ~ByteSource() = default;

    /// Up to `count` bytes from position `offset` on, counted from the stream's start. Fewer come
    /// only where the stream ends, where reading failed (see error()), or where
    /// canReach() says no.
    /// The span is good until the next call.
    virtual Span read(std::uint64_t offset, std::size_t count) = 0;

    /// Copies `to.size()` bytes from a position; false when they aren't all there. What read()
    /// would find cheap to read stays so, but its last span is no longer good.
    virtual bool peek(std::uint64_t offset, std::span<unsigned char> to) = 0;

    /// The most that it pays to ask for at once: reading more would only take memory.
    virtual std::size_t largestChunk() const { return std::size_t{1} << 20; }

    /// Promises that nothing before `offset` is asked for again. Spans stay good.
    virtual void release(std::uint64_t) {}

    /// False for what lies too far ahead, or behind, to be looked at now.
    virtual bool canReach(std::uint64_t, std::size_t) const { return true; }

    /// Bytes of the whole stream; nothing where only its end will tell.
    virtual std::optional<std::uint64_t> size() const = 0;

    /// Any position can be read at any time.
    virtual bool isSeekable() const { return true; }

    /// Why reading stopped short, as a text for people; empty when nothing failed.
    std::string const& error() const { return m_error; }

  protected:
    void setError(char const* what, int errorNumber);

  private:
    std::string m_error;
};

/// A stream in memory, which stays the caller's and must outlive the source. Nothing is copied.
class MemorySource : public ByteSource {
  public:
    explicit MemorySource(Span bytes) : m_bytes(bytes) {}

    Span read(std::uint64_t offset, std::size_t count) override;
    bool peek(std::uint64_t offset, std::span<unsigned char> to) override;
    std::size_t largestChunk() const override { return m_bytes.size(); }
    std::optional<std::uint64_t> size() const override { return m_bytes.size(); }

  private:
    Span m_bytes;
};

/// What a source keeps of a file or a pipe: a stretch of the stream that begins at a position.
class ByteWindow {
  public:
    std::uint64_t begin() const { return m_begin; }
    std::uint64_t end() const { return m_begin + m_size; }
    bool holds(std::uint64_t offset, std::size_t count) const {
        return offset >= m_begin && offset <= end() && count <= end() - offset;
    }
    /// What the window has of these bytes. REQUIRES: offset isn't before begin().
    Span view(std::uint64_t offset, std::size_t count) const;

    /// Starts anew, empty, at a position.
    void restart(std::uint64_t offset);
    /// Drops all before a position.
    void dropBefore(std::uint64_t offset);
    /// Room for `count` bytes behind the end. What this moves is never more than what was dropped
    /// before.
    unsigned char* room(std::size_t count);
    /// Counts bytes that were put into the room.
    void added(std::size_t count) { m_size += count; }

  private:
    std::unique_ptr<unsigned char[]> m_bytes;
    std::size_t m_capacity = 0;
    std::size_t m_first = 0; ///< index of the byte at m_begin
    std::size_t m_size = 0;
    std::uint64_t m_begin = 0;
};

/// A file, read by bounded windows: small ones where the reader jumps, larger ones where it reads
/// on.
class FileSource : public ByteSource {
  public:
    /// Null, with the reason in `error`, when the path can't be opened for reading or is no regular
    /// file or block device.
    static std::unique_ptr<FileSource> open(std::string const& path, std::string& error);
    ~FileSource() override;

    Span read(std::uint64_t offset, std::size_t count) override;
    bool peek(std::uint64_t offset, std::span<unsigned char> to) override;
    /// Of the file when it was opened, or less when it turns out to have shrunk.
    std::optional<std::uint64_t> size() const override { return m_size; }

  private:
    FileSource(int descriptor, std::uint64_t size) : m_descriptor(descriptor), m_size(size) {}

    int m_descriptor;
    std::uint64_t m_size;
    std::size_t m_readAhead = 0;
    ByteWindow m_window;
};

/// A pipe or another descriptor that is read front to back.
class PipeSource : public ByteSource {
  public:
    /// How far behind the last release() it can look.
    static constexpr std::size_t lookAhead = std::size_t{4} << 20;

    /// The descriptor stays the caller's and must outlive the source.
    explicit PipeSource(int descriptor) : m_descriptor(descriptor) {}

    Span read(std::uint64_t offset, std::size_t count) override;
    bool peek(std::uint64_t offset, std::span<unsigned char> to) override;
    void release(std::uint64_t offset) override;
    bool canReach(std::uint64_t offset, std::size_t count) const override;
    std::optional<std::uint64_t> size() const override;
    bool isSeekable() const override { return false; }

  private:
    std::uint64_t reachableFrom(std::uint64_t offset) const;
    bool readMore();

    int m_descriptor;
    std::uint64_t m_released = 0;
    bool m_atEnd = false;
    ByteWindow m_window;
};

} // namespace GxfStream

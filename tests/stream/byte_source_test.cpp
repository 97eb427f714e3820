#include <gxfstream/byte_source.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <limits>
#include <random>
#include <sys/stat.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <testing/stream_sources.h>

using namespace GxfStream;
using namespace GxfTesting;

namespace {

constexpr std::uint64_t farthest = std::numeric_limits<std::uint64_t>::max();

Bytes pattern(std::size_t count) {
    Bytes bytes;
    for (std::size_t i = 0; i < count; ++i) {
        bytes.u8(static_cast<unsigned>(i * 7 + i / 251));
    }
    return bytes;
}

Bytes copyOf(Span span) {
    return Bytes().text({reinterpret_cast<char const*>(span.data()), span.size()});
}

Bytes slice(Bytes const& bytes, std::size_t from, std::size_t count) {
    return copyOf(Span(bytes.data(), bytes.size()).subspan(from, count));
}

class ByteSourceTest : public testing::TestWithParam<SourceKind> {
  protected:
    bool isPipe() const { return GetParam() == SourceKind::pipe; }
};

INSTANTIATE_TEST_SUITE_P(Sources, ByteSourceTest,
                         testing::Values(SourceKind::memory, SourceKind::file, SourceKind::pipe),
                         [](auto const& test) { return getName(test.param); });

TEST_P(ByteSourceTest, readGivesWhatIsThere) {
    Bytes const bytes = pattern(1000);
    StreamSource const source(GetParam(), bytes);
    EXPECT_EQ(copyOf(source->read(0, 16)), slice(bytes, 0, 16));
    EXPECT_EQ(copyOf(source->read(5, 100)), slice(bytes, 5, 100));
    EXPECT_EQ(copyOf(source->read(990, 10)), slice(bytes, 990, 10));
    EXPECT_EQ(copyOf(source->read(990, 11)), slice(bytes, 990, 10));
    EXPECT_EQ(copyOf(source->read(0, 5000)), bytes);
    EXPECT_TRUE(source->read(3, 0).empty());
    EXPECT_TRUE(source->read(1000, 1).empty());
    EXPECT_TRUE(source->read(1001, 1).empty());
    EXPECT_EQ(source->error(), "");
}

TEST_P(ByteSourceTest, nothingLiesFarBehindTheEnd) {
    Bytes const bytes = pattern(1000);
    StreamSource const source(GetParam(), bytes);
    std::array<unsigned char, 16> peeked{};
    for (std::uint64_t const offset : {std::uint64_t{1} << 31, std::uint64_t{1} << 32,
                                       std::uint64_t{1} << 63, farthest - 15, farthest}) {
        EXPECT_TRUE(source->read(offset, 16).empty()) << offset;
        EXPECT_FALSE(source->peek(offset, peeked)) << offset;
    }
    EXPECT_EQ(copyOf(source->read(0, 1000)), bytes);
    EXPECT_EQ(source->error(), "");
}

TEST_P(ByteSourceTest, anEmptyStreamHasNoBytes) {
    Bytes const nothing;
    StreamSource const source(GetParam(), nothing);
    std::array<unsigned char, 1> peeked{};
    EXPECT_TRUE(source->read(0, 16).empty());
    EXPECT_FALSE(source->peek(0, peeked));
    EXPECT_EQ(source->size(), 0U);
    EXPECT_EQ(source->error(), "");
}

TEST_P(ByteSourceTest, peekCopiesAllOrSaysNo) {
    Bytes const bytes = pattern(100000);
    StreamSource const source(GetParam(), bytes);
    std::array<unsigned char, 16> peeked{};
    for (std::size_t const offset : {std::size_t{0}, std::size_t{50000}, std::size_t{99984}}) {
        EXPECT_TRUE(source->peek(offset, peeked));
        EXPECT_EQ(copyOf(peeked), slice(bytes, offset, 16)) << offset;
    }
    EXPECT_FALSE(source->peek(99985, peeked));
    EXPECT_FALSE(source->peek(100000, peeked));
    EXPECT_TRUE(source->peek(10, peeked));
    EXPECT_EQ(copyOf(peeked), slice(bytes, 10, 16));
    EXPECT_EQ(source->error(), "");
}

TEST_P(ByteSourceTest, readsAndPeeksInAnyOrderGiveTheStreamsBytes) {
    Bytes const bytes = pattern(700000);
    StreamSource const source(GetParam(), bytes);
    std::mt19937 random(5);
    std::uint64_t released = 0;
    std::vector<unsigned char> peeked;
    for (int i = 0; i < 3000; ++i) {
        // Mostly a walk, at times a jump.
        std::uint64_t const most = i % 50 == 0 ? bytes.size() : released + 20000;
        std::uint64_t const offset =
            released + random() % (std::min<std::uint64_t>(most, bytes.size() + 5) - released + 1);
        std::size_t const count = random() % (i % 10 == 0 ? 300000 : 200);
        std::size_t const there =
            offset < bytes.size() ? std::min<std::size_t>(count, bytes.size() - offset) : 0;
        Bytes const expected = slice(bytes, std::min<std::size_t>(offset, bytes.size()), there);
        if (i % 3 == 0) {
            peeked.assign(count, 0);
            ASSERT_EQ(source->peek(offset, peeked), there == count);
            if (there == count) {
                ASSERT_EQ(copyOf(peeked), expected);
            }
        } else {
            ASSERT_EQ(copyOf(source->read(offset, count)), expected) << offset << ' ' << count;
        }
        if (i % 7 == 0) {
            released = std::min<std::uint64_t>(released + random() % 2500, bytes.size());
            source->release(released);
        }
    }
}

TEST_P(ByteSourceTest, releaseLeavesTheLastSpanGood) {
    Bytes const bytes = pattern(200000);
    StreamSource const source(GetParam(), bytes);
    Span const span = source->read(0, 100000);
    source->release(99990);
    EXPECT_EQ(copyOf(span), slice(bytes, 0, 100000));
}

TEST_P(ByteSourceTest, sizeIsKnownAtTheEndAtLast) {
    Bytes const bytes = pattern(100000);
    StreamSource const source(GetParam(), bytes);
    EXPECT_EQ(source->size(), isPipe() ? std::nullopt : std::optional<std::uint64_t>(100000));
    source->read(0, 100000);
    source->read(0, 100001);
    EXPECT_EQ(source->size(), 100000U);
}

TEST_P(ByteSourceTest, onlyAPipeIsReadFrontToBack) {
    Bytes const bytes = pattern(10);
    StreamSource const source(GetParam(), bytes);
    EXPECT_EQ(source->isSeekable(), !isPipe());
    source->release(5);
    EXPECT_EQ(source->canReach(4, 1), !isPipe());
    EXPECT_EQ(copyOf(source->read(4, 2)), isPipe() ? Bytes() : slice(bytes, 4, 2));
    EXPECT_TRUE(source->canReach(5, 1));
    EXPECT_EQ(copyOf(source->read(5, 2)), slice(bytes, 5, 2));
    EXPECT_EQ(source->canReach(5, PipeSource::lookAhead + 1), !isPipe());
    EXPECT_TRUE(source->canReach(5, PipeSource::lookAhead));
    EXPECT_EQ(source->canReach(6, PipeSource::lookAhead), !isPipe());
    EXPECT_EQ(source->canReach(farthest, 16), !isPipe());
}

TEST(MemorySource, readsWithoutACopy) {
    Bytes const bytes = pattern(100);
    MemorySource source(Span(bytes.data(), bytes.size()));
    EXPECT_EQ(source.read(10, 50).data(), bytes.data() + 10);
    EXPECT_EQ(source.read(10, 500).data(), bytes.data() + 10);
    EXPECT_EQ(source.largestChunk(), 100U);
}

TEST(ByteWindow, keepsAStretchOfTheStream) {
    Bytes const bytes = pattern(100);
    ByteWindow window;
    EXPECT_EQ(window.begin(), 0U);
    EXPECT_EQ(window.end(), 0U);
    EXPECT_TRUE(window.holds(0, 0));
    EXPECT_FALSE(window.holds(0, 1));

    window.restart(1000);
    std::memcpy(window.room(60), bytes.data(), 60);
    window.added(60);
    EXPECT_EQ(window.begin(), 1000U);
    EXPECT_EQ(window.end(), 1060U);
    EXPECT_TRUE(window.holds(1000, 60));
    EXPECT_TRUE(window.holds(1060, 0));
    EXPECT_FALSE(window.holds(1000, 61));
    EXPECT_FALSE(window.holds(999, 1));
    EXPECT_FALSE(window.holds(1061, 0));
    EXPECT_FALSE(window.holds(1059, std::numeric_limits<std::size_t>::max()));
    EXPECT_EQ(copyOf(window.view(1010, 5)), slice(bytes, 10, 5));
    EXPECT_EQ(copyOf(window.view(1010, 500)), slice(bytes, 10, 50));
    EXPECT_TRUE(window.view(1060, 5).empty());

    window.dropBefore(1040);
    EXPECT_EQ(window.begin(), 1040U);
    window.dropBefore(1020);
    EXPECT_EQ(window.begin(), 1040U);
    std::memcpy(window.room(40), bytes.data() + 60, 40);
    window.added(40);
    EXPECT_EQ(copyOf(window.view(1040, 60)), slice(bytes, 40, 60));

    window.dropBefore(1100);
    EXPECT_EQ(window.begin(), 1100U);
    EXPECT_EQ(window.end(), 1100U);
    window.dropBefore(5000);
    EXPECT_EQ(window.begin(), 5000U);
    EXPECT_EQ(window.end(), 5000U);
}

TEST(ByteWindow, roomBehindTheEndKeepsTheBytes) {
    Bytes const bytes = pattern(20000);
    ByteWindow window;
    std::size_t added = 0;
    for (std::size_t count = 1; added + count <= bytes.size(); count = count * 3 % 97 + 1) {
        std::memcpy(window.room(count), bytes.data() + added, count);
        window.added(count);
        added += count;
        if (added > 300) {
            window.dropBefore(added - 300 + count % 50);
        }
        ASSERT_EQ(copyOf(window.view(window.begin(), 1000)),
                  slice(bytes, window.begin(), added - window.begin()));
    }
    EXPECT_GT(added, 19000U);
}

TEST(ByteWindow, movesItsBytesSeldom) {
    ByteWindow window;
    std::memset(window.room(1000), 7, 1000);
    window.added(1000);
    unsigned moves = 0;
    unsigned char const* expected = window.view(0, 1).data();
    for (std::uint64_t i = 1; i <= 50000; ++i) {
        window.dropBefore(i);
        *window.room(1) = 7;
        window.added(1);
        ++expected;
        if (window.view(i, 1).data() != expected) {
            expected = window.view(i, 1).data();
            ++moves;
        }
    }
    EXPECT_LE(moves, 51U);
}

std::string openError(std::string const& path) {
    std::string error;
    EXPECT_EQ(FileSource::open(path, error), nullptr);
    return error;
}

TEST(FileSource, saysWhyAPathCannotBeRead) {
    TemporaryFile const file;
    EXPECT_EQ(openError(file.path() + ".not"), "No such file or directory");
    EXPECT_EQ(openError(file.path() + "/below"), "Not a directory");
    EXPECT_EQ(openError(std::filesystem::temp_directory_path()), "it is a directory");
    EXPECT_EQ(openError("/dev/null"), "it is not a regular file");
}

TEST(FileSource, doesNotWaitForTheWriterOfANamedPipe) {
    TemporaryFile const file;
    std::string const path = file.path() + ".fifo";
    ASSERT_EQ(::mkfifo(path.c_str(), 0600), 0);
    EXPECT_EQ(openError(path), "it is not a regular file");
    ::unlink(path.c_str());
}

TEST(FileSource, readsBehindFourGigabytes) {
    TemporaryFile const file;
    constexpr off_t far = off_t{5} << 32;
    ASSERT_EQ(::ftruncate(file.descriptor(), far + 10), 0);
    ASSERT_EQ(::pwrite(file.descriptor(), "abcd", 4, far), 4);
    std::string error;
    auto const source = FileSource::open(file.path(), error);
    ASSERT_NE(source, nullptr) << error;
    EXPECT_EQ(source->size(), static_cast<std::uint64_t>(far) + 10);
    EXPECT_EQ(copyOf(source->read(static_cast<std::uint64_t>(far) - 1, 20)),
              Bytes().u8(0).text("abcd").fill(6));
    std::array<unsigned char, 2> peeked{};
    EXPECT_TRUE(source->peek(static_cast<std::uint64_t>(far) + 2, peeked));
    EXPECT_EQ(copyOf(peeked), Bytes().text("cd"));
}

TEST(FileSource, aFileThatShrinksEndsWhereItEnds) {
    Bytes const bytes = pattern(100000);
    TemporaryFile const file(bytes);
    std::string error;
    auto const source = FileSource::open(file.path(), error);
    ASSERT_NE(source, nullptr) << error;
    EXPECT_EQ(copyOf(source->read(0, 10)), slice(bytes, 0, 10));
    ASSERT_EQ(::ftruncate(file.descriptor(), 50000), 0);
    EXPECT_TRUE(source->read(60000, 10).empty());
    EXPECT_EQ(source->size(), 50000U);
    EXPECT_EQ(copyOf(source->read(49990, 20)), slice(bytes, 49990, 10));
    EXPECT_EQ(source->error(), "");
}

/// A file whose descriptor is taken away from the source: every further read fails.
class BreakingFile {
  public:
    explicit BreakingFile(Bytes const& bytes) : m_file(bytes) {
        std::string error;
        // The next descriptor is always the lowest free one.
        m_descriptor = ::dup(m_file.descriptor());
        ::close(m_descriptor);
        m_source = FileSource::open(m_file.path(), error);
    }

    FileSource& source() { return *m_source; }
    void breakOff() {
        int const unreadable = ::open(m_file.path().c_str(), O_WRONLY | O_CLOEXEC);
        ::dup2(unreadable, m_descriptor);
        ::close(unreadable);
    }

  private:
    TemporaryFile m_file;
    int m_descriptor;
    std::unique_ptr<FileSource> m_source;
};

TEST(FileSource, saysWhatReadingFailedOf) {
    BreakingFile file(pattern(100000));
    file.source().read(0, 16);
    file.breakOff();
    EXPECT_EQ(file.source().error(), "");
    EXPECT_TRUE(file.source().read(50000, 16).empty());
    EXPECT_EQ(file.source().error(), "reading failed: Bad file descriptor");
}

TEST(FileSource, aPeekThatFailsSaysSoToo) {
    BreakingFile file(pattern(100000));
    file.breakOff();
    std::array<unsigned char, 16> peeked{};
    EXPECT_FALSE(file.source().peek(50000, peeked));
    EXPECT_EQ(file.source().error(), "reading failed: Bad file descriptor");
}

TEST(FileSource, whatTheWindowHoldsIsReadWithoutTheFile) {
    Bytes const bytes = pattern(100000);
    BreakingFile file(bytes);
    file.source().read(0, 5000);
    file.breakOff();
    std::array<unsigned char, 16> peeked{};
    EXPECT_EQ(copyOf(file.source().read(1000, 4000)), slice(bytes, 1000, 4000));
    EXPECT_TRUE(file.source().peek(4000, peeked));
    EXPECT_EQ(copyOf(peeked), slice(bytes, 4000, 16));
    EXPECT_EQ(file.source().error(), "");
}

/// A pipe that the test itself fills.
class OwnPipe {
  public:
    OwnPipe() {
        if (::pipe2(m_ends, O_CLOEXEC) != 0) {
            throw std::system_error(errno, std::generic_category(), "pipe2");
        }
    }
    ~OwnPipe() {
        ::close(m_ends[0]);
        close();
    }

    int descriptor() const { return m_ends[0]; }
    void write(Bytes const& bytes) {
        EXPECT_EQ(::write(m_ends[1], bytes.data(), bytes.size()),
                  static_cast<ssize_t>(bytes.size()));
    }
    void close() {
        if (m_ends[1] >= 0) {
            ::close(m_ends[1]);
            m_ends[1] = -1;
        }
    }

  private:
    int m_ends[2];
};

TEST(PipeSource, waitsForNoMoreThanWasAskedFor) {
    Bytes const bytes = pattern(200);
    OwnPipe pipe;
    PipeSource source(pipe.descriptor());
    pipe.write(slice(bytes, 0, 100));
    EXPECT_EQ(copyOf(source.read(0, 100)), slice(bytes, 0, 100));
    EXPECT_EQ(source.size(), std::nullopt);
    pipe.write(slice(bytes, 100, 100));
    EXPECT_EQ(copyOf(source.read(50, 150)), slice(bytes, 50, 150));
    pipe.close();
    EXPECT_EQ(copyOf(source.read(50, 151)), slice(bytes, 50, 150));
    EXPECT_EQ(source.size(), 200U);
}

TEST(PipeSource, whatWasReleasedIsGoneHoweverTheBytesCame) {
    Bytes const bytes = pattern(200);
    for (bool const atOnce : {true, false}) {
        OwnPipe pipe;
        PipeSource source(pipe.descriptor());
        pipe.write(atOnce ? bytes : slice(bytes, 0, 100));
        source.read(0, 100);
        source.release(90);
        if (!atOnce) {
            pipe.write(slice(bytes, 100, 100));
        }
        pipe.close();
        EXPECT_TRUE(source.read(89, 1).empty());
        // Asking for what is gone reads nothing on.
        EXPECT_TRUE(source.read(10, 1000).empty());
        EXPECT_EQ(copyOf(source.read(90, 1000)), slice(bytes, 90, 110));
        source.release(50);
        EXPECT_TRUE(source.read(89, 1).empty());
    }
}

TEST(PipeSource, looksAheadAsFarAsItSays) {
    Bytes const bytes = Bytes().fill(PipeSource::lookAhead, 7).add(pattern(1000));
    StreamSource const source(SourceKind::pipe, bytes);
    source->release(500);
    EXPECT_EQ(copyOf(source->read(500, PipeSource::lookAhead + 5)),
              slice(bytes, 500, PipeSource::lookAhead));
    EXPECT_TRUE(source->read(500 + PipeSource::lookAhead, 1).empty());
    source->release(501);
    EXPECT_EQ(copyOf(source->read(500 + PipeSource::lookAhead, 5)),
              slice(bytes, 500 + PipeSource::lookAhead, 1));
}

TEST(PipeSource, keepsNothingOfWhatASkipPassesOver) {
    Bytes const bytes = Bytes().fill(PipeSource::lookAhead * 3, 7).add(pattern(100));
    StreamSource const source(SourceKind::pipe, bytes);
    source->release(bytes.size() - 10);
    EXPECT_EQ(copyOf(source->read(bytes.size() - 10, 20)), slice(bytes, bytes.size() - 10, 10));
    EXPECT_EQ(source->size(), bytes.size());
}

TEST(PipeSource, saysWhatReadingFailedOf) {
    TemporaryFile const file(pattern(100));
    int const unreadable = ::open(file.path().c_str(), O_WRONLY | O_CLOEXEC);
    PipeSource source(unreadable);
    EXPECT_TRUE(source.read(0, 16).empty());
    EXPECT_EQ(source.error(), "reading failed: Bad file descriptor");
    EXPECT_EQ(source.size(), 0U);
    ::close(unreadable);
}

} // namespace

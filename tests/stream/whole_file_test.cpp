#include <algorithm>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <sstream>
#include <sys/stat.h>
#include <unistd.h>

#include <gxfstream/whole_file.h>
#include <testing/stream_sources.h>

namespace {

using namespace GxfStream;
using namespace GxfTesting;
namespace fs = std::filesystem;

/// An empty folder, which goes with the test.
class WholeFileTest : public testing::Test {
  protected:
    WholeFileTest() {
        std::string path = (fs::temp_directory_path() / "gxf_whole_XXXXXX").string();
        folder = ::mkdtemp(path.data());
    }
    ~WholeFileTest() override { fs::remove_all(folder); }

    std::vector<std::string> names() const {
        std::vector<std::string> result;
        for (auto const& entry : fs::directory_iterator(folder)) {
            result.push_back(entry.path().filename());
        }
        std::sort(result.begin(), result.end());
        return result;
    }

    static std::string content(fs::path const& path) {
        std::ifstream file(path, std::ios::binary);
        return {std::istreambuf_iterator<char>(file), {}};
    }

    static Span span(std::string const& text) {
        return {reinterpret_cast<unsigned char const*>(text.data()), text.size()};
    }

    fs::path folder;
    std::string error;
};

TEST_F(WholeFileTest, AppearsWhenItIsFinished) {
    auto const file = WholeFile::create(folder / "out", error);
    ASSERT_NE(file, nullptr) << error;
    EXPECT_TRUE(file->write(span("one ")));
    EXPECT_TRUE(file->write(span("two")));
    EXPECT_FALSE(fs::exists(folder / "out"));
    EXPECT_EQ(content(file->temporary()), "one two");
    EXPECT_TRUE(file->finish());
    EXPECT_EQ(content(folder / "out"), "one two");
    EXPECT_EQ(names(), std::vector<std::string>{"out"});
}

TEST_F(WholeFileTest, LeavesNothingWithoutFinish) {
    std::ofstream(folder / "out") << "old";
    {
        auto const file = WholeFile::create(folder / "out", error);
        ASSERT_NE(file, nullptr) << error;
        EXPECT_TRUE(file->write(span("new")));
    }
    EXPECT_EQ(content(folder / "out"), "old");
    EXPECT_EQ(names(), std::vector<std::string>{"out"});
}

TEST_F(WholeFileTest, ReplacesAFileAndKeepsItsMode) {
    std::ofstream(folder / "out") << "old and longer";
    fs::permissions(folder / "out", fs::perms(0604));
    auto const file = WholeFile::create(folder / "out", error);
    ASSERT_NE(file, nullptr) << error;
    EXPECT_TRUE(file->write(span("new")) && file->finish());
    EXPECT_EQ(content(folder / "out"), "new");
    EXPECT_EQ(fs::status(folder / "out").permissions(), fs::perms(0604));
}

TEST_F(WholeFileTest, WritesThroughALink) {
    fs::create_directory(folder / "deep");
    fs::create_symlink("deep/target", folder / "link");
    auto const file = WholeFile::create(folder / "link", error);
    ASSERT_NE(file, nullptr) << error;
    EXPECT_TRUE(file->write(span("new")) && file->finish());
    EXPECT_TRUE(fs::is_symlink(folder / "link"));
    EXPECT_EQ(content(folder / "deep" / "target"), "new");
}

TEST_F(WholeFileTest, TellsWhyItCannotBegin) {
    EXPECT_EQ(WholeFile::create(folder / "none" / "out", error), nullptr);
    EXPECT_EQ(error, "No such file or directory");
}

TEST_F(WholeFileTest, TellsWhyItCannotAppear) {
    auto const file = WholeFile::create(folder / "out", error);
    ASSERT_NE(file, nullptr) << error;
    fs::create_directory(folder / "out");
    EXPECT_FALSE(file->finish());
    EXPECT_EQ(file->error(), "Is a directory");
}

TEST_F(WholeFileTest, TellsThatThereIsNoRoom) {
    auto const file = WholeFile::create(folder / "out", error);
    ASSERT_NE(file, nullptr) << error;
    int const full = ::open("/dev/full", O_WRONLY | O_CLOEXEC);
    ASSERT_GE(full, 0);
    ASSERT_GE(::dup2(full, file->descriptor()), 0);
    ::close(full);
    EXPECT_FALSE(file->write(span("new")));
    EXPECT_EQ(file->error(), "No space left on device");
}

TEST(WriteAll, WritesAtAPosition) {
    TemporaryFile const file(Bytes().text("abcdef"));
    Bytes const bytes = Bytes().text("XY");
    EXPECT_TRUE(writeAll(file.descriptor(), {bytes.data(), bytes.size()}, 2));
    char read[6];
    EXPECT_EQ(::pread(file.descriptor(), read, 6, 0), 6);
    EXPECT_EQ(std::string(read, 6), "abXYef");
}

} // namespace

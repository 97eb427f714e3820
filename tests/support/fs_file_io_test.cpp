#include <cerrno>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <thread>

#include <gtest/gtest.h>
#include <unistd.h>

#include <gxftypes/packet/gxf.h>

using namespace GxfTypes;

namespace {

/// A path for one test; what it leaves is removed.
class TemporaryPath {
  public:
    TemporaryPath()
        : m_path(std::filesystem::path(testing::TempDir()) /
                 ("fs_file_io_test_" + std::to_string(::getpid()))) {
        std::filesystem::remove_all(m_path);
    }
    TemporaryPath(TemporaryPath const&) = delete;
    TemporaryPath& operator=(TemporaryPath const&) = delete;
    ~TemporaryPath() { std::filesystem::remove_all(m_path); }

    char const* get() const { return m_path.c_str(); }
    void put(std::string const& content) const { std::ofstream(m_path) << content; }
    std::string content() const {
        std::ifstream file(m_path, std::ios::binary);
        return {std::istreambuf_iterator<char>(file), {}};
    }

  private:
    std::filesystem::path m_path;
};

std::ptrdiff_t openDescriptors() {
    std::filesystem::directory_iterator const all("/proc/self/fd");
    return std::distance(begin(all), end(all));
}

} // namespace

TEST(FsFileIO, WritesANewFile) {
    TemporaryPath const path;
    FsFileIO file("test", path.get(), 0);
    EXPECT_FALSE(file.exists());
    ASSERT_TRUE(file.open());
    EXPECT_TRUE(file.exists());
    EXPECT_EQ(file.write("abc\0def", 7), 7);
    EXPECT_EQ(file.write("", 0), 0);
    EXPECT_EQ(file.write("gh", 2), 2);
    EXPECT_TRUE(file.close());
    EXPECT_EQ(path.content(), std::string("abc\0defgh", 9));
}

TEST(FsFileIO, ReplacesWhatAFileHeld) {
    TemporaryPath const path;
    path.put("a longer content");
    FsFileIO file("test", path.get(), 0);
    EXPECT_TRUE(file.exists());
    ASSERT_TRUE(file.open());
    EXPECT_EQ(file.write("new", 3), 3);
    EXPECT_TRUE(file.close());
    EXPECT_EQ(path.content(), "new");
}

TEST(FsFileIO, Removes) {
    TemporaryPath const path;
    path.put("content");
    FsFileIO file("test", path.get(), 0);
    EXPECT_TRUE(file.remove());
    EXPECT_FALSE(file.exists());
    EXPECT_FALSE(file.remove());
    EXPECT_FALSE(std::filesystem::exists(path.get()));
}

TEST(FsFileIO, DoesNotRemoveAFolder) {
    TemporaryPath const path;
    std::filesystem::create_directory(path.get());
    FsFileIO file("test", path.get(), 0);
    EXPECT_TRUE(file.exists());
    EXPECT_FALSE(file.remove());
    EXPECT_FALSE(file.open());
    EXPECT_TRUE(std::filesystem::is_directory(path.get()));
}

TEST(FsFileIO, DoesNotOpenBelowAFolderThatIsNotThere) {
    TemporaryPath const path;
    FsFileIO file("test", (std::string(path.get()) + "/file").c_str(), 0);
    EXPECT_FALSE(file.exists());
    EXPECT_FALSE(file.open());
    EXPECT_EQ(file.write("abc", 3), 0);
    EXPECT_FALSE(file.close());
}

TEST(FsFileIO, WritesNothingToAFullDevice) {
    FsFileIO file("test", "/dev/full", 0);
    ASSERT_TRUE(file.open());
    EXPECT_EQ(file.write("abc", 3), 0);
}

TEST(FsFileIO, ClosesOnceAndOnDestruction) {
    TemporaryPath const path;
    std::ptrdiff_t const before = openDescriptors();
    {
        FsFileIO file("test", path.get(), 0);
        ASSERT_TRUE(file.open());
        ASSERT_TRUE(file.open());
        EXPECT_EQ(openDescriptors(), before + 1);
        EXPECT_TRUE(file.close());
        EXPECT_FALSE(file.close());
        EXPECT_EQ(openDescriptors(), before);
        ASSERT_TRUE(file.open());
    }
    EXPECT_EQ(openDescriptors(), before);
}

TEST(BasicFileIO, NamesErrorNumbers) {
    EXPECT_STREQ(BasicFileIO::getErrorName(0), "Success");
    EXPECT_STREQ(BasicFileIO::getErrorName(ENOENT), "No such file or directory");
    EXPECT_STREQ(FsFileIO::getErrorName(EINVAL), "Invalid argument");
    EXPECT_STREQ(BasicFileIO::getErrorName(99999), "Unknown error 99999");
}

TEST(BasicFileIO, EachThreadHasItsOwnName) {
    char const* const name = BasicFileIO::getErrorName(EINVAL);
    std::thread([] {
        EXPECT_STREQ(BasicFileIO::getErrorName(E2BIG), "Argument list too long");
    }).join();
    EXPECT_STREQ(name, "Invalid argument");
}

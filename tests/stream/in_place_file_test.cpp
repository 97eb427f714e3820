#include <chrono>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <gmock/gmock.h>
#include <iterator>
#include <sys/file.h>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>

#include <gxfstream/in_place_file.h>
#include <testing/bytes.h>

namespace {

using namespace GxfStream;
using namespace GxfTesting;
namespace fs = std::filesystem;

std::vector<unsigned char> raw(std::string const& text) { return {text.begin(), text.end()}; }

std::string text(std::vector<unsigned char> const& bytes) { return {bytes.begin(), bytes.end()}; }

/// The undo file as its layout has it.
struct UndoFile {
    std::uint64_t size;
    std::vector<Patch> patches;

    Bytes bytes() const {
        auto const u64 = [](std::uint64_t value) {
            return Bytes()
                .u32Lsbf(static_cast<std::uint32_t>(value))
                .u32Lsbf(static_cast<std::uint32_t>(value >> 32));
        };
        Bytes head = Bytes().text("GXFUNDO1").add(u64(size));
        head.u32Lsbf(static_cast<std::uint32_t>(patches.size()));
        Bytes body;
        for (Patch const& patch : patches) {
            body.add(u64(patch.offset))
                .u32Lsbf(static_cast<std::uint32_t>(patch.before.size()))
                .text(text(patch.before))
                .text(text(patch.after));
        }
        std::uint64_t check = 14695981039346656037U; // FNV-1a, 64 bits
        Bytes const checked = Bytes(head).add(body);
        for (unsigned char const byte : checked.vector()) {
            check = (check ^ byte) * 1099511628211U;
        }
        return head.add(u64(check)).add(body);
    }
};

class InPlaceFileTest : public testing::Test {
  protected:
    InPlaceFileTest() {
        std::string name = (fs::temp_directory_path() / "gxf_in_place_XXXXXX").string();
        folder = fs::canonical(::mkdtemp(name.data()));
        path = folder / "clip";
        undoPath = folder / "clip.gxf-undo";
        write(path, "0123456789");
    }
    ~InPlaceFileTest() override { fs::remove_all(folder); }

    static void write(std::string const& to, std::string const& bytes) {
        std::ofstream(to, std::ios::binary | std::ios::trunc) << bytes;
    }
    static void write(std::string const& to, Bytes const& bytes) {
        write(to, std::string(reinterpret_cast<char const*>(bytes.data()), bytes.size()));
    }
    static std::string content(std::string const& of) {
        std::ifstream file(of, std::ios::binary);
        return {std::istreambuf_iterator<char>(file), {}};
    }

    fs::path folder;
    std::string path;
    std::string undoPath;
    std::string error;
    std::vector<Patch> const patches = {{1, raw("12"), raw("AB")}, {7, raw("789"), raw("CDE")}};
};

TEST_F(InPlaceFileTest, ReplacesTheBytesAndLeavesNothingElse) {
    auto const file = InPlaceFile::open(path, error);
    ASSERT_NE(file, nullptr) << error;
    EXPECT_FALSE(file->hasUndone());
    EXPECT_TRUE(file->apply(patches)) << file->error();
    EXPECT_EQ(content(path), "0AB3456CDE");
    EXPECT_FALSE(fs::exists(undoPath));
}

TEST_F(InPlaceFileTest, TouchesNothingWhenTheFileIsAnotherOne) {
    for (Patch const& other : {Patch{1, raw("xx"), raw("AB")}, Patch{9, raw("9x"), raw("AB")},
                               Patch{1, raw("12"), raw("ABC")}}) {
        auto const file = InPlaceFile::open(path, error);
        ASSERT_NE(file, nullptr) << error;
        EXPECT_FALSE(file->apply({patches[0], other}));
        EXPECT_EQ(file->error(), "somebody else has changed it meanwhile");
        EXPECT_EQ(content(path), "0123456789");
        EXPECT_FALSE(fs::exists(undoPath));
    }
}

/// However far the change got.
TEST_F(InPlaceFileTest, AnInterruptedChangeIsUndone) {
    for (std::string const now :
         {"0123456789", "0A23456789", "0AB3456789", "0AB34567D9", "0123456CDE", "0AB3456CDE"}) {
        write(path, now);
        write(undoPath, UndoFile{10, patches}.bytes());
        EXPECT_EQ(undoInterrupted(path, error), Undone::done) << error;
        EXPECT_EQ(content(path), "0123456789") << now;
        EXPECT_FALSE(fs::exists(undoPath));
        EXPECT_EQ(undoInterrupted(path, error), Undone::nothing);
    }
}

TEST_F(InPlaceFileTest, OpeningUndoesToo) {
    write(path, "0AB3456789");
    write(undoPath, UndoFile{10, patches}.bytes());
    auto const file = InPlaceFile::open(path, error);
    ASSERT_NE(file, nullptr) << error;
    EXPECT_TRUE(file->hasUndone());
    EXPECT_EQ(content(path), "0123456789");
    EXPECT_TRUE(file->apply(patches));
    EXPECT_EQ(content(path), "0AB3456CDE");
}

/// It was being written when the crash came: the file wasn't touched yet.
TEST_F(InPlaceFileTest, AnUndoFileThatIsNotWholeGoes) {
    Bytes const whole = UndoFile{10, patches}.bytes();
    std::string const text(reinterpret_cast<char const*>(whole.data()), whole.size());
    for (std::size_t size = 0; size < text.size(); ++size) {
        write(undoPath, text.substr(0, size));
        EXPECT_EQ(undoInterrupted(path, error), Undone::nothing) << size << error;
        EXPECT_FALSE(fs::exists(undoPath)) << size;
        EXPECT_EQ(content(path), "0123456789") << size;
    }
    // As a crash of the system may leave it: with its size and without its bytes.
    write(undoPath, std::string(whole.size(), '\0'));
    EXPECT_EQ(undoInterrupted(path, error), Undone::nothing) << error;
    EXPECT_FALSE(fs::exists(undoPath));
    // A byte that isn't right.
    for (std::size_t i = 8; i < text.size(); ++i) {
        std::string broken = text;
        broken[i] = static_cast<char>(broken[i] ^ 1);
        write(undoPath, broken);
        EXPECT_EQ(undoInterrupted(path, error), Undone::nothing) << i << error;
        EXPECT_EQ(content(path), "0123456789") << i;
    }
}

TEST_F(InPlaceFileTest, AnotherFilesOldBytesAreNotPutBack) {
    for (std::string const now : {"0xB3456789", "0AB345678x", "0AB34567890", "0AB345678"}) {
        write(path, now);
        write(undoPath, UndoFile{10, patches}.bytes());
        EXPECT_EQ(undoInterrupted(path, error), Undone::failed);
        EXPECT_EQ(error, undoPath + " keeps old bytes of another file; move it away, or back to "
                                    "the file that it belongs to");
        EXPECT_EQ(InPlaceFile::open(path, error), nullptr);
        EXPECT_EQ(content(path), now);
        EXPECT_TRUE(fs::exists(undoPath));
    }
}

TEST_F(InPlaceFileTest, AForeignFileOfThatNameStays) {
    write(undoPath, std::string("GXFUNDO2 or whatever"));
    EXPECT_EQ(undoInterrupted(path, error), Undone::failed);
    EXPECT_EQ(error, undoPath + " is in the way of changing it; move it away");
    EXPECT_EQ(content(undoPath), "GXFUNDO2 or whatever");
    fs::remove(undoPath);
    fs::create_directory(undoPath);
    EXPECT_EQ(undoInterrupted(path, error), Undone::failed);
    EXPECT_TRUE(fs::is_directory(undoPath));
}

TEST_F(InPlaceFileTest, AForeignThingOfThatNameIsNotWaitedFor) {
    ASSERT_EQ(::mkfifo(undoPath.c_str(), 0600), 0);
    EXPECT_EQ(undoInterrupted(path, error), Undone::failed);
    EXPECT_EQ(error, undoPath + " is in the way of changing it; move it away");
    fs::remove(undoPath);
    fs::create_symlink(folder / "elsewhere", undoPath);
    EXPECT_EQ(undoInterrupted(path, error), Undone::failed);
    EXPECT_TRUE(fs::is_symlink(undoPath));
    fs::remove(undoPath);
    // Too large for a file of ten bytes, whatever it begins with.
    write(undoPath, UndoFile{10, patches}.bytes());
    fs::resize_file(undoPath, std::uintmax_t{1} << 40);
    EXPECT_EQ(undoInterrupted(path, error), Undone::failed);
    EXPECT_TRUE(fs::exists(undoPath));
}

/// Else a stranger could have their bytes written by whoever looks at the file.
TEST_F(InPlaceFileTest, AStrangersUndoFileIsNotFollowed) {
    constexpr uid_t stranger = 54321;
    constexpr uid_t owner = 54322;
    bool const isRoot = ::geteuid() == 0;
    write(path, "0AB3456789");
    write(undoPath, UndoFile{10, patches}.bytes());
    if (isRoot) {
        ASSERT_EQ(::chown(undoPath.c_str(), stranger, stranger), 0);
        EXPECT_EQ(undoInterrupted(path, error), Undone::failed);
        EXPECT_EQ(content(path), "0AB3456789");
        ASSERT_EQ(::chown(path.c_str(), owner, owner), 0);
        ASSERT_EQ(::chown(undoPath.c_str(), owner, owner), 0);
    }
    EXPECT_EQ(undoInterrupted(path, error), Undone::done) << error;
    EXPECT_EQ(content(path), "0123456789");
}

TEST_F(InPlaceFileTest, ALinkLeadsToTheFile) {
    fs::create_directory(folder / "elsewhere");
    std::string const link = folder / "elsewhere" / "link";
    fs::create_symlink("../clip", link);
    EXPECT_EQ(undoFileOf(link), undoPath);
    write(path, "0AB3456789");
    write(undoPath, UndoFile{10, patches}.bytes());
    auto const file = InPlaceFile::open(link, error);
    ASSERT_NE(file, nullptr) << error;
    EXPECT_TRUE(file->hasUndone());
    EXPECT_TRUE(file->apply(patches));
    EXPECT_EQ(content(path), "0AB3456CDE");
    EXPECT_TRUE(fs::is_symlink(link));
}

TEST_F(InPlaceFileTest, WaitsForSomebodyElse) {
    int const other = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
    ASSERT_GE(other, 0);
    ASSERT_EQ(::flock(other, LOCK_EX), 0);
    std::thread releasing([other] {
        std::this_thread::sleep_for(std::chrono::milliseconds(120));
        ::flock(other, LOCK_UN);
    });
    EXPECT_NE(InPlaceFile::open(path, error), nullptr) << error;
    releasing.join();
    ::close(other);
}

/// Whoever waited for a file that was replaced meanwhile gets the new one.
TEST_F(InPlaceFileTest, OpensWhatThePathNamesNow) {
    int const other = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
    ASSERT_GE(other, 0);
    ASSERT_EQ(::flock(other, LOCK_EX), 0);
    std::thread replacing([this, other] {
        std::this_thread::sleep_for(std::chrono::milliseconds(120));
        write(folder / "new", std::string("0123456789 and more"));
        fs::rename(folder / "new", path);
        ::flock(other, LOCK_UN);
    });
    auto const file = InPlaceFile::open(path, error);
    replacing.join();
    ASSERT_NE(file, nullptr) << error;
    EXPECT_TRUE(file->apply(patches));
    EXPECT_EQ(content(path), "0AB3456CDE and more");
    ::close(other);
}

/// The change would go into a file that nobody finds any more.
TEST_F(InPlaceFileTest, AFileThatIsReplacedIsNotChanged) {
    auto const file = InPlaceFile::open(path, error);
    ASSERT_NE(file, nullptr) << error;
    write(folder / "new", std::string("0123456789"));
    fs::rename(folder / "new", path);
    EXPECT_FALSE(file->apply(patches));
    EXPECT_EQ(file->error(), "another file has taken its place meanwhile");
    EXPECT_EQ(content(path), "0123456789");
    EXPECT_FALSE(fs::exists(undoPath));
}

TEST_F(InPlaceFileTest, WhoeverCopiesItIsWaitedFor) {
    {
        auto const unchanged = std::make_unique<UnchangedFile>(path);
        UnchangedFile const another(path);
        int const descriptor = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
        EXPECT_NE(::flock(descriptor, LOCK_EX | LOCK_NB), 0);
        ::close(descriptor);
    }
    auto unchanged = std::make_unique<UnchangedFile>(path);
    std::thread releasing([&unchanged] {
        std::this_thread::sleep_for(std::chrono::milliseconds(120));
        unchanged.reset();
    });
    EXPECT_NE(InPlaceFile::open(path, error), nullptr) << error;
    releasing.join();
}

TEST_F(InPlaceFileTest, OnlyOneAtATime) {
    std::vector<std::thread> threads;
    for (int i = 0; i < 8; ++i) {
        threads.emplace_back([this] {
            std::string why;
            auto const file = InPlaceFile::open(path, why);
            ASSERT_NE(file, nullptr) << why;
            std::string const now = content(path);
            std::string next = now;
            next[0] = static_cast<char>(next[0] + 1);
            EXPECT_TRUE(file->apply({{0, raw(now.substr(0, 1)), raw(next.substr(0, 1))}}));
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(content(path), "8123456789");
}

TEST_F(InPlaceFileTest, WhatIsNoRegularFileIsRefused) {
    EXPECT_EQ(InPlaceFile::open(folder / "none", error), nullptr);
    EXPECT_EQ(error, "No such file or directory");
    EXPECT_EQ(InPlaceFile::open(folder, error), nullptr);
    EXPECT_EQ(error, "Is a directory");
    EXPECT_EQ(InPlaceFile::open("/dev/null", error), nullptr);
    EXPECT_EQ(error, "it is not a regular file");
    EXPECT_EQ(undoInterrupted(folder / "none", error), Undone::nothing);
}

TEST_F(InPlaceFileTest, TheUndoFileNeedsAPlace) {
    fs::create_directory(undoPath + "x");
    auto const file = InPlaceFile::open(path, error);
    ASSERT_NE(file, nullptr) << error;
    write(undoPath, std::string("came meanwhile"));
    EXPECT_FALSE(file->apply(patches));
    EXPECT_EQ(file->error(), "its old bytes can't be kept in " + undoPath + ", File exists");
    EXPECT_EQ(content(path), "0123456789");
    EXPECT_EQ(content(undoPath), "came meanwhile");
}

} // namespace

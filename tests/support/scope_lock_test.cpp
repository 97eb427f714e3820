#include <gtest/gtest.h>

#include <cerrno>
#include <chrono>
#include <string>
#include <thread>
#include <type_traits>
#include <vector>

#include <gxftypes/packet/gxf.h>

using namespace GxfTypes;

namespace {

struct RecordingMutex {
    void lock() { calls += 'l'; }
    void unlock() {
        calls += 'u';
        errno = EPERM;
    }
    std::string calls;
};

TEST(ScopeLock, LocksForItsScope) {
    RecordingMutex mutex;
    {
        ScopeLock<RecordingMutex> const lock(mutex);
        EXPECT_EQ(mutex.calls, "l");
    }
    EXPECT_EQ(mutex.calls, "lu");
}

TEST(ScopeLock, LocksAndUnlocksOnlyWhenTheStateRequires) {
    RecordingMutex mutex;
    {
        ScopeLock<RecordingMutex> lock(mutex);
        lock.lock();
        EXPECT_EQ(mutex.calls, "l");
        lock.unlock();
        lock.unlock();
        EXPECT_EQ(mutex.calls, "lu");
        lock.lock();
        lock.lock();
        EXPECT_EQ(mutex.calls, "lul");
    }
    EXPECT_EQ(mutex.calls, "lulu");
}

TEST(ScopeLock, LeavesAnUnlockedMutexAlone) {
    RecordingMutex mutex;
    {
        ScopeLock<RecordingMutex> lock(mutex);
        lock.unlock();
    }
    EXPECT_EQ(mutex.calls, "lu");
}

TEST(ScopeLock, KeepsErrnoAcrossItsEnd) {
    RecordingMutex mutex;
    {
        ScopeLock<RecordingMutex> const lock(mutex);
        errno = ENOENT;
    }
    EXPECT_EQ(errno, ENOENT);
}

TEST(ScopeLock, IsNeverCopied) {
    EXPECT_FALSE(std::is_copy_constructible_v<ScopeLock<JMutex>>);
    EXPECT_FALSE(std::is_copy_assignable_v<ScopeLock<JMutex>>);
}

TEST(ScopeLock, IsKnownUnderItsNamespace) {
    EXPECT_TRUE((std::is_same_v<ScopeLock<JMutex>, ZorvanPosix::ScopeLock<ZorvanPosix::JMutex>>));
}

TEST(JMutex, LetsOneThreadInAtATime) {
    constexpr int rounds = 20000;
    JMutex mutex;
    int unguarded = 0;
    auto const count = [&] {
        for (int i = 0; i < rounds; ++i) {
            ScopeLock<JMutex> const lock(mutex);
            ++unguarded;
        }
    };
    std::thread other(count);
    count();
    other.join();
    EXPECT_EQ(unguarded, 2 * rounds);
}

TEST(JMutex, LocksAndUnlocksByHand) {
    JMutex mutex;
    mutex.lock();
    bool entered = false;
    std::thread other([&] {
        ScopeLock<JMutex> const lock(mutex);
        entered = true;
    });
    std::this_thread::yield();
    EXPECT_FALSE(entered);
    mutex.unlock();
    other.join();
    EXPECT_TRUE(entered);
}

TEST(JMutex, WakesAllThatWait) {
    constexpr int threads = 4;
    constexpr int rounds = 200;
    JMutex mutex;
    int unguarded = 0;
    std::vector<std::thread> waiting;
    mutex.lock();
    for (int i = 0; i < threads; ++i) {
        waiting.emplace_back([&] {
            for (int round = 0; round < rounds; ++round) {
                ScopeLock<JMutex> const lock(mutex);
                int const before = unguarded;
                std::this_thread::yield();
                unguarded = before + 1;
            }
        });
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    mutex.unlock();
    for (std::thread& thread : waiting) {
        thread.join();
    }
    EXPECT_EQ(unguarded, threads * rounds);
}

TEST(JMutex, LeavesErrnoAlone) {
    JMutex mutex;
    errno = ENOENT;
    {
        ScopeLock<JMutex> const lock(mutex);
        EXPECT_EQ(errno, ENOENT);
    }
    EXPECT_EQ(errno, ENOENT);

    mutex.lock();
    std::thread other([&] { ScopeLock<JMutex> const lock(mutex); });
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    errno = ENOENT;
    mutex.unlock();
    EXPECT_EQ(errno, ENOENT);
    other.join();
}

} // namespace

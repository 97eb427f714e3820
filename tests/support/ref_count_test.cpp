#include <gtest/gtest.h>

#include <atomic>
#include <thread>
#include <type_traits>

#include <gxftypes/packet/gxf.h>

using namespace GxfTypes;

namespace {

class Counted : public RefCount {
  public:
    explicit Counted(std::atomic<int>& destroyed) : m_destroyed(destroyed) {}

  protected:
    ~Counted() override { ++m_destroyed; }

  private:
    std::atomic<int>& m_destroyed;
};

TEST(RefCount, CountsAndEndsWithTheLastReference) {
    std::atomic<int> destroyed = 0;
    auto* const object = new Counted(destroyed);
    EXPECT_EQ(object->preserve(), 1);
    EXPECT_EQ(object->preserve(), 2);
    EXPECT_EQ(object->release(), 1);
    EXPECT_EQ(destroyed, 0);
    EXPECT_EQ(object->release(), 0);
    EXPECT_EQ(destroyed, 1);
}

TEST(RefCount, DeletesThroughTheBase) {
    std::atomic<int> destroyed = 0;
    RefCount* const object = new Counted(destroyed);
    object->preserve();
    object->release();
    EXPECT_EQ(destroyed, 1);
}

TEST(RefCount, IsNeverCopied) {
    EXPECT_FALSE(std::is_copy_constructible_v<Counted>);
    EXPECT_FALSE(std::is_copy_assignable_v<Counted>);
}

TEST(RefCount, EndsOnceBetweenTwoThreads) {
    for (int round = 0; round < 200; ++round) {
        std::atomic<int> destroyed = 0;
        auto* const object = new Counted(destroyed);
        object->preserve();
        object->preserve();
        auto const use = [object] {
            for (int i = 0; i < 50; ++i) {
                object->preserve();
                object->release();
            }
            object->release();
        };
        std::thread other(use);
        use();
        other.join();
        ASSERT_EQ(destroyed, 1);
    }
}

} // namespace

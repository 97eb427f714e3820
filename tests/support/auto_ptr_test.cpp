#include <gtest/gtest.h>

#include <gxftypes/packet/gxf.h>
#include <testing/allocation_count.h>

using namespace GxfTypes;
using namespace GxfTesting;

namespace {

struct Item {
    explicit Item(int& live, int number = 0) : m_live(live), value(number) { ++m_live; }
    Item(Item const&) = delete;
    Item& operator=(Item const&) = delete;
    ~Item() { --m_live; }

    int& m_live;
    int value;
};

TEST(AutoPtr, IsEmptyByDefault) {
    AutoPtr<Item> const pointer;
    EXPECT_EQ(pointer.get(), nullptr);
    EXPECT_EQ(pointer.forget(), nullptr);
}

TEST(AutoPtr, GivesAccessAndDeletesAtTheEnd) {
    int live = 0;
    {
        auto* const item = new Item(live, 5);
        AutoPtr<Item> const pointer(item);
        EXPECT_EQ(pointer.get(), item);
        EXPECT_EQ(pointer->value, 5);
        EXPECT_EQ(&*pointer, item);
        EXPECT_EQ(live, 1);
    }
    EXPECT_EQ(live, 0);
}

TEST(AutoPtr, ACopyMovesTheOwnershipFromAConstSource) {
    int live = 0;
    auto* const item = new Item(live);
    AutoPtr<Item> const source(item);
    AutoPtr<Item> const copy(source);
    EXPECT_EQ(source.get(), nullptr);
    EXPECT_EQ(copy.get(), item);
    EXPECT_EQ(live, 1);
}

TEST(AutoPtr, AssignmentDeletesTheHeldOneAndTakesTheOther) {
    int live = 0;
    auto* const second = new Item(live, 2);
    AutoPtr<Item> target(new Item(live, 1));
    AutoPtr<Item> const source(second);
    EXPECT_EQ(&(target = source), &target);
    EXPECT_EQ(target.get(), second);
    EXPECT_EQ(source.get(), nullptr);
    EXPECT_EQ(live, 1);
}

TEST(AutoPtr, AssignmentOfAnEmptyOneDeletes) {
    int live = 0;
    AutoPtr<Item> target(new Item(live));
    target = AutoPtr<Item>();
    EXPECT_EQ(target.get(), nullptr);
    EXPECT_EQ(live, 0);
}

TEST(AutoPtr, AssignedToItselfKeepsItsObject) {
    int live = 0;
    auto* const item = new Item(live);
    AutoPtr<Item> pointer(item);
    AutoPtr<Item> const& same = pointer;
    pointer = same;
    EXPECT_EQ(pointer.get(), item);
    EXPECT_EQ(live, 1);
}

TEST(AutoPtr, OfTwoOwnersOfOneObjectTheOtherIsCleared) {
    int live = 0;
    {
        auto* const item = new Item(live);
        AutoPtr<Item> first(item);
        AutoPtr<Item> const second(item);
        first = second;
        EXPECT_EQ(first.get(), item);
        EXPECT_EQ(second.get(), nullptr);
        EXPECT_EQ(live, 1);
    }
    EXPECT_EQ(live, 0);
}

TEST(AutoPtr, TakesAPlainPointer) {
    int live = 0;
    AutoPtr<Item> pointer(new Item(live, 1));
    auto* const second = new Item(live, 2);
    EXPECT_EQ(&(pointer = second), &pointer);
    EXPECT_EQ(pointer.get(), second);
    EXPECT_EQ(live, 1);
    pointer = second;
    EXPECT_EQ(pointer.get(), second);
    EXPECT_EQ(live, 1);
    pointer = static_cast<Item*>(nullptr);
    EXPECT_EQ(pointer.get(), nullptr);
    EXPECT_EQ(live, 0);
}

TEST(AutoPtr, ForgetsThroughAConstReference) {
    int live = 0;
    auto* const item = new Item(live);
    {
        AutoPtr<Item> const pointer(item);
        EXPECT_EQ(pointer.forget(), item);
        EXPECT_EQ(pointer.get(), nullptr);
    }
    EXPECT_EQ(live, 1);
    delete item;
}

TEST(AutoPtr, GivesTextsBackAsArrays) {
    auto const arrays = liveArrays();
    auto const objects = liveObjects();
    {
        AutoPtr<char> text(new char[8]);
        text = new char[3];
        AutoPtr<char> const other(text);
        EXPECT_EQ(liveArrays(), arrays + 1);
    }
    EXPECT_EQ(liveArrays(), arrays);
    EXPECT_EQ(liveObjects(), objects);
}

} // namespace

#include <gtest/gtest.h>

#include <gxftypes/packet/gxf.h>
#include <testing/allocation_count.h>

using namespace GxfTypes;
using namespace GxfTesting;

namespace {

int live = 0;

struct Item {
    Item() { ++live; }
    Item(Item const&) = delete;
    Item& operator=(Item const&) = delete;
    ~Item() { --live; }
    int value = 0;
};

TEST(AutoArrayPtr, IsEmptyByDefault) {
    AutoArrayPtr<int> const array;
    EXPECT_EQ(array.get(), nullptr);
    EXPECT_EQ(array.forget(), nullptr);
}

TEST(AutoArrayPtr, GivesAccessAndDeletesEveryElement) {
    auto const arrays = liveArrays();
    {
        auto* const items = new Item[3];
        AutoArrayPtr<Item> const array(items);
        array[2].value = 7;
        EXPECT_EQ(array.get(), items);
        EXPECT_EQ(&*array, items);
        EXPECT_EQ(items[2].value, 7);
        EXPECT_EQ(live, 3);
    }
    EXPECT_EQ(live, 0);
    EXPECT_EQ(liveArrays(), arrays);
}

TEST(AutoArrayPtr, ACopyMovesTheOwnershipFromAConstSource) {
    auto* const items = new Item[2];
    AutoArrayPtr<Item> const source(items);
    AutoArrayPtr<Item> const copy(source);
    EXPECT_EQ(source.get(), nullptr);
    EXPECT_EQ(copy.get(), items);
    EXPECT_EQ(live, 2);
}

TEST(AutoArrayPtr, AssignmentDeletesTheHeldOneAndTakesTheOther) {
    auto* const second = new Item[1];
    AutoArrayPtr<Item> target(new Item[2]);
    AutoArrayPtr<Item> const source(second);
    EXPECT_EQ(&(target = source), &target);
    EXPECT_EQ(target.get(), second);
    EXPECT_EQ(source.get(), nullptr);
    EXPECT_EQ(live, 1);
}

TEST(AutoArrayPtr, AssignedToItselfKeepsItsArray) {
    auto* const items = new Item[2];
    AutoArrayPtr<Item> array(items);
    AutoArrayPtr<Item> const& same = array;
    array = same;
    EXPECT_EQ(array.get(), items);
    EXPECT_EQ(live, 2);
}

TEST(AutoArrayPtr, OfTwoOwnersOfOneArrayTheOtherIsCleared) {
    {
        auto* const items = new Item[2];
        AutoArrayPtr<Item> first(items);
        AutoArrayPtr<Item> const second(items);
        first = second;
        EXPECT_EQ(first.get(), items);
        EXPECT_EQ(second.get(), nullptr);
        EXPECT_EQ(live, 2);
    }
    EXPECT_EQ(live, 0);
}

TEST(AutoArrayPtr, TakesAPlainPointer) {
    AutoArrayPtr<Item> array(new Item[2]);
    auto* const second = new Item[1];
    EXPECT_EQ(&(array = second), &array);
    EXPECT_EQ(live, 1);
    array = second;
    EXPECT_EQ(array.get(), second);
    EXPECT_EQ(live, 1);
    array = static_cast<Item*>(nullptr);
    EXPECT_EQ(array.get(), nullptr);
    EXPECT_EQ(live, 0);
}

TEST(AutoArrayPtr, ForgetsThroughAConstReference) {
    auto* const items = new Item[2];
    {
        AutoArrayPtr<Item> const array(items);
        EXPECT_EQ(array.forget(), items);
        EXPECT_EQ(array.get(), nullptr);
    }
    EXPECT_EQ(live, 2);
    delete[] items;
}

} // namespace

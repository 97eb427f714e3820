#include <gtest/gtest.h>

#include <string>
#include <utility>

#include <gxftypes/packet/gxf.h>

using namespace GxfTypes;

namespace {

std::string calls;

struct Counted {
    explicit Counted(char letter) : name(letter) { calls.clear(); }

    void preserve() {
        ++count;
        (calls += '+') += name;
    }
    void release() {
        --count;
        (calls += '-') += name;
    }

    char name;
    int count = 0;
};

TEST(AutoRefPtr, IsEmptyByDefaultAndFromNull) {
    AutoRefPtr<Counted> const empty;
    AutoRefPtr<Counted> const null(nullptr);
    AutoRefPtr<Counted> const handedOver(nullptr, preReferenced);
    AutoRefPtr<Counted> const copy(empty);
    EXPECT_EQ(empty.get(), nullptr);
    EXPECT_EQ(null.get(), nullptr);
    EXPECT_EQ(handedOver.get(), nullptr);
    EXPECT_EQ(copy.get(), nullptr);
}

TEST(AutoRefPtr, TakesAReferenceAndDropsIt) {
    Counted object('a');
    {
        AutoRefPtr<Counted> const pointer(&object);
        EXPECT_EQ(pointer.get(), &object);
        EXPECT_EQ(&*pointer, &object);
        EXPECT_EQ(pointer->count, 1);
    }
    EXPECT_EQ(calls, "+a-a");
}

TEST(AutoRefPtr, TakesOverAReferenceThatExists) {
    Counted object('a');
    {
        AutoRefPtr<Counted> const pointer(&object, preReferenced);
        EXPECT_EQ(calls, "");
        EXPECT_EQ(pointer.get(), &object);
    }
    EXPECT_EQ(calls, "-a");
}

TEST(AutoRefPtr, ACopySharesTheObject) {
    Counted object('a');
    {
        AutoRefPtr<Counted> const first(&object);
        AutoRefPtr<Counted> const second(first);
        EXPECT_EQ(first.get(), second.get());
        EXPECT_EQ(object.count, 2);
    }
    EXPECT_EQ(calls, "+a+a-a-a");
}

TEST(AutoRefPtr, AMoveCountsNothing) {
    Counted object('a');
    {
        AutoRefPtr<Counted> first(&object);
        AutoRefPtr<Counted> const second(std::move(first));
        EXPECT_EQ(second.get(), &object);
    }
    EXPECT_EQ(calls, "+a-a");
}

TEST(AutoRefPtr, AMoveAssignmentDropsTheOldReferenceOnly) {
    Counted oldObject('o');
    Counted newObject('n');
    AutoRefPtr<Counted> pointer(&oldObject);
    AutoRefPtr<Counted> other(&newObject);
    calls.clear();
    pointer = std::move(other);
    EXPECT_EQ(calls, "-o");
    EXPECT_EQ(pointer.get(), &newObject);

    AutoRefPtr<Counted>& same = pointer;
    pointer = std::move(same);
    EXPECT_EQ(pointer.get(), &newObject);
    EXPECT_EQ(newObject.count, 1);

    pointer = AutoRefPtr<Counted>(&newObject);
    EXPECT_EQ(pointer.get(), &newObject);
    EXPECT_EQ(newObject.count, 1);
}

TEST(AutoRefPtr, AssignmentPreservesTheNewBeforeItReleasesTheOld) {
    Counted oldObject('o');
    Counted newObject('n');
    {
        AutoRefPtr<Counted> pointer(&oldObject);
        AutoRefPtr<Counted> const other(&newObject);
        calls.clear();
        EXPECT_EQ(&(pointer = other), &pointer);
        EXPECT_EQ(calls, "+n-o");
        EXPECT_EQ(pointer.get(), &newObject);
        EXPECT_EQ(other.get(), &newObject);

        calls.clear();
        EXPECT_EQ(&(pointer = &oldObject), &pointer);
        EXPECT_EQ(calls, "+o-n");
    }
    EXPECT_EQ(oldObject.count, 0);
    EXPECT_EQ(newObject.count, 0);
}

TEST(AutoRefPtr, AssignmentOfTheSameObjectDoesNothing) {
    Counted object('a');
    AutoRefPtr<Counted> first(&object);
    AutoRefPtr<Counted> const second(&object);
    AutoRefPtr<Counted> const& same = first;
    calls.clear();
    first = second;
    first = &object;
    first = same;
    EXPECT_EQ(calls, "");
    EXPECT_EQ(first.get(), &object);
}

TEST(AutoRefPtr, AssignmentOfAndToNull) {
    Counted object('a');
    AutoRefPtr<Counted> pointer;
    pointer = &object;
    EXPECT_EQ(calls, "+a");
    pointer = AutoRefPtr<Counted>();
    EXPECT_EQ(calls, "+a-a");
    EXPECT_EQ(pointer.get(), nullptr);
    pointer = static_cast<Counted*>(nullptr);
    EXPECT_EQ(calls, "+a-a");
}

struct Link : RefCount {
    AutoRefPtr<Link> next;
};

TEST(AutoRefPtr, StepsAlongAChainThatItOwns) {
    AutoRefPtr<Link> head(new Link);
    head->next = new Link;
    Link* const second = head->next.get();
    head = head->next;
    EXPECT_EQ(head.get(), second);
    EXPECT_EQ(head->next.get(), nullptr);
}

} // namespace

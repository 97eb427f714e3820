#include <gxftypes/support/fixed_min_vector.h>

#include <cstddef>
#include <functional>
#include <memory>
#include <new>
#include <type_traits>
#include <utility>
#include <vector>

#include <sys/mman.h>

#include <gtest/gtest.h>
#include <testing/allocation_count.h>
#include <testing/bytes.h>

using namespace GxfTypes;
using namespace GxfTesting;

namespace {

/// An object that counts how many of its kind live.
struct Counted {
    explicit Counted(int n) : number(n) { ++alive; }
    Counted(Counted const&) = delete;
    Counted& operator=(Counted const&) = delete;
    ~Counted() { --alive; }

    static int alive;
    int number;
};
int Counted::alive = 0;

/// An element that counts its assignments, and throws at the one that is asked for.
struct Element {
    Element() : number(0) { ++alive; }
    explicit Element(int n) : number(n) { ++alive; }
    Element(Element const& other) : number(other.number) { ++alive; }
    Element& operator=(Element const& other) {
        if (assignments == throwAt) {
            throw std::bad_alloc();
        }
        ++assignments;
        number = other.number;
        return *this;
    }
    ~Element() { --alive; }

    static constexpr int never = -1;
    static int alive;
    static int assignments;
    static int throwAt;
    int number;
};
int Element::alive = 0;
int Element::assignments = 0;
int Element::throwAt = Element::never;

/// An element whose arrays can't be had: tells how large an array was asked for.
struct Unaffordable {
    static void* operator new[](std::size_t size) {
        asked = size;
        throw std::bad_alloc();
    }
    static void operator delete[](void*) {}

    static std::size_t asked;
};
std::size_t Unaffordable::asked = 0;

/// An element without contents: arrays of it take addresses and no memory.
struct Weightless {
    static void* operator new[](std::size_t size) {
        void* const addresses =
            mmap(nullptr, size, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
        if (addresses == MAP_FAILED) {
            throw std::bad_alloc();
        }
        reserved = size;
        return addresses;
    }
    static void operator delete[](void* addresses) { munmap(addresses, reserved); }

    static std::size_t reserved;
};
std::size_t Weightless::reserved = 0;

using Pointers = FixedMinVector<AutoPtr<Counted>, 16U>;

void append(Pointers& pointers, int from, int to) {
    for (int i = from; i < to; ++i) {
        pointers.push_back(AutoPtr<Counted>(new Counted(i)));
    }
}

std::vector<int> numbers(Pointers const& pointers) {
    std::vector<int> result;
    for (unsigned i = 0; i < pointers.size(); ++i) {
        result.push_back(pointers[i].get() != nullptr ? pointers[i]->number : -1);
    }
    return result;
}

template <typename T, unsigned N> std::vector<T> contents(FixedMinVector<T, N> const& vector) {
    std::vector<T> result;
    for (unsigned i = 0; i < vector.size(); ++i) {
        EXPECT_EQ(&vector[i], &vector.elemAt(i));
        result.push_back(vector[i]);
    }
    return result;
}

template <typename T, unsigned N> bool isInline(FixedMinVector<T, N>& vector) {
    auto const* const begin = reinterpret_cast<unsigned char const*>(&vector);
    auto const* const element = reinterpret_cast<unsigned char const*>(&vector[0]);
    return !std::less<>()(element, begin) && std::less<>()(element, begin + sizeof(vector));
}

using Ints = std::vector<int>;

TEST(FixedMinVector, IsEmptyAtFirst) {
    FixedMinVector<int, 3U> const vector;
    EXPECT_EQ(vector.size(), 0U);
    EXPECT_TRUE((std::has_virtual_destructor_v<FixedMinVector<int, 3U>>));
}

TEST(FixedMinVector, ResizeFillsWithDefaults) {
    FixedMinVector<int, 3U> vector;
    vector.resize(2);
    EXPECT_EQ(contents(vector), Ints({0, 0}));
    vector[1] = 7;
    vector.resize(5);
    EXPECT_EQ(contents(vector), Ints({0, 7, 0, 0, 0}));
    vector.resize(0);
    EXPECT_EQ(contents(vector), Ints());
    vector.resize(3);
    EXPECT_EQ(contents(vector), Ints({0, 0, 0}));
}

TEST(FixedMinVector, ResizeFillsWithTheGivenValue) {
    FixedMinVector<int, 3U> vector;
    vector.resize(2, 9);
    EXPECT_EQ(contents(vector), Ints({9, 9}));
    vector.resize(7, 8);
    EXPECT_EQ(contents(vector), Ints({9, 9, 8, 8, 8, 8, 8}));
    vector.resize(7, 5);
    EXPECT_EQ(contents(vector), Ints({9, 9, 8, 8, 8, 8, 8}));
    vector.resize(1, 4);
    EXPECT_EQ(contents(vector), Ints({9}));
}

TEST(FixedMinVector, AllocatesOnlyBeyondTheBuiltInElements) {
    FixedMinVector<unsigned, 1000U> vector;
    std::uint64_t const before = allocationCount();
    for (unsigned i = 0; i < 1000; ++i) {
        vector.push_back(i);
    }
    vector.resize(0);
    vector.resize(1000);
    EXPECT_EQ(allocationCount(), before);
    EXPECT_TRUE(isInline(vector));

    vector.resize(1001);
    EXPECT_EQ(allocationCount(), before + 1);
    EXPECT_FALSE(isInline(vector));
}

TEST(FixedMinVector, GrowsToTwiceTheCapacityAndShrinksOnlyByReset) {
    FixedMinVector<unsigned, 1000U> vector;
    vector.resize(1001);
    unsigned const* const heap = &vector[0];
    std::uint64_t const before = allocationCount();

    vector.resize(2000);
    vector.resize(5);
    EXPECT_EQ(&vector[0], heap);
    vector.resize(2000);
    EXPECT_EQ(&vector[0], heap);
    EXPECT_EQ(allocationCount(), before);

    vector.resize(2001);
    EXPECT_EQ(allocationCount(), before + 1);
    EXPECT_NE(&vector[0], heap);

    vector.reset();
    EXPECT_EQ(vector.size(), 0U);
    vector.resize(1000);
    EXPECT_TRUE(isInline(vector));
    EXPECT_EQ(allocationCount(), before + 1);
    vector.resize(1001);
    EXPECT_EQ(allocationCount(), before + 2);
}

TEST(FixedMinVector, GrowthDoubles) {
    FixedMinVector<unsigned, 1U> vector;
    std::uint64_t const before = allocationCount();
    for (unsigned i = 0; i < 1000; ++i) {
        vector.push_back(i);
    }
    EXPECT_EQ(allocationCount() - before, 10U); // 2, 4, ... 1024
    for (unsigned i = 0; i < 1000; ++i) {
        ASSERT_EQ(vector[i], i);
    }
}

TEST(FixedMinVector, OneResizeDoublesOftenEnough) {
    FixedMinVector<unsigned, 3U> vector;
    vector.resize(25); // 3, 6, 12, 24, 48
    std::uint64_t const before = allocationCount();
    vector.resize(48);
    EXPECT_EQ(allocationCount(), before);
    vector.resize(49);
    EXPECT_EQ(allocationCount(), before + 1);
}

TEST(FixedMinVector, DoublingStopsWhenTheCapacityTurnsNegative) {
    FixedMinVector<Unaffordable, 1U> one;
    EXPECT_THROW(one.resize(0x40000001U), std::bad_alloc);
    EXPECT_EQ(Unaffordable::asked, 0x80000000U);
    EXPECT_THROW(one.resize(0xFFFFFFFFU), std::bad_alloc);
    EXPECT_EQ(Unaffordable::asked, 0x80000000U);

    auto const thousand = std::make_unique<FixedMinVector<Unaffordable, 1000U>>();
    EXPECT_THROW(thousand->resize(0xFFFFFFFFU), std::bad_alloc);
    EXPECT_EQ(Unaffordable::asked, 1000U * 4194304U);
    EXPECT_THROW(thousand->resize(2097152000U), std::bad_alloc);
    EXPECT_EQ(Unaffordable::asked, 2097152000U);
}

TEST(FixedMinVector, ComesOutShortWhereTheDoublingStopped) {
    FixedMinVector<Weightless, 1U> vector;
    vector.resize(0x80000001U);
    EXPECT_EQ(vector.size(), 0x80000000U);
    EXPECT_EQ(Weightless::reserved, 0x80000000U);
}

TEST(FixedMinVector, StaysAsItWasWhenTheStorageCantBeHad) {
    FixedMinVector<Unaffordable, 2U> vector;
    vector.resize(2);
    EXPECT_THROW(vector.resize(3), std::bad_alloc);
    EXPECT_EQ(vector.size(), 2U);
    EXPECT_TRUE(isInline(vector));
    vector.resize(1);
    EXPECT_EQ(vector.size(), 1U);
}

TEST(FixedMinVector, PushBackAppends) {
    FixedMinVector<int, 2U> vector;
    for (int i = 0; i < 6; ++i) {
        vector.push_back(i * 11);
    }
    EXPECT_EQ(contents(vector), Ints({0, 11, 22, 33, 44, 55}));
}

TEST(FixedMinVector, EraseMovesTheLaterElementsDown) {
    FixedMinVector<int, 2U> vector;
    for (int i = 0; i < 5; ++i) {
        vector.push_back(i);
    }
    vector.erase(0);
    EXPECT_EQ(contents(vector), Ints({1, 2, 3, 4}));
    vector.erase(2);
    EXPECT_EQ(contents(vector), Ints({1, 2, 4}));
    vector.erase(2);
    EXPECT_EQ(contents(vector), Ints({1, 2}));
}

TEST(FixedMinVector, EraseBehindTheEndDoesNothing) {
    FixedMinVector<int, 4U> vector;
    vector.erase(0);
    EXPECT_EQ(vector.size(), 0U);
    for (int i = 0; i < 3; ++i) {
        vector.push_back(i);
    }
    vector.erase(3);
    vector.erase(0xFFFFFFFFU);
    EXPECT_EQ(contents(vector), Ints({0, 1, 2}));
    vector.erase(2);
    EXPECT_EQ(contents(vector), Ints({0, 1}));
}

TEST(FixedMinVector, ResetOfBuiltInElementsStartsAnew) {
    FixedMinVector<int, 4U> vector;
    vector.reset();
    EXPECT_EQ(vector.size(), 0U);
    vector.resize(3, 6);
    int const* const first = &vector[0];
    vector.reset();
    EXPECT_EQ(vector.size(), 0U);
    vector.resize(4);
    EXPECT_EQ(contents(vector), Ints({0, 0, 0, 0}));
    EXPECT_EQ(&vector[0], first);
}

TEST(FixedMinVector, AShrinkDeletesWhatItDropsAtOnce) {
    Pointers pointers;
    append(pointers, 0, 3);
    EXPECT_EQ(Counted::alive, 3);
    pointers.resize(1);
    EXPECT_EQ(Counted::alive, 1);
    EXPECT_EQ(numbers(pointers), Ints({0}));
    pointers.resize(2);
    EXPECT_EQ(numbers(pointers), Ints({0, -1}));
}

TEST(FixedMinVector, GrowthMovesOwnedObjects) {
    {
        Pointers pointers;
        append(pointers, 0, 16);
        Counted const* const fifth = pointers[5].get();
        append(pointers, 16, 17); // from the built-in elements to the heap
        EXPECT_EQ(Counted::alive, 17);
        append(pointers, 17, 33); // from heap to heap
        EXPECT_EQ(Counted::alive, 33);
        EXPECT_EQ(pointers[5].get(), fifth);
        for (unsigned i = 0; i < 33; ++i) {
            ASSERT_EQ(pointers[i]->number, static_cast<int>(i));
        }
    }
    EXPECT_EQ(Counted::alive, 0);
}

TEST(FixedMinVector, EraseDeletesOneOwnedObject) {
    for (int const count : {5, 20}) { // built-in elements, heap
        Pointers pointers;
        append(pointers, 0, count);
        pointers.erase(1);
        EXPECT_EQ(Counted::alive, count - 1);
        EXPECT_EQ(pointers.size(), static_cast<unsigned>(count - 1));
        EXPECT_EQ(pointers[0]->number, 0);
        for (unsigned i = 1; i < pointers.size(); ++i) {
            ASSERT_EQ(pointers[i]->number, static_cast<int>(i + 1));
        }
    }
    EXPECT_EQ(Counted::alive, 0);
}

TEST(FixedMinVector, ResetDeletesOwnedObjects) {
    for (int const count : {5, 16, 17, 40}) {
        Pointers pointers;
        append(pointers, 0, count);
        pointers.reset();
        EXPECT_EQ(Counted::alive, 0);
        EXPECT_EQ(pointers.size(), 0U);
        append(pointers, 0, 17);
        EXPECT_EQ(Counted::alive, 17);
    }
    EXPECT_EQ(Counted::alive, 0);
}

TEST(FixedMinVector, AShrunkHeapHoldsNoObjects) {
    Pointers pointers;
    append(pointers, 0, 40);
    pointers.resize(0);
    EXPECT_EQ(Counted::alive, 0);
    append(pointers, 0, 2);
    EXPECT_EQ(numbers(pointers), Ints({0, 1}));
}

TEST(FixedMinVector, ReleasesTheBuiltInPlacesThatItLeaves) {
    FixedMinVector<std::shared_ptr<int>, 2U> vector;
    auto const shared = std::make_shared<int>(1);
    vector.push_back(shared);
    vector.push_back(shared);
    EXPECT_EQ(shared.use_count(), 3);
    vector.push_back(shared);
    EXPECT_EQ(shared.use_count(), 4);
    vector.resize(0);
    EXPECT_EQ(shared.use_count(), 1);
}

TEST(FixedMinVector, MovesElementsByAssignmentAlone) {
    Element::assignments = 0;
    {
        FixedMinVector<Element, 2U> vector;
        EXPECT_EQ(Element::alive, 2);
        vector.push_back(Element(1)); // the fill, the value
        vector.push_back(Element(2));
        EXPECT_EQ(Element::assignments, 4);
        vector.push_back(Element(3)); // two across, two overwritten, the fill, the value
        EXPECT_EQ(Element::assignments, 10);
        EXPECT_EQ(Element::alive, 2 + 4);
        vector.resize(5); // three across, two fills
        EXPECT_EQ(Element::assignments, 15);
        EXPECT_EQ(Element::alive, 2 + 8);
        vector.erase(1); // three down, one overwritten
        EXPECT_EQ(Element::assignments, 19);
        vector.reset();
        EXPECT_EQ(Element::assignments, 23);
        EXPECT_EQ(Element::alive, 2);
    }
    EXPECT_EQ(Element::alive, 0);
}

TEST(FixedMinVector, LeaksNothingWhenAnAssignmentFails) {
    for (int failing = 0; failing < 8; ++failing) {
        FixedMinVector<Element, 2U> vector;
        vector.resize(2);
        Element::assignments = 0;
        Element::throwAt = failing;
        bool thrown = false;
        try {
            vector.resize(6); // two across, two overwritten, four fills
        } catch (std::bad_alloc const&) {
            thrown = true;
        }
        Element::throwAt = Element::never;
        EXPECT_TRUE(thrown);
        EXPECT_EQ(vector.size(), 2U);
        vector.resize(3);
        EXPECT_EQ(vector.size(), 3U);
    }
    EXPECT_EQ(Element::alive, 0);
}

} // namespace

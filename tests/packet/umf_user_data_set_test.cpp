#include <optional>
#include <random>
#include <set>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <testing/allocation_count.h>
#include <testing/bytes.h>
#include <testing/capture.h>

using namespace GxfTypes;
using namespace GxfTesting;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

using Key = UmfPacket::GxfKey;
using Item = UmfPacket::UserData;
using KeyItem = UmfPacket::UserDataKey;
using Pair = UmfPacket::UserDataPair;
using Set = UmfPacket::UserDataSet;
using Type = UmfPacket::GxfUserDataType;

constexpr auto stringType = static_cast<Type>(0);

UmfTrackNum const audio3(trackTypeEncodingAudio, static_cast<TrackNumberEncoding>('3'));

unsigned char const* bytesOf(char const* text) {
    return reinterpret_cast<unsigned char const*>(text);
}

KeyItem* newKey(unsigned id, char const* name = "n") {
    return new KeyItem(name, Key(0x70000 + id), audio3, stringType, 1);
}
Item* newValue(unsigned id, char const* value = "v") {
    return new Item(Key(0x80000 + id), audio3, bytesOf(value), 1);
}
Item* newUnknown(unsigned id) { return new Item(Key(0x90000 + id), audio3, bytesOf("u"), 1); }

AutoPtr<Item> key(unsigned id, char const* name = "n") { return AutoPtr<Item>(newKey(id, name)); }
AutoPtr<Item> value(unsigned id, char const* text = "v") {
    return AutoPtr<Item>(newValue(id, text));
}
AutoPtr<Item> unknown(unsigned id) { return AutoPtr<Item>(newUnknown(id)); }
AutoPtr<Pair> pair(KeyItem* keyItem, Item* valueItem) {
    return AutoPtr<Pair>(new Pair(keyItem, valueItem));
}

bool add(Set& set, char const* name, char const* text = "v") {
    return set
        .addUserData(name, audio3, stringType, bytesOf(text),
                     static_cast<unsigned>(std::string(text).size()))
        .success();
}

/// "k1v1 k2- -u3": the items of each pair by kind and id.
std::string shapeOf(Set const& set) {
    auto const part = [](Item const* item) {
        if (item == nullptr) {
            return std::string("-");
        }
        char const* const kind = item->isKey() ? "k" : item->isValue() ? "v" : "u";
        return kind + std::to_string(item->getId());
    };
    std::string text;
    for (unsigned i = 0; i < set.nItems(); ++i) {
        text += (i == 0 ? "" : " ") + part(set.pairs[i].keyItem.get()) +
                part(set.pairs[i].valueItem.get());
    }
    return text;
}

std::string namesOf(Set const& set) {
    std::string text;
    for (unsigned i = 0; i < set.nItems(); ++i) {
        text += std::string(i == 0 ? "" : " ") + set.pairs[i].getKey();
    }
    return text;
}

std::string inUse(char const* key) {
    return std::string("GxfKey(") + key + ") is already in use\n";
}
std::string notInUse(char const* key) { return std::string("GxfKey(") + key + ") is not in use\n"; }

void expectInternalError(OpResult const& result, char const* function) {
    EXPECT_FALSE(result);
    EXPECT_EQ(result.getType(), OpResult::Error);
    EXPECT_EQ(result.getCode(), 7);
    EXPECT_STREQ(result.getText(), "");
    EXPECT_STREQ(result.getLocation().function, function);
}

Bytes valueBytes(unsigned id, std::string_view text) {
    Bytes bytes;
    bytes.u32Lsbf(18 + static_cast<unsigned>(text.size())).u32Lsbf(0xFFFFFFFF).u8('3').u8('A');
    return bytes.u16(0).u32Lsbf(0x80000 + id).text(text).fill(2);
}

Bytes keyBytes(unsigned id, std::string_view name, unsigned valueSize) {
    auto const field = [](std::string_view text, std::size_t size) {
        return Bytes().text(text).fill(size - text.size());
    };
    Bytes bytes;
    bytes.u32Lsbf(298).u32Lsbf(0xFFFFFFFF).u8('3').u8('A').u16(0).u32Lsbf(0x70000 + id);
    bytes.fill(16).u32Lsbf(0xFFFFFFFF).add(field("Zorvan Media Subsystem", 32));
    bytes.add(field("userdata", 32)).add(field("String", 80)).add(field(name, 80));
    return bytes.add(field("1", 32)).u32Lsbf(valueSize).fill(2);
}

template <typename T> Bytes encoded(T const& what) {
    Bytes storage = Bytes().fill(5000, 0xEE);
    GxfBuffer buffer = storage.emptyBuffer();
    EXPECT_TRUE(what.encode(buffer));
    return Bytes::occupied(buffer);
}

template <typename T> std::string printed(T const& what, unsigned indent = 0) {
    FormatStr text("<");
    EXPECT_EQ(&what.toString(indent, text), &text);
    return text.get() + 1;
}

} // namespace

TEST(UserDataPair, PlaceOfAnItem) {
    Pair const ofKey{key(1)};
    EXPECT_NE(ofKey.keyItem.get(), nullptr);
    EXPECT_EQ(ofKey.valueItem.get(), nullptr);
    for (AutoPtr<Item> const& item : {value(1), unknown(1)}) {
        Item const* const object = item.get();
        Pair const ofOther{item};
        EXPECT_EQ(ofOther.keyItem.get(), nullptr);
        EXPECT_EQ(ofOther.valueItem.get(), object);
        EXPECT_EQ(item.get(), nullptr);
    }
    Pair const none;
    EXPECT_EQ(none.keyItem.get(), nullptr);
    EXPECT_EQ(none.valueItem.get(), nullptr);
}

TEST(UserDataPair, PlainItemOfTheKindKeyIsSafe) {
    std::int64_t const before = liveObjects();
    {
        Pair plain{AutoPtr<Item>(new Item(Key(0x70003), audio3, bytesOf("ab"), 2))};
        ASSERT_NE(plain.keyItem.get(), nullptr);
        EXPECT_EQ(plain.getPairKey().get(), 0x70003U);
        EXPECT_EQ(plain.size(), 20U);
        EXPECT_TRUE(plain.join(value(3)));
        EXPECT_STREQ(plain.getKey(), "");
        EXPECT_TRUE(plain.clone()->isEqual(plain));
        Pair joined{value(3)};
        EXPECT_TRUE(joined.join(AutoPtr<Item>(new Item(Key(0x70003), audio3, bytesOf("ab"), 2))));
        EXPECT_TRUE(joined.isEqual(plain));
    }
    EXPECT_EQ(liveObjects(), before);
}

TEST(UserDataPair, PlainQueries) {
    Pair const none;
    EXPECT_FALSE(none.isComplete());
    EXPECT_EQ(none.size(), 0U);
    EXPECT_EQ(none.getPairKey().get(), 0U);
    EXPECT_STREQ(none.getKey(), "");

    Pair const onlyKey(newKey(5, "Title"), nullptr);
    EXPECT_FALSE(onlyKey.isComplete());
    EXPECT_EQ(onlyKey.size(), 298U);
    EXPECT_EQ(onlyKey.getPairKey().get(), 0x70005U);
    EXPECT_STREQ(onlyKey.getKey(), "");

    Pair const onlyValue(nullptr, newValue(6));
    EXPECT_FALSE(onlyValue.isComplete());
    EXPECT_EQ(onlyValue.size(), 19U);
    EXPECT_EQ(onlyValue.getPairKey().get(), 0x80006U);
    EXPECT_STREQ(onlyValue.getKey(), "");

    Pair const both(newKey(7, "Title"), newValue(8));
    EXPECT_TRUE(both.isComplete());
    EXPECT_EQ(both.size(), 317U);
    EXPECT_EQ(both.getPairKey().get(), 0x70007U);
    EXPECT_STREQ(both.getKey(), "Title");
}

TEST(UserDataPair, AssignmentMovesTheItems) {
    Pair from(newKey(1), newValue(1));
    KeyItem const* const keyItem = from.keyItem.get();
    Pair to(newKey(2), newValue(2));
    to = from;
    EXPECT_EQ(to.keyItem.get(), keyItem);
    EXPECT_TRUE(to.isComplete());
    EXPECT_EQ(from.keyItem.get(), nullptr);
    EXPECT_EQ(from.valueItem.get(), nullptr);
}

TEST(UserDataPair, CanPairWith) {
    Pair const none;
    Pair const onlyKey(newKey(1), nullptr);
    Pair const onlyValue(nullptr, newValue(1));
    Pair const onlyUnknown(nullptr, newUnknown(1));
    Pair const both(newKey(1), newValue(1));
    struct Row {
        AutoPtr<Item> item;
        bool withKey;
        bool withValue;
        bool withUnknown;
    };
    for (Row const& row : {Row{key(1), false, true, true},
                           {value(1), true, false, false},
                           {unknown(1), false, false, false},
                           {key(2), false, false, false},
                           {value(2), false, false, false},
                           {key(0), false, false, false},
                           {value(0), false, false, false}}) {
        SCOPED_TRACE(row.item->getKey().toString().get());
        EXPECT_FALSE(none.canPairWith(*row.item));
        EXPECT_EQ(onlyKey.canPairWith(*row.item), row.withKey);
        EXPECT_EQ(onlyValue.canPairWith(*row.item), row.withValue);
        EXPECT_EQ(onlyUnknown.canPairWith(*row.item), row.withUnknown);
        EXPECT_FALSE(both.canPairWith(*row.item));
    }
}

TEST(UserDataPair, Join) {
    enum Has { nothing, aKey, aValue, all };
    struct Row {
        Has has;
        AutoPtr<Item> item;
        bool good;
    };
    // Neither ids nor kinds are looked at: findPair() has done that.
    for (Row const& row : {Row{nothing, key(2), true},
                           {nothing, value(2), true},
                           {nothing, unknown(2), true},
                           {aKey, key(2), false},
                           {aKey, value(2), true},
                           {aKey, unknown(2), true},
                           {aValue, key(2), true},
                           {aValue, value(2), false},
                           {aValue, unknown(2), false},
                           {all, key(2), false},
                           {all, value(2), false},
                           {all, unknown(2), false}}) {
        Pair pair(row.has == aKey || row.has == all ? newKey(1) : nullptr,
                  row.has == aValue || row.has == all ? newValue(1) : nullptr);
        unsigned const size = pair.size();
        Item const* const object = row.item.get();
        bool const isKey = row.item->isKey();
        unsigned const itemSize = row.item->getLength();
        OpResult const result = pair.join(row.item);
        EXPECT_EQ(row.item.get(), nullptr);
        if (!row.good) {
            expectInternalError(result, "join");
            EXPECT_EQ(pair.size(), size);
            continue;
        }
        EXPECT_TRUE(result);
        EXPECT_EQ(pair.size(), size + itemSize);
        EXPECT_EQ(isKey ? pair.keyItem.get() : pair.valueItem.get(), object);
    }
}

TEST(UserDataPair, CloneIsDeep) {
    Pair const both(newKey(1, "Title"), newValue(1, "a"));
    AutoPtr<Pair> const copy = both.clone();
    ASSERT_NE(copy.get(), nullptr);
    EXPECT_NE(copy->keyItem.get(), both.keyItem.get());
    EXPECT_NE(copy->valueItem.get(), both.valueItem.get());
    EXPECT_TRUE(copy->isEqual(both));
    EXPECT_STREQ(copy->getKey(), "Title");
    EXPECT_EQ(encoded(*copy), keyBytes(1, "Title", 1).add(valueBytes(1, "a")));

    EXPECT_TRUE(Pair(newKey(1), nullptr).clone()->isEqual(Pair(newKey(1), nullptr)));
    EXPECT_TRUE(Pair(nullptr, newUnknown(1)).clone()->isEqual(Pair(nullptr, newUnknown(1))));
    EXPECT_EQ(Pair().clone()->size(), 0U);
    // The name goes through the rule for formats once more.
    EXPECT_STREQ(Pair(newKey(1, "%%%%"), newValue(1)).clone()->getKey(), "%");
}

TEST(UserDataPair, Encode) {
    EXPECT_EQ(encoded(Pair()), Bytes());
    EXPECT_EQ(encoded(Pair(newKey(1, "A"), nullptr)), keyBytes(1, "A", 1));
    EXPECT_EQ(encoded(Pair(nullptr, newValue(2, "b"))), valueBytes(2, "b"));
    EXPECT_EQ(encoded(Pair(newKey(1, "A"), newValue(2, "b"))),
              keyBytes(1, "A", 1).add(valueBytes(2, "b")));
}

TEST(UserDataPair, EncodeStopsAtTheFirstFailure) {
    Pair const both(newKey(1, "A"), newValue(1, "b"));
    Bytes storage = Bytes().fill(316);
    GxfBuffer buffer = storage.emptyBuffer();
    EXPECT_EQ(both.encode(buffer).getCode(), 12);
    EXPECT_EQ(Bytes::occupied(buffer), keyBytes(1, "A", 1));

    both.keyItem->data = nullptr;
    GxfBuffer other = storage.emptyBuffer();
    EXPECT_EQ(both.encode(other).getCode(), 12);
    EXPECT_EQ(other.nOccupied(), 0U);
}

TEST(UserDataPair, IsEqual) {
    Pair const rows[] = {
        {},
        {newKey(1), nullptr},
        {newKey(2), nullptr},
        {nullptr, newValue(1)},
        {nullptr, newValue(2)},
        {nullptr, newUnknown(1)},
        {newKey(1), newValue(1)},
        {newKey(2), newValue(1)},
        {newKey(1), newValue(2)},
    };
    for (Pair const& one : rows) {
        for (Pair const& other : rows) {
            EXPECT_EQ(one.isEqual(other), &one == &other);
        }
        EXPECT_TRUE(one.clone()->isEqual(one));
    }
}

TEST(UserDataPair, Text) {
    Pair const both(newKey(1, "A"), newValue(1, "b"));
    std::string const keyText = printed(*both.keyItem, 4);
    std::string const valueText = printed(*both.valueItem, 4);
    EXPECT_EQ(keyText.substr(keyText.size() - 41), "    pairName=A\n    ver=1\n    valueSize=1b");
    EXPECT_EQ(printed(both, 4), keyText + "\n" + valueText + "\n");
    EXPECT_EQ(printed(Pair(newKey(1, "A"), nullptr), 4), keyText + "\n");
    EXPECT_EQ(printed(Pair(nullptr, newValue(1, "b")), 4), valueText + "\n");
    EXPECT_EQ(printed(Pair(), 4), "");
}

TEST(UserDataSet, NewSet) {
    Set const set;
    EXPECT_EQ(set.nItems(), 0U);
    EXPECT_EQ(set.size(), 0U);
    EXPECT_EQ(set.getNextKeyId(), 0U);
    EXPECT_EQ(encoded(set), Bytes());
    EXPECT_EQ(printed(set), "");
    EXPECT_TRUE(set.isEqual(Set()));
    for (unsigned id = 0; id < 65535; ++id) {
        ASSERT_FALSE(set.keyIdsInUse.get(id)) << id;
    }
}

TEST(UserDataSet, LowestFreeIds) {
    MessageCapture const capture;
    Set set;
    EXPECT_TRUE(add(set, "first"));
    EXPECT_TRUE(add(set, "second"));
    EXPECT_EQ(shapeOf(set), "k0v0 k1v1");
    EXPECT_EQ(set.getNextKeyId(), 2U);
    EXPECT_TRUE(set.removeUserData("first"));
    EXPECT_EQ(shapeOf(set), "k1v1");
    EXPECT_EQ(set.getNextKeyId(), 0U);
    EXPECT_TRUE(add(set, "third"));
    EXPECT_EQ(shapeOf(set), "k1v1 k0v0");
    EXPECT_EQ(namesOf(set), "second third");
    EXPECT_TRUE(add(set, "fourth"));
    EXPECT_EQ(shapeOf(set), "k1v1 k0v0 k2v2");
    EXPECT_THAT(capture.texts(), IsEmpty());
}

TEST(UserDataSet, AddByName) {
    Set set;
    UmfTrackNum const track(static_cast<TrackTypeEncoding>('M'),
                            static_cast<TrackNumberEncoding>('0'));
    EXPECT_TRUE(set.addUserData("Frames", track, static_cast<Type>(1), bytesOf("abcd"), 4));
    EXPECT_EQ(set.size(), 298U + 4 + 18);
    KeyItem const& keyItem = *set.pairs[0].keyItem;
    EXPECT_EQ(keyItem.getKey().get(), 0x70000U);
    EXPECT_TRUE(keyItem.trackNum == track);
    EXPECT_EQ(keyItem.getValueType(), 1U);
    EXPECT_EQ(keyItem.valueSize, 4U);
    EXPECT_STREQ(keyItem.getName(), "Frames");
    Item const& valueItem = *set.pairs[0].valueItem;
    EXPECT_EQ(valueItem.getKey().get(), 0x80000U);
    EXPECT_TRUE(valueItem.trackNum == track);
    EXPECT_EQ(valueItem.getLength(), 22U);
    EXPECT_EQ(std::string(reinterpret_cast<char const*>(valueItem.getData()), 6),
              std::string("abcd\0\0", 6));

    EXPECT_TRUE(set.addUserData("", track, static_cast<Type>(15), bytesOf(""), 0));
    EXPECT_EQ(set.size(), 320U + 298 + 18);
    EXPECT_EQ(shapeOf(set), "k0v0 k1v1");
}

TEST(UserDataSet, AddByNameMeetsPairsThatWait) {
    struct Row {
        char const* name;
        char const* shape;
        void (*prepare)(Set&);
    };
    constexpr Row rows[] = {
        {"another id", "k1- k0v0", [](Set& set) { set.addUserData(key(1)); }},
        {"an item of an unknown kind", "k0u0 -v0", [](Set& set) { set.addUserData(unknown(0)); }},
        {"a pair of an unknown kind", "k0u0 -v0",
         [](Set& set) { set.addUserData(pair(nullptr, newUnknown(0))); }},
        {"an id that two pairs had", "k0v0 -v0",
         [](Set& set) {
             set.addUserData(pair(newKey(0, "A"), newValue(0)));
             set.addUserData(pair(nullptr, newValue(0)));
             set.removeUserData("A");
         }},
        {"an id that was given free", "k0v0 k0-",
         [](Set& set) {
             set.addUserData(key(0));
             set.removeKey(Key(0x70000));
         }},
        {"an id that was given free in the place of another one", "k0v0 k0-",
         [](Set& set) {
             set.addUserData(key(0));
             set.removeKey(Key(0x80000));
         }},
        {"the last id", "k65535v65535 k65535-",
         [](Set& set) {
             for (unsigned id = 0; id < 65535; ++id) {
                 set.addKey(Key(0x70000 + id));
             }
             set.addUserData(key(65535));
         }},
        {"a set from before", "k0v0",
         [](Set& set) {
             set.addUserData(unknown(0));
             set.reset();
         }},
    };
    for (Row const& row : rows) {
        SCOPED_TRACE(row.name);
        MessageCapture const capture;
        Set set;
        row.prepare(set);
        EXPECT_TRUE(add(set, "B"));
        EXPECT_EQ(shapeOf(set), row.shape);
    }
}

TEST(UserDataSet, NullsAreRefused) {
    MessageCapture const capture;
    Set set;
    expectInternalError(set.addUserData(nullptr, audio3, stringType, bytesOf("a"), 1),
                        "addUserData");
    expectInternalError(set.addUserData("name", audio3, stringType, nullptr, 0), "addUserData");
    expectInternalError(set.addUserData(AutoPtr<Item>()), "addUserData");
    expectInternalError(set.addUserData(AutoPtr<Pair>()), "addUserData");
    EXPECT_EQ(set.nItems(), 0U);
    EXPECT_EQ(set.getNextKeyId(), 0U);
    EXPECT_TRUE(set.removeUserData(nullptr));
    EXPECT_THAT(capture.texts(), IsEmpty());
}

TEST(UserDataSet, ValueBeforeItsKey) {
    MessageCapture const capture;
    Set set;
    EXPECT_TRUE(set.addUserData(value(4, "b")));
    EXPECT_EQ(shapeOf(set), "-v4");
    EXPECT_TRUE(set.keyIdsInUse.get(4));
    EXPECT_TRUE(set.addUserData(key(4, "A")));
    EXPECT_EQ(shapeOf(set), "k4v4");
    EXPECT_EQ(encoded(set), keyBytes(4, "A", 1).add(valueBytes(4, "b")));
    EXPECT_THAT(capture.texts(), IsEmpty());
}

TEST(UserDataSet, ItemIsTakenOver) {
    std::int64_t const before = liveObjects();
    {
        Set set;
        AutoPtr<Item> const first = value(1);
        AutoPtr<Item> const second = key(1);
        AutoPtr<Pair> const whole = pair(newKey(2), newValue(2));
        EXPECT_TRUE(set.addUserData(first));
        EXPECT_TRUE(set.addUserData(second));
        EXPECT_TRUE(set.addUserData(whole));
        EXPECT_EQ(first.get(), nullptr);
        EXPECT_EQ(second.get(), nullptr);
        EXPECT_EQ(whole.get(), nullptr);
        EXPECT_EQ(shapeOf(set), "k1v1 k2v2");
    }
    EXPECT_EQ(liveObjects(), before);
}

TEST(UserDataSet, SecondItemOfACompletePair) {
    MessageCapture capture;
    Set set;
    set.addUserData(key(1));
    set.addUserData(value(1));
    EXPECT_THAT(capture.texts(), IsEmpty());
    EXPECT_TRUE(set.addUserData(value(1)));
    EXPECT_EQ(shapeOf(set), "k1v1 -v1");
    EXPECT_THAT(capture.texts(MessageKind::Warning), ElementsAre(inUse("0x80001 type=value")));
    EXPECT_TRUE(set.addUserData(value(1)));
    EXPECT_EQ(shapeOf(set), "k1v1 -v1 -v1");
    // The first that waits takes the key.
    EXPECT_TRUE(set.addUserData(key(1)));
    EXPECT_EQ(shapeOf(set), "k1v1 k1v1 -v1");
    EXPECT_TRUE(set.addUserData(key(1)));
    EXPECT_TRUE(set.addUserData(key(1)));
    EXPECT_EQ(shapeOf(set), "k1v1 k1v1 k1v1 k1-");
    EXPECT_THAT(capture.texts(),
                ElementsAre(inUse("0x80001 type=value"), inUse("0x80001 type=value"),
                            inUse("0x70001 type=key")));
}

TEST(UserDataSet, UnknownKinds) {
    MessageCapture const capture;
    Set set;
    EXPECT_TRUE(set.addUserData(unknown(0)));
    EXPECT_TRUE(set.addUserData(unknown(0)));
    EXPECT_EQ(shapeOf(set), "-u0 -u0");
    EXPECT_EQ(set.getNextKeyId(), 0U);
    // A key joins whatever waits under its id, and its value finds nothing then.
    EXPECT_TRUE(add(set, "name"));
    EXPECT_EQ(shapeOf(set), "k0u0 -u0 -v0");
    EXPECT_EQ(set.getNextKeyId(), 1U);
    EXPECT_THAT(capture.texts(), IsEmpty());

    EXPECT_TRUE(set.removeUserData("name"));
    EXPECT_EQ(shapeOf(set), "-u0 -v0");
    EXPECT_EQ(set.getNextKeyId(), 0U);
    EXPECT_THAT(capture.texts(), IsEmpty());
}

TEST(UserDataSet, AddPair) {
    MessageCapture capture;
    Set set;
    EXPECT_TRUE(set.addUserData(pair(newKey(3), newValue(3))));
    EXPECT_TRUE(set.addUserData(pair(newKey(4), nullptr)));
    EXPECT_TRUE(set.addUserData(pair(nullptr, newValue(5))));
    EXPECT_TRUE(set.addUserData(pair(nullptr, newUnknown(6))));
    EXPECT_TRUE(set.addUserData(pair(nullptr, nullptr)));
    EXPECT_EQ(shapeOf(set), "k3v3 k4- -v5 -u6 --");
    for (unsigned id = 0; id < 10; ++id) {
        EXPECT_EQ(set.keyIdsInUse.get(id), id >= 3 && id <= 5);
    }
    EXPECT_THAT(capture.texts(), IsEmpty());

    // No other pair is looked for, and a clash is but told.
    EXPECT_TRUE(set.addUserData(pair(nullptr, newValue(4))));
    EXPECT_EQ(shapeOf(set), "k3v3 k4- -v5 -u6 -- -v4");
    EXPECT_TRUE(set.addUserData(pair(newKey(3), newValue(3))));
    EXPECT_THAT(capture.texts(MessageKind::Warning),
                ElementsAre(inUse("0x80004 type=value"), inUse("0x70003 type=key")));
    // Pairs that came whole wait like any other.
    EXPECT_TRUE(set.addUserData(value(4)));
    EXPECT_TRUE(set.addUserData(key(5)));
    EXPECT_TRUE(set.addUserData(key(6)));
    EXPECT_EQ(shapeOf(set), "k3v3 k4v4 k5v5 k6u6 -- -v4 k3v3");
}

TEST(UserDataSet, RemoveByName) {
    MessageCapture const capture;
    Set set;
    add(set, "same");
    add(set, "other");
    add(set, "same");
    set.addUserData(key(9, "open"));
    EXPECT_TRUE(set.removeUserData("Same"));
    EXPECT_TRUE(set.removeUserData("open"));
    EXPECT_TRUE(set.removeUserData(""));
    EXPECT_TRUE(set.removeUserData("sam"));
    EXPECT_EQ(shapeOf(set), "k0v0 k1v1 k2v2 k9-");
    EXPECT_TRUE(set.removeUserData("same"));
    EXPECT_EQ(shapeOf(set), "k1v1 k2v2 k9-");
    EXPECT_FALSE(set.keyIdsInUse.get(0));
    EXPECT_TRUE(set.keyIdsInUse.get(2));
    EXPECT_TRUE(set.removeUserData("same"));
    EXPECT_TRUE(set.removeUserData("same"));
    EXPECT_EQ(shapeOf(set), "k1v1 k9-");
    EXPECT_TRUE(set.addUserData(value(9)));
    EXPECT_TRUE(set.removeUserData("open"));
    EXPECT_EQ(shapeOf(set), "k1v1");
    EXPECT_THAT(capture.texts(), IsEmpty());
}

TEST(UserDataSet, RemoveOfASharedId) {
    MessageCapture const capture;
    Set set;
    set.addUserData(pair(newKey(3, "a"), newValue(3)));
    set.addUserData(pair(newKey(3, "b"), newValue(3)));
    EXPECT_TRUE(set.removeUserData("a"));
    EXPECT_EQ(set.getNextKeyId(), 0U);
    EXPECT_FALSE(set.keyIdsInUse.get(3));
    EXPECT_TRUE(set.removeUserData("b"));
    EXPECT_THAT(capture.texts(),
                ElementsAre(inUse("0x70003 type=key"), notInUse("0x70003 type=key")));
}

TEST(UserDataSet, MarkingIds) {
    struct Row {
        unsigned word;
        bool isMarked;
        char const* text;
    };
    for (Row const row : {Row{0x70000, true, "0x70000 type=key"},
                          {0x80007, true, "0x80007 type=value"},
                          {0x7FFFE, true, "0x7fffe type=key"},
                          {0x8FFFF, true, "0x8ffff type=value"},
                          {0x7FFFF, true, "0x7ffff type=key"},
                          {0x90001, false, ""},
                          {0, false, ""},
                          {0x170001, false, ""}}) {
        SCOPED_TRACE(row.word);
        Set set;
        MessageCapture capture;
        Key const key(row.word);
        set.addKey(key);
        EXPECT_THAT(capture.texts(), IsEmpty());
        EXPECT_EQ(set.getNextKeyId(), row.word == 0x70000 ? 1U : 0U);
        set.addKey(key);
        set.removeKey(key);
        set.removeKey(key);
        set.addKey(key);
        set.removeKey(key);
        EXPECT_EQ(set.getNextKeyId(), 0U);
        if (row.isMarked) {
            EXPECT_THAT(capture.texts(MessageKind::Warning),
                        ElementsAre(inUse(row.text), notInUse(row.text)));
        }
        EXPECT_EQ(capture.texts().size(), row.isMarked ? 2U : 0U);
    }
}

TEST(UserDataSet, AllIdsInUse) {
    MessageCapture const capture;
    Set set;
    for (unsigned id = 0; id < 65535; ++id) {
        ASSERT_EQ(set.getNextKeyId(), id);
        set.addKey(Key(0x70000 + id));
    }
    EXPECT_EQ(set.getNextKeyId(), 65535U);
    EXPECT_TRUE(add(set, "one more"));
    EXPECT_EQ(shapeOf(set), "k65535v65535");
    EXPECT_EQ(set.getNextKeyId(), 65535U);
    set.removeKey(Key(0x84321));
    EXPECT_EQ(set.getNextKeyId(), 0x4321U);
    EXPECT_THAT(capture.texts(), IsEmpty());
}

TEST(UserDataSet, TheLastId) {
    MessageCapture const capture;
    Set set;
    EXPECT_TRUE(set.addUserData(value(65535, "b")));
    EXPECT_TRUE(set.addUserData(key(65535, "A")));
    EXPECT_EQ(shapeOf(set), "k65535v65535");
    EXPECT_EQ(set.getNextKeyId(), 0U);
    EXPECT_EQ(encoded(set), keyBytes(65535, "A", 1).add(valueBytes(65535, "b")));
    EXPECT_TRUE(set.removeUserData("A"));
    EXPECT_EQ(set.nItems(), 0U);
    EXPECT_THAT(capture.texts(), IsEmpty());
}

TEST(UserDataSet, FindPair) {
    MessageCapture const capture;
    Set set;
    set.addUserData(pair(newKey(1), newValue(1)));
    set.addUserData(pair(newKey(2), nullptr));
    set.addUserData(pair(newKey(2), nullptr));
    set.addUserData(pair(nullptr, newValue(2)));
    set.addUserData(pair(nullptr, newUnknown(3)));
    struct Row {
        AutoPtr<Item> item;
        int place;
    };
    for (Row const& row : {Row{key(1), -1},
                           {value(1), -1},
                           {value(2), 1},
                           {key(2), 3},
                           {unknown(2), -1},
                           {key(3), 4},
                           {value(3), -1},
                           {key(4), -1}}) {
        Pair const* const expected =
            row.place < 0 ? nullptr : &set.pairs[static_cast<unsigned>(row.place)];
        EXPECT_EQ(static_cast<Set const&>(set).findPair(*row.item), expected);
    }
}

TEST(UserDataSet, ItemsAreFoundAfterChangesByHand) {
    Set set;
    set.addUserData(key(1, "a"));
    set.addUserData(value(1));
    set.addUserData(key(2, "b"));
    // A pair that is opened again, one that is closed, one that is replaced.
    set.pairs[0].valueItem = nullptr;
    set.pairs[1].valueItem = newValue(2);
    EXPECT_EQ(set.findPair(*value(1)), &set.pairs[0]);
    EXPECT_EQ(set.findPair(*value(2)), nullptr);
    EXPECT_TRUE(set.addUserData(value(1)));
    EXPECT_EQ(shapeOf(set), "k1v1 k2v2");
    set.pairs.erase(0);
    set.pairs.push_back(Pair(newKey(7), nullptr));
    EXPECT_TRUE(set.addUserData(value(7)));
    EXPECT_EQ(shapeOf(set), "k2v2 k7v7");
}

TEST(UserDataSet, Reset) {
    MessageCapture const capture;
    Set set;
    for (unsigned i = 0; i < 100; ++i) {
        add(set, "n");
    }
    set.addUserData(key(500));
    set.addUserData(key(65535));
    set.reset();
    EXPECT_EQ(set.nItems(), 0U);
    EXPECT_EQ(set.size(), 0U);
    EXPECT_EQ(set.getNextKeyId(), 0U);
    EXPECT_FALSE(set.keyIdsInUse.get(500));
    EXPECT_TRUE(set.addUserData(value(500)));
    EXPECT_TRUE(set.addUserData(key(65535)));
    EXPECT_EQ(shapeOf(set), "-v500 k65535-");
    EXPECT_THAT(capture.texts(), IsEmpty());
}

TEST(UserDataSet, MoreThanTheInlinePairs) {
    Set set;
    for (unsigned i = 0; i < 200; ++i) {
        EXPECT_TRUE(add(set, ("name" + std::to_string(i)).c_str()));
    }
    EXPECT_EQ(set.nItems(), 200U);
    EXPECT_EQ(set.size(), 200U * 317);
    for (unsigned i = 0; i < 200; ++i) {
        EXPECT_EQ(set.pairs[i].getKey(), "name" + std::to_string(i));
        EXPECT_EQ(set.pairs[i].getPairKey().getId(), i);
    }
}

TEST(UserDataSet, Copy) {
    Set from;
    add(from, "a");
    from.addUserData(key(5, "b"));
    from.addUserData(unknown(6));
    from.addUserData(key(65535, "c"));
    Set to;
    add(to, "old");
    to.addKey(Key(0x70100));
    MessageCapture const capture;
    EXPECT_TRUE(to.copy(from));
    EXPECT_EQ(shapeOf(to), "k0v0 k5- -u6 k65535-");
    EXPECT_TRUE(to.isEqual(from));
    EXPECT_NE(to.pairs[0].keyItem.get(), from.pairs[0].keyItem.get());
    EXPECT_TRUE(to.keyIdsInUse.get(5));
    EXPECT_FALSE(to.keyIdsInUse.get(6));
    EXPECT_FALSE(to.keyIdsInUse.get(0x100));
    EXPECT_EQ(to.getNextKeyId(), 1U);
    EXPECT_EQ(encoded(to), encoded(from));
    EXPECT_TRUE(to.addUserData(value(5)));
    EXPECT_EQ(shapeOf(to), "k0v0 k5v5 -u6 k65535-");
    EXPECT_EQ(shapeOf(from), "k0v0 k5- -u6 k65535-");
    EXPECT_THAT(capture.texts(), IsEmpty());
    EXPECT_TRUE(to.copy(Set()));
    EXPECT_EQ(to.nItems(), 0U);
}

TEST(UserDataSet, CopyTellsOfSharedIds) {
    MessageCapture const capture;
    Set from;
    from.addUserData(pair(newKey(3), newValue(3)));
    from.addUserData(pair(nullptr, newValue(3)));
    Set to;
    EXPECT_TRUE(to.copy(from));
    EXPECT_EQ(shapeOf(to), "k3v3 -v3");
    EXPECT_THAT(capture.texts(),
                ElementsAre(inUse("0x80003 type=value"), inUse("0x80003 type=value")));
}

TEST(UserDataSet, EncodeInOrder) {
    Set set;
    set.addUserData(value(8, "x"));
    set.addUserData(key(2, "A"));
    set.addUserData(value(2, "b"));
    Bytes const bytes = valueBytes(8, "x").add(keyBytes(2, "A", 1)).add(valueBytes(2, "b"));
    EXPECT_EQ(encoded(set), bytes);
    EXPECT_EQ(set.size(), bytes.size());

    Bytes storage = Bytes().fill(bytes.size());
    for (unsigned room = 0; room < bytes.size(); ++room) {
        GxfBuffer buffer(storage.data(), room, GxfBuffer::DataState::empty, MediaAgent(nullptr));
        EXPECT_EQ(set.encode(buffer).getCode(), 12);
        EXPECT_EQ(buffer.nOccupied(), room < 19 ? 0U : room < 317 ? 19U : 317U);
    }
}

TEST(UserDataSet, IsEqual) {
    Set one;
    Set other;
    one.addUserData(pair(newKey(1), newValue(1)));
    EXPECT_FALSE(one.isEqual(other));
    EXPECT_FALSE(other.isEqual(one));
    other.addUserData(pair(newKey(1), newValue(1)));
    EXPECT_TRUE(one.isEqual(other));
    // The ids in use take no part, the order of the pairs does.
    one.addKey(Key(0x70009));
    EXPECT_TRUE(one.isEqual(other));
    one.addUserData(pair(newKey(2), nullptr));
    one.addUserData(pair(newKey(3), nullptr));
    other.addUserData(pair(newKey(3), nullptr));
    other.addUserData(pair(newKey(2), nullptr));
    EXPECT_FALSE(one.isEqual(other));
}

TEST(UserDataSet, Text) {
    Set set;
    set.addUserData(pair(newKey(1, "A"), newValue(1, "b")));
    set.addUserData(pair(nullptr, newValue(2, "c")));
    EXPECT_EQ(printed(set, 2),
              "[0]=len=298b\n  pos=4294967295\n  trk=Audio3\n  seq=0\n  key=0x70001 type=key\n"
              "  payload=282b\n  pos=4294967295\n  vendor=Zorvan Media Subsystem\n"
              "  class=userdata\n  valueType=string(String)\n  pairName=A\n  ver=1\n"
              "  valueSize=1b\n"
              "len=19b\n  pos=4294967295\n  trk=Audio3\n  seq=0\n  key=0x80001 type=value\n"
              "  payload=3b,\n  data={0x62.0.0},\n  data={b...}\n\n"
              "[1]=len=19b\n  pos=4294967295\n  trk=Audio3\n  seq=0\n  key=0x80002 type=value\n"
              "  payload=3b,\n  data={0x63.0.0},\n  data={c...}\n\n");
}

namespace {

/// The same set, with nothing but a list that is searched from the front.
class NaiveSet {
  public:
    struct Part {
        unsigned word;
        std::string name; ///< of a key
        bool operator==(Part const&) const = default;
    };
    struct Slot {
        std::optional<Part> key;
        std::optional<Part> value;
        bool operator==(Slot const&) const = default;
    };

    void add(Part const& item) {
        unsigned const kind = item.word >> 16;
        for (Slot& slot : slots) {
            if (kind == 7 && !slot.key && slot.value && sameId(*slot.value, item)) {
                slot.key = item;
                return;
            }
            if (kind == 8 && !slot.value && slot.key && sameId(*slot.key, item)) {
                slot.value = item;
                return;
            }
        }
        mark(item.word);
        slots.push_back(kind == 7 ? Slot{item, {}} : Slot{{}, item});
    }

    void add(Slot const& slot) {
        mark(slot.key ? slot.key->word : slot.value ? slot.value->word : 0);
        slots.push_back(slot);
    }

    void add(std::string const& name) {
        unsigned id = 0;
        while (ids.count(id) != 0) {
            ++id;
        }
        add(Part{0x70000 + id, name});
        add(Part{0x80000 + id, ""});
    }

    void remove(std::string const& name) {
        for (auto slot = slots.begin(); slot != slots.end(); ++slot) {
            if (slot->key && slot->value && slot->key->name == name) {
                if (ids.erase(slot->key->word & 0xFFFF) == 0) {
                    ++warnings;
                }
                slots.erase(slot);
                return;
            }
        }
    }

    void copy(NaiveSet const& other) {
        slots.clear();
        ids.clear();
        for (Slot const& slot : other.slots) {
            add(slot);
        }
    }

    std::vector<Slot> slots;
    std::set<unsigned> ids;
    unsigned warnings = 0;

  private:
    static bool sameId(Part const& one, Part const& other) {
        return (one.word & 0xFFFF) == (other.word & 0xFFFF);
    }
    void mark(unsigned word) {
        bool const isMarked = word >> 16 == 7 || word >> 16 == 8;
        if (isMarked && !ids.insert(word & 0xFFFF).second) {
            ++warnings;
        }
    }
};

std::vector<NaiveSet::Slot> slotsOf(Set const& set) {
    std::vector<NaiveSet::Slot> slots;
    for (unsigned i = 0; i < set.nItems(); ++i) {
        NaiveSet::Slot slot;
        if (KeyItem const* const keyItem = set.pairs[i].keyItem.get()) {
            slot.key = NaiveSet::Part{keyItem->getKey().get(), keyItem->getName()};
        }
        if (Item const* const valueItem = set.pairs[i].valueItem.get()) {
            slot.value = NaiveSet::Part{valueItem->getKey().get(), ""};
        }
        slots.push_back(slot);
    }
    return slots;
}

class RandomItems {
  public:
    explicit RandomItems(unsigned seed) : m_random(seed) {}

    unsigned below(unsigned limit) { return static_cast<unsigned>(m_random() % limit); }
    std::string name() { return std::string(1, static_cast<char>('a' + below(6))); }
    NaiveSet::Part item() {
        constexpr unsigned kinds[] = {7, 7, 7, 8, 8, 8, 9, 0, 0x17};
        unsigned const kind = kinds[below(9)];
        unsigned const id = below(20) == 0 ? 65535 : below(12);
        return {kind << 16 | id, kind == 7 ? name() : ""};
    }
    /// The real item of a part.
    static AutoPtr<Item> made(NaiveSet::Part const& part) {
        Key const key(part.word);
        return AutoPtr<Item>(key.isKey()
                                 ? new KeyItem(part.name.c_str(), key, audio3, stringType, 1)
                                 : new Item(key, audio3, bytesOf("v"), 1));
    }

  private:
    std::mt19937 m_random;
};

} // namespace

TEST(UserDataSet, LikeANaiveSet) {
    for (unsigned seed = 0; seed < 60; ++seed) {
        SCOPED_TRACE(seed);
        RandomItems random(seed);
        Set sets[2];
        NaiveSet naive[2];
        MessageCapture const capture;
        for (unsigned step = 0; step < 150; ++step) {
            unsigned const which = random.below(4) == 0 ? 1 : 0;
            Set& set = sets[which];
            NaiveSet& model = naive[which];
            unsigned const operation = random.below(40);
            if (operation < 26) {
                NaiveSet::Part const item = random.item();
                EXPECT_TRUE(set.addUserData(RandomItems::made(item)));
                model.add(item);
            } else if (operation < 29) {
                std::string const name = random.name();
                EXPECT_TRUE(add(set, name.c_str()));
                model.add(name);
            } else if (operation < 32) {
                NaiveSet::Slot slot;
                for (unsigned i = random.below(3); i != 0; --i) {
                    NaiveSet::Part const item = random.item();
                    (item.word >> 16 == 7 ? slot.key : slot.value) = item;
                }
                AutoPtr<Pair> whole(new Pair);
                if (slot.key) {
                    EXPECT_TRUE(whole->join(RandomItems::made(*slot.key)));
                }
                if (slot.value) {
                    EXPECT_TRUE(whole->join(RandomItems::made(*slot.value)));
                }
                EXPECT_TRUE(set.addUserData(whole));
                model.add(slot);
            } else if (operation < 37) {
                std::string const name = random.name();
                EXPECT_TRUE(set.removeUserData(name.c_str()));
                model.remove(name);
            } else if (operation < 38) {
                unsigned const place = random.below(20);
                set.pairs.erase(place);
                if (place < model.slots.size()) {
                    model.slots.erase(model.slots.begin() + place);
                }
            } else if (operation < 39) {
                EXPECT_TRUE(set.copy(sets[1 - which]));
                model.copy(naive[1 - which]);
            } else if (random.below(4) == 0) {
                set.reset();
                model.slots.clear();
                model.ids.clear();
            }
            ASSERT_EQ(slotsOf(set), model.slots);
            ASSERT_EQ(capture.count(MessageKind::Warning), naive[0].warnings + naive[1].warnings);
            unsigned next = 0;
            while (model.ids.count(next) != 0) {
                ++next;
            }
            ASSERT_EQ(set.getNextKeyId(), next);
        }
    }
}

TEST(UmfUserDataRun, LikeTheSetItself) {
    for (unsigned seed = 100; seed < 160; ++seed) {
        SCOPED_TRACE(seed);
        RandomItems random(seed);
        Set one;
        Set other;
        MessageCapture capture;
        for (unsigned i = random.below(30); i != 0; --i) {
            NaiveSet::Part const item = random.item();
            one.addUserData(RandomItems::made(item));
            other.addUserData(RandomItems::made(item));
        }
        one.addUserData(AutoPtr<Pair>(new Pair));
        other.addUserData(AutoPtr<Pair>(new Pair));
        UmfUserDataRun run(one);
        for (unsigned i = 0; i < 200; ++i) {
            NaiveSet::Part const item = random.item();
            capture.clear();
            EXPECT_TRUE(run.add(RandomItems::made(item)));
            std::vector<std::string> const warnings = capture.texts();
            capture.clear();
            EXPECT_TRUE(other.addUserData(RandomItems::made(item)));
            ASSERT_EQ(warnings, capture.texts());
            ASSERT_EQ(slotsOf(one), slotsOf(other));
        }
        EXPECT_TRUE(one.isEqual(other));
    }
}

TEST(UmfUserDataRun, NullIsRefused) {
    Set set;
    UmfUserDataRun run(set);
    expectInternalError(run.add(AutoPtr<Item>()), "add");
    EXPECT_EQ(set.nItems(), 0U);
}

// With a search from the front for each item these would take minutes.
TEST(UmfUserDataRun, HostileRuns) {
    constexpr unsigned count = 100000;
    for (unsigned const kind : {0x80000U, 0x90000U}) {
        for (unsigned const ids : {1U, 65536U}) {
            MessageCapture const capture;
            Set set;
            UmfUserDataRun run(set);
            for (unsigned i = 0; i < count; ++i) {
                ASSERT_TRUE(
                    run.add(AutoPtr<Item>(new Item(Key(kind + i % ids), audio3, bytesOf("v"), 1))));
            }
            EXPECT_EQ(set.nItems(), count);
            EXPECT_EQ(set.size(), count * 19);
            EXPECT_EQ(capture.count(MessageKind::Warning), kind == 0x80000 ? count - ids : 0U);
        }
    }
}

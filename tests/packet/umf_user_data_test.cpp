#include <cstring>
#include <random>
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
using KeyType = UmfPacket::KeyType;
using Item = UmfPacket::UserData;
using KeyItem = UmfPacket::UserDataKey;
using Type = UmfPacket::GxfUserDataType;

UmfTrackNum const audio3(trackTypeEncodingAudio, static_cast<TrackNumberEncoding>('3'));

/// The 16 bytes in front of an item's data, the track being Audio3.
Bytes itemHeader(unsigned length, unsigned key, unsigned pos = 0xFFFFFFFF, unsigned sequence = 0) {
    Bytes bytes;
    bytes.u32Lsbf(length).u32Lsbf(pos).u8('3').u8('A');
    return bytes.u8(sequence).u8(sequence >> 8).u32Lsbf(key);
}

Bytes itemBytes(unsigned key, Bytes const& data) {
    return itemHeader(16 + static_cast<unsigned>(data.size()), key).add(data);
}

/// A text in a field of fixed size, the rest filled up.
Bytes field(std::string_view text, std::size_t size, unsigned filler = 0) {
    return Bytes().text(text).fill(size - text.size(), filler);
}

Bytes newKeyBlock(std::string_view type, std::string_view name, unsigned valueSize) {
    Bytes block = Bytes().fill(16).u32Lsbf(0xFFFFFFFF);
    block.add(field("Zorvan Media Subsystem", 32)).add(field("userdata", 32));
    block.add(field(type, 80)).add(field(name, 80)).add(field("1", 32));
    return block.u32Lsbf(valueSize).fill(2);
}

/// A key block whose every field is told apart, with bytes behind the terminators.
Bytes oddKeyBlock() {
    Bytes block;
    for (unsigned i = 0; i < 16; ++i) {
        block.u8(0xA0 + i);
    }
    block.u32Lsbf(0x01020304);
    block.add(field({"Maker\0", 6}, 32, 0x11)).add(field({"Class\0", 6}, 32, 0x22));
    block.add(field({"r4\0", 3}, 80, 0x33)).add(field({"Name\0", 5}, 80, 0x44));
    return block.add(field({"v7\0", 3}, 32, 0x55)).u32Lsbf(0x05060708).u8(0x66).u8(0x77);
}

/// A whole item, and 16 bytes behind it, which the decoder wants to be there.
void decodeWhole(Item& item, Bytes const& bytes) {
    Bytes input = Bytes().add(bytes).fill(16, 0xEE);
    GxfBuffer buffer = input.filledBuffer();
    ASSERT_TRUE(item.decode(buffer, buffer.nOccupied()));
    EXPECT_EQ(buffer.nOccupied(), 16U);
}

void decodeKey(KeyItem& key, Bytes const& block, unsigned word = 0x70005) {
    AutoPtr<Item> item(new Item);
    decodeWhole(*item, itemBytes(word, block));
    ASSERT_TRUE(key.decode(item));
}

Bytes dataOf(Item const& item) {
    Bytes bytes;
    for (unsigned i = 0; i < item.getNumDataBytes(); ++i) {
        bytes.u8(item.getData()[i]);
    }
    return bytes;
}

Bytes encoded(Item const& item) {
    Bytes storage = Bytes().fill(2000, 0xEE);
    GxfBuffer buffer = storage.emptyBuffer();
    EXPECT_TRUE(item.encode(buffer));
    return Bytes::occupied(buffer);
}

template <typename T> std::string printed(T const& item, unsigned indent = 0) {
    FormatStr text("<");
    EXPECT_EQ(&item.toString(indent, text), &text);
    return text.get() + 1;
}

unsigned char const* bytesOf(char const* text) {
    return reinterpret_cast<unsigned char const*>(text);
}

void expectError(OpResult const& result, int code, char const* function) {
    EXPECT_FALSE(result);
    EXPECT_EQ(result.getType(), OpResult::Error);
    EXPECT_EQ(result.getCode(), code);
    EXPECT_STREQ(result.getText(), "");
    EXPECT_STREQ(result.getLocation().function, function);
}

struct WordRow {
    unsigned word;
    unsigned id;
    unsigned type;
    char const* text;
};

constexpr WordRow words[] = {
    {0, 0, 0, "0x0 type=unknown"},
    {5, 5, 0, "0x5 type=unknown"},
    {0x6FFFF, 0xFFFF, 0, "0x6ffff type=unknown"},
    {0x70000, 0, 0x70000, "0x70000 type=key"},
    {0x7ABCD, 0xABCD, 0x70000, "0x7abcd type=key"},
    {0x7FFFF, 0xFFFF, 0x70000, "0x7ffff type=key"},
    {0x80000, 0, 0x80000, "0x80000 type=value"},
    {0x8FFFF, 0xFFFF, 0x80000, "0x8ffff type=value"},
    {0x90001, 1, 0, "0x90001 type=unknown"},
    {0xF0000, 0, 0, "0xf0000 type=unknown"},
    {0x170001, 1, 0, "0x170001 type=unknown"},
    {0x80070001, 1, 0, "0x80070001 type=unknown"},
    {0xFFFFFFFF, 0xFFFF, 0, "0xffffffff type=unknown"},
};

struct TypeRow {
    unsigned type;
    char const* name;
    char const* text;
    std::vector<char const*> accepted;
};

std::vector<TypeRow> const types = {
    {0, "string", "String", {"string", "STRING", "String"}},
    {1, "int32", "Int", {"int", "INT", "Int", "i4", "I4"}},
    {2, "int16", "Short", {"short", "SHORT", "i2", "I2"}},
    {3, "byte", "Byte", {"byte", "BYTE"}},
    {4, "float", "Float", {"float", "FLOAT", "r4", "R4"}},
    {5, "double", "double", {"double", "DOUBLE", "Double", "r8", "R8"}},
    {6, "bool", "Boolean", {"bool", "BOOL", "boolean", "BOOLEAN"}},
    {7, "dateTime", "Date", {"date", "DATE", "datetime", "DATETIME", "dateTime"}},
    {8, "base64", "bin.base64", {"bin.base64", "BIN.BASE64"}},
    {9, "uint16", "Uint16", {"uint16", "UINT16"}},
    {10, "uint32", "Uint32", {"uint32", "UINT32"}},
    {11, "uint64", "Uint64", {"uint64", "UINT64"}},
    {12, "int8", "Int8", {"int8", "INT8"}},
    {13, "int64", "Int64", {"Int64", "int64", "INT64"}},
    {14, "binary", "Binary", {"binary", "BINARY"}},
};

} // namespace

TEST(GxfKey, Words) {
    for (WordRow const& row : words) {
        SCOPED_TRACE(row.text);
        Key const key(row.word);
        EXPECT_EQ(key.get(), row.word);
        EXPECT_EQ(key.getId(), row.id);
        EXPECT_EQ(key.getType(), row.type);
        EXPECT_EQ(key.isKey(), row.type == 0x70000);
        EXPECT_EQ(key.isValue(), row.type == 0x80000);
        EXPECT_EQ(key.isKeyValuePair(), row.type != 0);
        EXPECT_STREQ(key.toString().get(), row.text);
        for (WordRow const& other : words) {
            EXPECT_EQ(key == Key(other.word), row.word == other.word);
        }
    }
    EXPECT_EQ(Key().get(), 0U);
}

TEST(GxfKey, FromKindAndId) {
    EXPECT_EQ(Key(static_cast<Key::Type>(0), 0).get(), 0x70000U);
    EXPECT_EQ(Key(static_cast<Key::Type>(0), 0xFFFF).get(), 0x7FFFFU);
    EXPECT_EQ(Key(static_cast<Key::Type>(1), 0x1234).get(), 0x81234U);
    EXPECT_EQ(Key(static_cast<Key::Type>(2), 1).get(), 0x80001U);
    EXPECT_EQ(Key(static_cast<Key::Type>(0xFFFFFFFF), 1).get(), 0x80001U);
}

TEST(GxfKey, NamesOfKinds) {
    EXPECT_STREQ(getName(static_cast<KeyType>(0x70000)), "key");
    EXPECT_STREQ(getName(static_cast<KeyType>(0x80000)), "value");
    for (unsigned const other : {0U, 1U, 0x70001U, 0x90000U, 0xFFFFFFFFU}) {
        EXPECT_STREQ(getName(static_cast<KeyType>(other)), "unknown");
    }
}

TEST(GxfUserDataType, Names) {
    KeyItem const key;
    for (TypeRow const& row : types) {
        EXPECT_STREQ(getName(static_cast<Type>(row.type)), row.name);
        EXPECT_STREQ(key.getValueStr(static_cast<Type>(row.type)), row.text);
    }
    for (unsigned const other : {15U, 16U, 0x7FFFFFFFU, 0x80000000U, 0xFFFFFFFFU}) {
        EXPECT_STREQ(getName(static_cast<Type>(other)), "unknown");
        EXPECT_STREQ(key.getValueStr(static_cast<Type>(other)), "unknown");
    }
}

TEST(GxfUserDataType, AcceptedTexts) {
    for (TypeRow const& row : types) {
        for (char const* const text : row.accepted) {
            KeyItem key;
            decodeKey(key, newKeyBlock(text, "n", 1));
            EXPECT_EQ(key.getValueType(), row.type) << text;
        }
        KeyItem const made("n", Key(0x70001), audio3, static_cast<Type>(row.type), 1);
        EXPECT_EQ(made.getValueType(), row.type);
        EXPECT_STREQ(made.valueTypeName.get(), row.text);
    }
    for (char const* const text :
         {"", "unknown", " string", "string ", "strin", "int32", "int16", "i8", "uint8", "base64",
          "bin", "float64", "r", "dateTime2", "Boolean1"}) {
        KeyItem key;
        decodeKey(key, newKeyBlock(text, "n", 1));
        EXPECT_EQ(key.getValueType(), 15U) << text;
    }
    EXPECT_EQ(KeyItem().getValueType(), 15U);
    EXPECT_EQ(KeyItem("n", Key(0x70001), audio3, static_cast<Type>(15), 1).getValueType(), 15U);
}

TEST(UserData, NumberOfDataBytes) {
    struct Row {
        unsigned length;
        unsigned bytes;
    };
    for (Row const row : {Row{0, 0},
                          {15, 0},
                          {16, 0},
                          {17, 1},
                          {18, 2},
                          {298, 282},
                          {0x80000000, 0x7FFFFFF0},
                          {0x8000000F, 0x7FFFFFFF},
                          {0x80000010, 0},
                          {0xFFFFFFFF, 0}}) {
        Item item;
        item.length = row.length;
        EXPECT_EQ(item.getLength(), row.length);
        EXPECT_EQ(item.getNumDataBytes(), row.bytes) << row.length;
    }
}

TEST(UserData, NewItem) {
    Item item(Key(0x80102), audio3, bytesOf("ab"), 2);
    EXPECT_EQ(item.getLength(), 20U);
    EXPECT_EQ(item.pos, 0xFFFFFFFF);
    EXPECT_TRUE(item.trackNum == audio3);
    EXPECT_EQ(item.sequence, 0U);
    EXPECT_EQ(item.getKey().get(), 0x80102U);
    EXPECT_EQ(item.getId(), 0x102U);
    EXPECT_TRUE(item.isValue());
    EXPECT_FALSE(item.isKey());
    EXPECT_TRUE(item.valid);
    EXPECT_EQ(dataOf(item), (Bytes{'a', 'b', 0, 0}));

    item.setValidBit(false);
    EXPECT_FALSE(item.valid);
    item.pos = 1;
    item.sequence = 2;
    item.init(Key(0x70003), UmfTrackNum(), nullptr, 3);
    EXPECT_EQ(item.getLength(), 21U);
    EXPECT_EQ(item.pos, 0xFFFFFFFF);
    EXPECT_TRUE(item.trackNum == UmfTrackNum());
    EXPECT_EQ(item.sequence, 0U);
    EXPECT_TRUE(item.isKey());
    EXPECT_TRUE(item.valid);
    EXPECT_EQ(dataOf(item), (Bytes{0, 0, 0, 0, 0}));
}

TEST(UserData, NewItemCopiesTheBytes) {
    unsigned char value[] = {1, 2, 3};
    Item const item(Key(0x80001), audio3, value, 3);
    value[0] = 9;
    EXPECT_EQ(dataOf(item), (Bytes{1, 2, 3, 0, 0}));
    EXPECT_EQ(Item(Key(0x80001), audio3, value, 0).getLength(), 18U);
}

TEST(UserData, Encode) {
    Item item(Key(0x80102), audio3, bytesOf("ab"), 2);
    EXPECT_EQ(encoded(item), (Bytes{0x14, 0, 0,    0,    0xFF, 0xFF, 0xFF, 0xFF, 0x33, 0x41,
                                    0,    0, 0x02, 0x01, 0x08, 0,    'a',  'b',  0,    0}));
    item.pos = 0x01020304;
    item.sequence = 0x0506;
    item.key = Key(0x0708090A);
    EXPECT_EQ(encoded(item),
              (Bytes{0x14, 0, 0, 0, 4, 3, 2, 1, 0x33, 0x41, 6, 5, 0x0A, 9, 8, 7, 'a', 'b', 0, 0}));
}

TEST(UserData, EncodeNeedsRoomForAll) {
    Item const item(Key(0x80102), audio3, bytesOf("ab"), 2);
    Bytes storage = Bytes().fill(20, 0xEE);
    for (unsigned room = 0; room < 20; ++room) {
        GxfBuffer buffer(storage.data(), room, GxfBuffer::DataState::empty, MediaAgent(nullptr));
        expectError(item.encode(buffer), 12, "encode");
        EXPECT_EQ(buffer.nOccupied(), 0U);
    }
    EXPECT_EQ(storage, Bytes().fill(20, 0xEE));
    GxfBuffer buffer = storage.emptyBuffer();
    EXPECT_TRUE(item.encode(buffer));
    EXPECT_EQ(buffer.nOccupied(), 20U);
}

TEST(UserData, EncodeWithoutDataFailsBehindTheHeader) {
    Item item(Key(0x80001), audio3, bytesOf("ab"), 2);
    item.data = nullptr;
    Bytes storage = Bytes().fill(40, 0xEE);
    GxfBuffer buffer = storage.emptyBuffer();
    expectError(item.encode(buffer), 13, "encode");
    EXPECT_EQ(Bytes::occupied(buffer), itemHeader(20, 0x80001));

    GxfBuffer other = storage.emptyBuffer();
    EXPECT_EQ(Item().encode(other).getCode(), 13);
}

TEST(UserData, DecodeReadsEachField) {
    Bytes input = itemHeader(19, 0x0708090A, 0x01020304, 0x0506).add({0x10, 0x11, 0x12}).fill(16);
    GxfBuffer buffer = input.filledBuffer();
    Item item;
    EXPECT_TRUE(item.decode(buffer, 35));
    EXPECT_EQ(buffer.nOccupied(), 16U);
    EXPECT_EQ(item.length, 19U);
    EXPECT_EQ(item.pos, 0x01020304U);
    EXPECT_TRUE(item.trackNum == audio3);
    EXPECT_EQ(item.sequence, 0x0506U);
    EXPECT_EQ(item.key.get(), 0x0708090AU);
    EXPECT_EQ(dataOf(item), (Bytes{0x10, 0x11, 0x12}));
    EXPECT_TRUE(item.valid);
}

TEST(UserData, DecodeWants16BytesBehindTheItem) {
    Bytes input = itemBytes(0x80001, {'a', 'b', 'c', 0, 0}).fill(40, 0xEE);
    for (unsigned available = 0; available < 21 + 16; ++available) {
        GxfBuffer buffer = input.filledBuffer();
        Item item(Key(0x80001), audio3, bytesOf("x"), 1);
        expectError(item.decode(buffer, available), 11, "decode");
        EXPECT_FALSE(item.valid);
        // Below 16 nothing is read, else the header.
        EXPECT_EQ(buffer.nOccupied(), available < 16 ? 61U : 45U);
    }
    GxfBuffer buffer = input.filledBuffer();
    Item item;
    EXPECT_TRUE(item.decode(buffer, 37));
    EXPECT_TRUE(item.valid);
    EXPECT_EQ(buffer.nOccupied(), 40U);
}

TEST(UserData, DecodeOfLengths) {
    struct Row {
        unsigned length;
        bool good;
    };
    for (Row const row : {Row{0, false},
                          {1, false},
                          {15, false},
                          {16, false},
                          {17, false},
                          {18, false},
                          {19, true},
                          {20, true},
                          {48, true},
                          {49, false},
                          {0x7FFFFFFF, false},
                          {0x80000000, false},
                          {0xFFFFFFFF, false}}) {
        SCOPED_TRACE(row.length);
        Bytes input = itemHeader(row.length, 0x80001).fill(48, 1);
        GxfBuffer buffer = input.filledBuffer();
        Item item;
        OpResult const result = item.decode(buffer, 64);
        EXPECT_EQ(item.length, row.length);
        EXPECT_EQ(item.valid, row.good);
        if (row.good) {
            EXPECT_TRUE(result);
            EXPECT_EQ(dataOf(item), Bytes().fill(row.length - 16, 1));
        } else {
            expectError(result, 11, "decode");
            EXPECT_EQ(buffer.nOccupied(), 48U);
            EXPECT_EQ(item.getData(), nullptr);
        }
    }
}

TEST(UserData, ClaimedLengthsAllocateNothing) {
    for (unsigned const length : {0x00FFFFFFU, 0x7FFFFFFFU, 0x80000010U, 0xFFFFFFEFU}) {
        Bytes input = itemHeader(length, 0x80001).fill(48, 1);
        GxfBuffer buffer = input.filledBuffer();
        Item item;
        OpResult result;
        {
            AllocationLimit const limit(10000);
            result = item.decode(buffer, 0xFFFFFFFF);
        }
        expectError(result, 11, "decode");
        EXPECT_FALSE(item.valid);
    }
}

TEST(UserData, TruncatedItems) {
    Bytes input = itemBytes(0x80001, {'a', 'b', 'c', 0, 0});
    for (unsigned size = 0; size < input.size(); ++size) {
        GxfBuffer buffer(input.data(), size, GxfBuffer::DataState::filled, MediaAgent(nullptr));
        Item item;
        EXPECT_EQ(item.decode(buffer, 1000).getCode(), 11);
        EXPECT_FALSE(item.valid);
    }
}

TEST(UserData, FailedSecondDecodeLeavesAnItemThatIsSafe) {
    Item item;
    decodeWhole(item, itemBytes(0x80001, {'a', 'b', 0, 0}));
    Bytes longer = itemHeader(1000, 0x80001).fill(30);
    GxfBuffer buffer = longer.filledBuffer();
    EXPECT_EQ(item.decode(buffer, 46).getCode(), 11);

    EXPECT_EQ(printed(item), "len=1000b\npos=4294967295\ntrk=Audio3\nseq=0\n"
                             "key=0x80001 type=value\npayload=984b");
    Bytes storage = Bytes().fill(2000);
    GxfBuffer out = storage.emptyBuffer();
    EXPECT_EQ(item.encode(out).getCode(), 13);
    Item const copy(item);
    EXPECT_EQ(copy.getData(), nullptr);
    EXPECT_TRUE(copy.isEqual(item));
    item.key = Key(0x70001);
    item.length = 298;
    KeyItem key;
    AutoPtr<Item> without(new Item(item));
    EXPECT_EQ(key.decode(without).getCode(), 9);
}

TEST(UserData, SmallestValue) {
    Item const item(Key(0x80001), audio3, bytesOf("a"), 1);
    Bytes const bytes = encoded(item);
    EXPECT_EQ(bytes, itemHeader(19, 0x80001).add({'a', 0, 0}));
    Item again;
    decodeWhole(again, bytes);
    EXPECT_TRUE(again.isEqual(item));
}

TEST(UserData, EmptyValueEncodesButDoesNotDecode) {
    Item const item(Key(0x80001), audio3, bytesOf(""), 0);
    Bytes bytes = encoded(item);
    EXPECT_EQ(bytes, itemHeader(18, 0x80001).fill(2));
    bytes.fill(100);
    GxfBuffer buffer = bytes.filledBuffer();
    EXPECT_EQ(Item().decode(buffer, buffer.nOccupied()).getCode(), 11);
}

TEST(UserData, StaticDecodeMakesTheClassOfTheKind) {
    for (unsigned const word : {0x70005U, 0x80005U, 0x90005U, 0U}) {
        Bytes input = itemBytes(word, newKeyBlock("int", "Name", 4)).fill(16);
        GxfBuffer buffer = input.filledBuffer();
        OpResult result(OpResult::Error, 7, gxfOpSubsystem.getId(), "before");
        AutoPtr<Item> const item = Item::decode(buffer, 298 + 16, result);
        EXPECT_TRUE(result);
        ASSERT_NE(item.get(), nullptr);
        EXPECT_EQ(item->getKey().get(), word);
        EXPECT_TRUE(item->valid);
        EXPECT_EQ(dataOf(*item), newKeyBlock("int", "Name", 4));
        EXPECT_EQ(item->isKey(), word == 0x70005);
        EXPECT_EQ(dynamic_cast<KeyItem*>(item.get()) != nullptr, word == 0x70005);
        EXPECT_EQ(buffer.nOccupied(), 16U);
    }
}

TEST(UserData, StaticDecodeFails) {
    struct Row {
        Bytes item;
        int code;
    };
    for (Row const& row : {Row{itemBytes(0x80005, {1, 0}), 11},
                           {itemBytes(0x70005, {1, 0}), 11},
                           {itemBytes(0x70005, Bytes().fill(281)), 9},
                           {itemBytes(0x70005, Bytes().fill(283)), 9},
                           {itemBytes(0x70005, {1, 0, 0}), 9}}) {
        std::int64_t const objects = liveObjects();
        std::int64_t const arrays = liveArrays();
        {
            Bytes input = Bytes().add(row.item).fill(16);
            std::int64_t const before = liveObjects();
            GxfBuffer buffer = input.filledBuffer();
            OpResult result;
            AutoPtr<Item> const item = Item::decode(buffer, buffer.nOccupied(), result);
            EXPECT_EQ(item.get(), nullptr);
            expectError(result, row.code, "decode");
            result = OpResult();
            EXPECT_EQ(liveObjects(), before);
        }
        EXPECT_EQ(liveObjects(), objects);
        EXPECT_EQ(liveArrays(), arrays);
    }
}

TEST(UserData, AnyBytesAreSafe) {
    std::mt19937 random(74);
    auto const below = [&](unsigned limit) { return static_cast<unsigned>(random() % limit); };
    unsigned good = 0;
    for (unsigned round = 0; round < 3000; ++round) {
        Bytes input =
            itemHeader(below(80), 0x80000 + below(3) * 0x10000, below(0xFFFFFFFF), below(0x10000));
        for (unsigned i = below(80); i != 0; --i) {
            input.u8(below(256));
        }
        std::vector<unsigned char> const before = input.vector();
        GxfBuffer buffer = input.filledBuffer();
        Item item;
        if (!item.decode(buffer, below(100))) {
            continue;
        }
        ++good;
        EXPECT_EQ(encoded(item).vector(),
                  std::vector(before.begin(), before.begin() + item.getLength()));
        EXPECT_FALSE(printed(item, below(100)).empty());
    }
    EXPECT_GT(good, 300U);
}

TEST(UserData, CopyIsDeep) {
    Item item(Key(0x80001), audio3, bytesOf("ab"), 2);
    item.pos = 7;
    item.sequence = 8;
    Item const copy(item);
    item.data[0] = 'x';
    EXPECT_EQ(dataOf(copy), (Bytes{'a', 'b', 0, 0}));
    EXPECT_EQ(encoded(copy), itemHeader(20, 0x80001, 7, 8).add({'a', 'b', 0, 0}));
    EXPECT_TRUE(copy.valid);
    EXPECT_EQ(Item(Item()).getData(), nullptr);
}

TEST(UserData, IsEqual) {
    Item const item(Key(0x80001), audio3, bytesOf("ab"), 2);
    Item same(item);
    same.valid = false;
    EXPECT_TRUE(item.isEqual(same));
    EXPECT_TRUE(Item().isEqual(Item()));

    using Change = void (*)(Item&);
    for (Change const change : {Change([](Item& other) { other.pos = 1; }),
                                Change([](Item& other) { other.trackNum = UmfTrackNum(); }),
                                Change([](Item& other) { other.sequence = 1; }),
                                Change([](Item& other) { other.key = Key(0x80002); }),
                                Change([](Item& other) { other.key = Key(0x70001); }),
                                Change([](Item& other) { other.data[0] = 'x'; }),
                                Change([](Item& other) { other.data[3] = 'x'; }),
                                Change([](Item& other) { other.length = 19; })}) {
        Item other(item);
        change(other);
        EXPECT_FALSE(item.isEqual(other));
        EXPECT_FALSE(other.isEqual(item));
    }

    // The numbers of data bytes are compared, not the lengths.
    Item none(item);
    Item less(item);
    none.length = 0;
    less.length = 16;
    EXPECT_TRUE(none.isEqual(less));
}

TEST(UserData, Move) {
    Item from(Key(0x80001), audio3, bytesOf("ab"), 2);
    from.pos = 7;
    from.sequence = 8;
    from.valid = false;
    unsigned char const* const array = from.getData();
    Item to(Key(0x70009), UmfTrackNum(), bytesOf("longer"), 6);
    to.move(from);
    EXPECT_EQ(to.getData(), array);
    EXPECT_EQ(from.getData(), nullptr);
    EXPECT_FALSE(to.valid);
    EXPECT_EQ(encoded(to), itemHeader(20, 0x80001, 7, 8).add({'a', 'b', 0, 0}));
}

TEST(UserData, Text) {
    Item const item(Key(0x80102), audio3, bytesOf("ab"), 2);
    char const* const text = "len=20b\npos=4294967295\ntrk=Audio3\nseq=0\nkey=0x80102 type=value\n"
                             "payload=4b,\ndata={0x61.62.0.0},\ndata={ab...}";
    EXPECT_EQ(printed(item), text);
    EXPECT_STREQ(item.toString().get(), text);
    EXPECT_EQ(printed(item, 3), "len=20b\n   pos=4294967295\n   trk=Audio3\n   seq=0\n"
                                "   key=0x80102 type=value\n   payload=4b,\n"
                                "   data={0x61.62.0.0},\n   data={ab...}");
    Item key(item);
    key.key = Key(0x70102);
    EXPECT_EQ(printed(key), "len=20b\npos=4294967295\ntrk=Audio3\nseq=0\nkey=0x70102 type=key\n"
                            "payload=4b");
}

TEST(UserData, TextOfShortLengths) {
    Item item(Key(0x90001), audio3, bytesOf(""), 0);
    item.pos = 1;
    item.sequence = 65535;
    std::string const front = "b\npos=1\ntrk=Audio3\nseq=65535\nkey=0x90001 type=unknown\npayload=";
    EXPECT_EQ(printed(item), "len=18" + front + "2b,\ndata={0x0.0},\ndata={...}");
    item.length = 17;
    EXPECT_EQ(printed(item), "len=17" + front + "1b");
    item.length = 3;
    EXPECT_EQ(printed(item), "len=3" + front + "0b");
    item.length = 18;
    item.data = nullptr;
    EXPECT_EQ(printed(item), "len=18" + front + "2b");
}

TEST(UserData, ViewsOfTheData) {
    struct Row {
        Bytes data;
        unsigned indent;
        std::string first;
        std::string second;
    };
    auto const repeated = [](std::string const& part, unsigned count) {
        std::string text;
        for (unsigned i = 0; i < count; ++i) {
            text += part;
        }
        return text;
    };
    auto const hexes = [&](unsigned count) { return "41" + repeated(".41", count - 1); };
    Row const rows[] = {
        {{0x1F, 0x20, 0x7E, 0x7F}, 0, "1f.20.7e.7f", "<1f> ~<7f>"},
        {{0x80, 0xFF, 1, 10}, 0, "80.ff.1.a", "<80><ff><01><0a>"},
        {{'a', 'b', 'c'}, 0, "61.62.63", "abc"},
        // The zero that stops the second view may be the last byte.
        {{'a', 'b', 0}, 0, "61.62.0", "ab..."},
        {{0, 'a', 'b'}, 0, "0.61.62", "..."},
        {{'%', 's', '%'}, 0, "25.73.25", "%s%"},
        // 27 bytes of 3 fit into 80, 80 letters, 20 bytes of 4.
        {Bytes().fill(26, 'A'), 0, hexes(26), repeated("A", 26)},
        {Bytes().fill(27, 'A'), 0, hexes(27), repeated("A", 27)},
        {Bytes().fill(28, 'A'), 0, hexes(27) + "...", repeated("A", 28)},
        {Bytes().fill(80, 'A'), 0, hexes(27) + "...", repeated("A", 80)},
        {Bytes().fill(81, 'A'), 0, hexes(27) + "...", repeated("A", 80) + "..."},
        {Bytes().fill(20, 2), 0, "2" + repeated(".2", 19), repeated("<02>", 20)},
        {Bytes().fill(21, 2), 0, "2" + repeated(".2", 20), repeated("<02>", 20) + "..."},
        {Bytes().fill(79, 'A').fill(2, 2), 0, hexes(27) + "...", repeated("A", 79) + "<02>..."},
        // The indent takes from the budget.
        {Bytes().fill(24, 'A'), 10, hexes(24), repeated("A", 24)},
        {Bytes().fill(25, 'A'), 10, hexes(24) + "...", repeated("A", 25)},
        {Bytes().fill(71, 'A'), 10, hexes(24) + "...", repeated("A", 70) + "..."},
        {Bytes().fill(3, 'A'), 79, "41...", "A..."},
        {Bytes().fill(3, 'A'), 80, "...", "..."},
        {Bytes().fill(3, 'A'), 200, "...", "..."},
    };
    for (Row const& row : rows) {
        Item item;
        decodeWhole(item, itemBytes(0x80001, row.data));
        std::string const text = printed(item, row.indent);
        std::string const line = ",\n" + std::string(row.indent, ' ') + "data={";
        EXPECT_EQ(text.substr(text.find(',')),
                  line + "0x" + row.first + "}" + line + row.second + "}");
    }
}

TEST(UserData, EncodeLogs) {
    Item const item(Key(0x80001), audio3, bytesOf("a"), 1);
    Bytes storage = Bytes().fill(100);
    GxfBuffer buffer = storage.emptyBuffer();
    buffer.reset(GxfBuffer::DataState::empty, 5000000000);
    MessageCapture capture;
    ChannelSetting const decodeLevel(gxfDecodeDetail, 9);
    {
        ChannelSetting const level(gxfEncodeDetail, 2);
        EXPECT_TRUE(item.encode(buffer));
        EXPECT_THAT(capture.texts(), IsEmpty());
    }
    ChannelSetting const level(gxfEncodeDetail, 3);
    EXPECT_TRUE(item.encode(buffer));
    EXPECT_THAT(capture.texts(),
                ElementsAre("start Media Desc encode @5000000000\n",
                            "end Userdata encode len=19b\npos=4294967295\ntrk=Audio3\nseq=0\n"
                            "key=0x80001 type=value\npayload=3b,\ndata={0x61.0.0},\n"
                            "data={a...}\n"));
    EXPECT_EQ(capture.texts(MessageKind::Info).size(), 2U);

    capture.clear();
    GxfBuffer full(storage.data(), 5, GxfBuffer::DataState::empty, MediaAgent(nullptr));
    EXPECT_FALSE(item.encode(full));
    EXPECT_THAT(capture.texts(), ElementsAre("start Media Desc encode @0\n"));

    capture.clear();
    GxfBuffer input = storage.filledBuffer();
    Item().decode(input, 100);
    EXPECT_THAT(capture.texts(), IsEmpty());
}

TEST(UserDataKey, NewKey) {
    KeyItem const key("Title", Key(0x70005), audio3, static_cast<Type>(0), 12);
    EXPECT_EQ(key.getLength(), 298U);
    EXPECT_EQ(key.keyPos, 0xFFFFFFFF);
    EXPECT_STREQ(key.vendor.get(), "Zorvan Media Subsystem");
    EXPECT_STREQ(key.className.get(), "userdata");
    EXPECT_STREQ(key.valueTypeName.get(), "String");
    EXPECT_STREQ(key.getName(), "Title");
    EXPECT_STREQ(key.version.get(), "1");
    EXPECT_EQ(key.valueSize, 12U);
    EXPECT_EQ(key.keyReserved.size(), 16U);
    EXPECT_TRUE(key.valid);
    // The block is made by the encode.
    EXPECT_EQ(dataOf(key), Bytes().fill(282));
    EXPECT_EQ(encoded(key), itemBytes(0x70005, newKeyBlock("String", "Title", 12)));
    EXPECT_EQ(dataOf(key), newKeyBlock("String", "Title", 12));
}

TEST(UserDataKey, InitOfAUsedKey) {
    KeyItem key;
    decodeKey(key, oddKeyBlock());
    key.init(Key(0x70001), "New", audio3, static_cast<Type>(15), 0xFFFFFFFF);
    EXPECT_EQ(encoded(key), itemBytes(0x70001, newKeyBlock("unknown", "New", 0xFFFFFFFF)));
}

TEST(UserDataKey, NameIsTakenAsAFormat) {
    struct Row {
        char const* given;
        char const* kept;
        char const* copied;
    };
    for (Row const row : {Row{"", "", ""},
                          {"100%%", "100%", "100%"},
                          {"%%%%", "%%", "%"},
                          {"%s%n%d %", "%s%n%d %", "%s%n%d %"},
                          {"%%%", "%%", "%"}}) {
        KeyItem const key(row.given, Key(0x70001), audio3, static_cast<Type>(0), 1);
        EXPECT_STREQ(key.getName(), row.kept);
        KeyItem const copy(key);
        EXPECT_STREQ(copy.getName(), row.copied);
        EXPECT_STREQ(key.getName(), row.kept);
    }
}

TEST(UserDataKey, CopyPassesAllTextsThroughTheFormat) {
    Bytes block = Bytes().fill(16, 0xA5).u32Lsbf(3);
    block.add(field("v%%", 32)).add(field("c%%", 32)).add(field("t%%", 80));
    block.add(field("n%%", 80)).add(field("r%%", 32)).u32Lsbf(9).fill(2);
    KeyItem key;
    decodeKey(key, block);
    EXPECT_STREQ(key.vendor.get(), "v%%");
    KeyItem const copy(key);
    EXPECT_STREQ(copy.vendor.get(), "v%");
    EXPECT_STREQ(copy.className.get(), "c%");
    EXPECT_STREQ(copy.valueTypeName.get(), "t%");
    EXPECT_STREQ(copy.pairName.get(), "n%");
    EXPECT_STREQ(copy.version.get(), "r%");
    EXPECT_EQ(copy.keyPos, 3U);
    EXPECT_EQ(copy.valueSize, 9U);
    EXPECT_TRUE(copy.valid);
    // The copy's data are the bytes of the original until it is encoded.
    EXPECT_TRUE(copy.isEqual(key));
    EXPECT_EQ(dataOf(copy), block);

    Bytes expected = Bytes().fill(16, 0xA5).u32Lsbf(3);
    expected.add(field("v%", 32)).add(field("c%", 32)).add(field("t%", 80));
    expected.add(field("n%", 80)).add(field("r%", 32)).u32Lsbf(9).fill(2);
    EXPECT_EQ(encoded(copy), itemBytes(0x70005, expected));
    EXPECT_FALSE(copy.isEqual(key));
}

TEST(UserDataKey, CopyOfAnEmptyKey) {
    KeyItem const copy{KeyItem()};
    EXPECT_EQ(copy.vendor.get(), nullptr);
    EXPECT_EQ(copy.className.get(), nullptr);
    EXPECT_EQ(copy.valueTypeName.get(), nullptr);
    EXPECT_EQ(copy.pairName.get(), nullptr);
    EXPECT_EQ(copy.version.get(), nullptr);
    EXPECT_EQ(copy.getData(), nullptr);
}

TEST(UserDataKey, DecodeReadsEachField) {
    AutoPtr<Item> item(new Item);
    decodeWhole(*item, itemHeader(298, 0x7000A, 77, 88).add(oddKeyBlock()));
    KeyItem key;
    EXPECT_TRUE(key.decode(item));
    EXPECT_EQ(item.get(), nullptr);
    EXPECT_TRUE(key.valid);
    EXPECT_EQ(key.length, 298U);
    EXPECT_EQ(key.pos, 77U);
    EXPECT_TRUE(key.trackNum == audio3);
    EXPECT_EQ(key.sequence, 88U);
    EXPECT_EQ(key.key.get(), 0x7000AU);
    EXPECT_EQ(dataOf(key), oddKeyBlock());
    ASSERT_EQ(key.keyReserved.size(), 16U);
    EXPECT_EQ(key.keyReserved.getData()[0], 0xA0);
    EXPECT_EQ(key.keyReserved.getData()[15], 0xAF);
    EXPECT_EQ(key.keyPos, 0x01020304U);
    EXPECT_STREQ(key.vendor.get(), "Maker");
    EXPECT_STREQ(key.className.get(), "Class");
    EXPECT_STREQ(key.valueTypeName.get(), "r4");
    EXPECT_EQ(key.getValueType(), 4U);
    EXPECT_STREQ(key.getName(), "Name");
    EXPECT_STREQ(key.version.get(), "v7");
    EXPECT_EQ(key.valueSize, 0x05060708U);

    // What stood behind the terminators and in the last two bytes goes out as zeros.
    Bytes expected;
    for (unsigned i = 0; i < 16; ++i) {
        expected.u8(0xA0 + i);
    }
    expected.u32Lsbf(0x01020304).add(field("Maker", 32)).add(field("Class", 32));
    expected.add(field("r4", 80)).add(field("Name", 80)).add(field("v7", 32));
    expected.u32Lsbf(0x05060708).fill(2);
    EXPECT_EQ(encoded(key), itemHeader(298, 0x7000A, 77, 88).add(expected));
}

TEST(UserDataKey, TextsOfWholeFields) {
    Bytes block = Bytes().fill(20);
    block.fill(32, 'v').fill(32, 'c').fill(80, 't').fill(80, 'n').fill(32, 'r').fill(6);
    KeyItem key;
    decodeKey(key, block);
    EXPECT_EQ(key.vendor.get(), std::string(32, 'v'));
    EXPECT_EQ(key.className.get(), std::string(32, 'c'));
    EXPECT_EQ(key.valueTypeName.get(), std::string(80, 't'));
    EXPECT_EQ(key.getName(), std::string(80, 'n'));
    EXPECT_EQ(key.version.get(), std::string(32, 'r'));
}

TEST(UserDataKey, DecodeRefusesOtherKinds) {
    for (unsigned const word : {0x80005U, 0x90005U, 0U}) {
        KeyItem key("n", Key(0x70001), audio3, static_cast<Type>(0), 1);
        AutoPtr<Item> item(new Item(Key(word), audio3, nullptr, 280));
        expectError(key.decode(item), 7, "decode");
        EXPECT_FALSE(key.valid);
        EXPECT_EQ(key.key.get(), 0x70001U);
        EXPECT_STREQ(key.getName(), "n");
    }
    KeyItem key;
    EXPECT_EQ(key.decode(AutoPtr<Item>()).getCode(), 7);
}

TEST(UserDataKey, DecodeRefusesOtherSizes) {
    for (unsigned const n : {0U, 1U, 279U, 281U, 1000U}) {
        KeyItem key("n", Key(0x70001), audio3, static_cast<Type>(0), 1);
        AutoPtr<Item> item(new Item(Key(0x70002), audio3, nullptr, n));
        expectError(key.decode(item), 9, "decode");
        EXPECT_FALSE(key.valid);
        EXPECT_EQ(key.key.get(), 0x70001U);
        EXPECT_EQ(key.getLength(), 298U);
    }
}

TEST(UserDataKey, EncodeNeedsABlockOfItsSize) {
    Bytes storage = Bytes().fill(400, 0xEE);
    for (unsigned const n : {0U, 279U, 281U}) {
        KeyItem key("n", Key(0x70001), audio3, static_cast<Type>(0), 1);
        key.Item::init(Key(0x70001), audio3, nullptr, n);
        GxfBuffer buffer = storage.emptyBuffer();
        expectError(key.encode(buffer), 12, "encode");
        EXPECT_EQ(buffer.nOccupied(), 0U);
    }
    KeyItem key("n", Key(0x70001), audio3, static_cast<Type>(0), 1);
    key.data = nullptr;
    GxfBuffer buffer = storage.emptyBuffer();
    expectError(key.encode(buffer), 12, "encode");
    EXPECT_EQ(storage, Bytes().fill(400, 0xEE));
}

TEST(UserDataKey, EncodeWithoutRoomRebuildsTheBlock) {
    KeyItem const key("Title", Key(0x70005), audio3, static_cast<Type>(0), 12);
    Bytes storage = Bytes().fill(297, 0xEE);
    GxfBuffer buffer = storage.emptyBuffer();
    expectError(key.encode(buffer), 12, "encode");
    EXPECT_EQ(buffer.nOccupied(), 0U);
    EXPECT_EQ(dataOf(key), newKeyBlock("String", "Title", 12));
}

TEST(UserDataKey, TextWithoutRoomForItsTerminatorIsLeftOut) {
    struct Row {
        AutoArrayPtr<char> KeyItem::*text;
        unsigned offset;
        unsigned size;
    };
    for (Row const row : {Row{&KeyItem::vendor, 20, 32},
                          {&KeyItem::className, 52, 32},
                          {&KeyItem::valueTypeName, 84, 80},
                          {&KeyItem::pairName, 164, 80},
                          {&KeyItem::version, 244, 32}}) {
        for (unsigned const size : {row.size - 1, row.size, row.size + 1}) {
            KeyItem key("Title", Key(0x70005), audio3, static_cast<Type>(0), 12);
            std::memset(key.data.get(), 0xEE, 282);
            key.*row.text = FormatStr("%s", std::string(size, 'x').c_str()).releaseArrayString();
            Bytes const block = newKeyBlock("String", "Title", 12);
            std::vector<unsigned char> expected = block.vector();
            auto const at = expected.begin() + row.offset;
            MessageCapture const capture;
            if (size < row.size) {
                std::fill(at, at + size, 'x');
                *(at + size) = 0;
                std::fill(at + size + 1, at + row.size, 0);
            } else {
                expected.erase(at, at + row.size);
                expected.resize(282, 0xEE);
            }
            Bytes const item = encoded(key);
            EXPECT_EQ(std::vector(item.vector().begin() + 16, item.vector().end()), expected);
            EXPECT_EQ(item.size(), 298U);
            if (size < row.size) {
                EXPECT_THAT(capture.texts(), IsEmpty());
            } else {
                std::string const missing = std::to_string(row.size);
                EXPECT_THAT(capture.texts(MessageKind::Info),
                            ElementsAre("<<<<<<<\nEncoded " + std::to_string(282 - row.size) +
                                        "b != dataLen of 282b (missing " + missing +
                                        "b)\n>>>>>>>\n"));
            }
        }
    }
}

TEST(UserDataKey, EncodeOfAKeyWithoutTexts) {
    KeyItem key;
    key.Item::init(Key(0x70005), audio3, nullptr, 280);
    MessageCapture const capture;
    EXPECT_EQ(encoded(key), itemBytes(0x70005, Bytes().u32Lsbf(0xFFFFFFFF).fill(278)));
    EXPECT_THAT(capture.texts(), ElementsAre("<<<<<<<\nEncoded 10b != dataLen of 282b (missing "
                                             "272b)\n>>>>>>>\n"));
}

TEST(UserDataKey, TextsAreComparedThroughTheData) {
    KeyItem key("Title", Key(0x70005), audio3, static_cast<Type>(0), 12);
    KeyItem const other("Other", Key(0x70005), audio3, static_cast<Type>(1), 13);
    EXPECT_TRUE(key.isEqual(other));
    encoded(key);
    EXPECT_FALSE(key.isEqual(other));
    encoded(other);
    EXPECT_FALSE(key.isEqual(other));
    KeyItem const same("Title", Key(0x70005), audio3, static_cast<Type>(0), 12);
    encoded(same);
    EXPECT_TRUE(key.isEqual(same));
}

TEST(UserDataKey, Text) {
    KeyItem const key("100%% %s", Key(0x70005), audio3, static_cast<Type>(0), 12);
    std::string const base =
        "len=298b\npos=4294967295\ntrk=Audio3\nseq=0\nkey=0x70005 type=key\npayload=282b";
    std::string const text = base + "\npos=4294967295\nvendor=Zorvan Media Subsystem\n"
                                    "class=userdata\nvalueType=string(String)\n"
                                    "pairName=100% %s\nver=1\nvalueSize=12b";
    EXPECT_EQ(printed(key), text);
    EXPECT_EQ(key.toString().get(), text);
    EXPECT_EQ(printed(key, 2),
              "len=298b\n  pos=4294967295\n  trk=Audio3\n  seq=0\n  key=0x70005 type=key\n"
              "  payload=282b\n  pos=4294967295\n  vendor=Zorvan Media Subsystem\n"
              "  class=userdata\n  valueType=string(String)\n  pairName=100% %s\n  ver=1\n"
              "  valueSize=12b");
    // Encoding is the only virtual operation of an item.
    EXPECT_EQ(printed<Item>(key), base);
    EXPECT_EQ(static_cast<Item const&>(key).toString().get(), base);

    KeyItem odd;
    decodeKey(odd, oddKeyBlock(), 0x7000A);
    EXPECT_EQ(printed(odd), "len=298b\npos=4294967295\ntrk=Audio3\nseq=0\nkey=0x7000a type=key\n"
                            "payload=282b\npos=16909060\nvendor=Maker\nclass=Class\n"
                            "valueType=float(r4)\npairName=Name\nver=v7\nvalueSize=84281096b");
}

TEST(UserDataKey, EncodeLogs) {
    KeyItem key("n", Key(0x70005), audio3, static_cast<Type>(0), 1);
    MessageCapture capture;
    {
        ChannelSetting const level(gxfEncodeDetail, 2);
        encoded(key);
        EXPECT_THAT(capture.texts(), IsEmpty());
    }
    ChannelSetting const level(gxfEncodeDetail, 3);
    encoded(key);
    EXPECT_THAT(capture.texts(),
                ElementsAre("start Media Desc encode @0\n",
                            "end Userdata encode len=298b\npos=4294967295\ntrk=Audio3\nseq=0\n"
                            "key=0x70005 type=key\npayload=282b\n"));
    capture.clear();
    key.data = nullptr;
    Bytes storage = Bytes().fill(400);
    GxfBuffer buffer = storage.emptyBuffer();
    EXPECT_FALSE(key.encode(buffer));
    EXPECT_THAT(capture.texts(), IsEmpty());
}

#include <gtest/gtest.h>

#include <iterator>
#include <optional>
#include <random>
#include <string>
#include <vector>

#include <gxftypes/packet/gxf.h>
#include <testing/allocation_count.h>
#include <testing/capture.h>
#include <testing/stream_builder.h>

using namespace GxfTypes;
using namespace GxfTesting;

namespace {

constexpr unsigned noDebug = 0;
constexpr unsigned errorsBit = 1U << gxfDebugErrors;
constexpr unsigned arraysBit = 1U << gxfDebugArrays;

using Texts = std::vector<std::string>;

/// A table as a reader gets it: from the 16 bytes of its header, with the payload still to come.
AutoRefPtr<FieldLocTblPacket> arrive(PacketPool& pool, std::size_t payloadLength) {
    Bytes bytes = header(0xFC, static_cast<std::uint32_t>(16 + payloadLength));
    GxfBuffer buffer = bytes.filledBuffer();
    AutoRefPtr<Packet> const packetHeader = pool.alloc(packetTypeHeader);
    EXPECT_TRUE(packetHeader->decode(buffer));
    return packetHeader->createActual()->getFltPacket();
}

AutoRefPtr<FieldLocTblPacket> decoded(PacketPool& pool, Bytes payload) {
    AutoRefPtr<FieldLocTblPacket> const flt = arrive(pool, payload.size());
    GxfBuffer buffer = payload.filledBuffer();
    EXPECT_TRUE(flt->decode(buffer));
    EXPECT_EQ(0U, buffer.nOccupied());
    return flt;
}

void setTable(FieldLocTblPacket& flt, std::vector<unsigned> const& entries) {
    flt.table.resize(static_cast<unsigned>(entries.size()));
    for (unsigned i = 0; i < flt.table.size(); ++i) {
        flt.table[i] = entries[i];
    }
}

std::vector<unsigned> tableOf(FieldLocTblPacket const& flt) {
    std::vector<unsigned> entries;
    for (unsigned i = 0; i < flt.table.size(); ++i) {
        entries.push_back(flt.table[i]);
    }
    return entries;
}

std::string textOfPacket(FieldLocTblPacket const& flt, unsigned indent) {
    FormatStr text("<");
    EXPECT_EQ(&text, &flt.toString(indent, text));
    return text.get();
}

void expectBound(OffsetBound const& bound, unsigned field, unsigned long long offset,
                 unsigned index) {
    EXPECT_EQ(field, bound.field);
    EXPECT_EQ(offset, bound.offset);
    EXPECT_EQ(offsetEstimated, bound.type);
    EXPECT_EQ(index, bound.index);
}

bool same(OffsetBound const& a, OffsetBound const& b) {
    return a.field == b.field && a.offset == b.offset && a.type == b.type && a.index == b.index;
}

OffsetBracket const untouched{{11, 22, static_cast<OffsetType>(33), 44},
                              {55, 66, static_cast<OffsetType>(77), 88}};

} // namespace

TEST(FieldLocTblPacket, FromThePoolIsEmptyAndValid) {
    PacketPool pool;
    AutoRefPtr<FieldLocTblPacket> const flt = pool.alloc(packetTypeFieldLocTbl)->getFltPacket();
    EXPECT_EQ(packetTypeFieldLocTbl, flt->getType());
    EXPECT_EQ(252U, static_cast<unsigned>(flt->getType()));
    EXPECT_EQ(0U, flt->fieldsPerEntry);
    EXPECT_EQ(0U, flt->firstField);
    EXPECT_EQ(0U, flt->table.size());
    EXPECT_TRUE(flt->packetValid);
    EXPECT_TRUE(flt->isValid());
}

TEST(FieldLocTblPacket, BuiltOverAPoolIsValidAndOverAHeaderIsNot) {
    PacketPool pool;
    FieldLocTblPacket fresh(pool);
    EXPECT_EQ(packetTypeFieldLocTbl, fresh.getType());
    EXPECT_TRUE(fresh.isValid());
    EXPECT_EQ(0U, fresh.table.size());
    EXPECT_EQ(0U, fresh.fieldsPerEntry);
    EXPECT_EQ(0U, fresh.firstField);

    fresh.length = 24;
    fresh.fileOffset = 4096;
    Packet& source = fresh;
    FieldLocTblPacket const copy(source);
    EXPECT_EQ(24U, copy.length);
    EXPECT_EQ(4096U, copy.getFileOffset());
    EXPECT_FALSE(copy.packetValid);
    EXPECT_FALSE(copy.isValid());
    EXPECT_EQ(0U, copy.table.size());
    EXPECT_EQ(0U, copy.fieldsPerEntry);
    EXPECT_EQ(0U, copy.firstField);
}

TEST(FieldLocTblPacket, BothResetsEmptyTheTable) {
    PacketPool pool;
    AutoRefPtr<FieldLocTblPacket> const model = arrive(pool, 50);
    AutoRefPtr<FieldLocTblPacket> const flt = decoded(pool, fltPayload(25, {1, 2, 3}));
    flt->firstField = 7;

    flt->reset(packetTypeFieldLocTbl);
    EXPECT_TRUE(flt->isValid());
    EXPECT_EQ(16U, flt->length);
    EXPECT_EQ(0U, flt->table.size());
    EXPECT_EQ(0U, flt->fieldsPerEntry);
    EXPECT_EQ(0U, flt->firstField);

    flt->fieldsPerEntry = 5;
    flt->firstField = 7;
    setTable(*flt, {1, 2});
    flt->reset(*model);
    EXPECT_FALSE(flt->isValid());
    EXPECT_FALSE(flt->packetValid);
    EXPECT_EQ(66U, flt->length);
    EXPECT_EQ(0U, flt->table.size());
    EXPECT_EQ(0U, flt->fieldsPerEntry);
    EXPECT_EQ(0U, flt->firstField);
}

TEST(FieldLocTblPacket, PartsOfThePayload) {
    PacketPool pool;
    Bytes none;
    GxfBuffer empty = none.filledBuffer();
    AutoRefPtr<FieldLocTblPacket> const flt = arrive(pool, 4008);
    EXPECT_TRUE(flt->needsAllData(empty));
    EXPECT_EQ(4008U, flt->getPayloadLength());
    EXPECT_EQ(8U, flt->getPart1Length());
    EXPECT_EQ(4000U, flt->getPart2Length());
    flt->length = 16 + 7;
    EXPECT_EQ(8U, flt->getPart1Length());
    EXPECT_EQ(0xFFFFFFFFU, flt->getPart2Length());
}

TEST(FieldLocTblPacket, IsCastToItselfAndToNothingElse) {
    PacketPool pool;
    AutoRefPtr<Packet> const packet = pool.alloc(packetTypeFieldLocTbl);
    EXPECT_EQ(packet.get(), packet->getFltPacket().get());
    EXPECT_EQ(nullptr, packet->getMapPacket().get());
    EXPECT_EQ(nullptr, packet->getMediaPacket().get());
    EXPECT_EQ(nullptr, packet->getUmfPacket().get());
    EXPECT_EQ(nullptr, packet->getEosPacket().get());
    EXPECT_EQ(nullptr, packet->getAutoHdrPtr().get());
}

TEST(FieldLocTblPacket, ReadsLittleEndian) {
    PacketPool pool;
    AutoRefPtr<FieldLocTblPacket> const flt =
        decoded(pool, {0x2C, 0x01, 0x00, 0x00, 0x03, 0x00, 0x00, 0x00, 0x01, 0x02,
                       0x03, 0x04, 0x02, 0x02, 0x03, 0x04, 0xFE, 0xFF, 0xFF, 0xFF});
    EXPECT_EQ(300U, flt->fieldsPerEntry);
    EXPECT_EQ(0U, flt->firstField);
    EXPECT_EQ((std::vector<unsigned>{0x04030201, 0x04030202, 0xFFFFFFFE}), tableOf(*flt));
    EXPECT_TRUE(flt->isValid());
}

TEST(FieldLocTblPacket, ASecondDecodeReplacesTheTable) {
    PacketPool pool;
    AutoRefPtr<FieldLocTblPacket> const flt = decoded(pool, fltPayload(10, {5, 6, 7, 8}));
    Bytes next = fltPayload(20, {9, 10}, 8);
    GxfBuffer buffer = next.filledBuffer();
    EXPECT_TRUE(flt->decode(buffer));
    EXPECT_EQ(20U, flt->fieldsPerEntry);
    EXPECT_EQ((std::vector<unsigned>{9, 10}), tableOf(*flt));
    EXPECT_TRUE(flt->isValid());
}

TEST(FieldLocTblPacket, AValidPayloadUnderABadHeaderIsNotValid) {
    PacketPool pool;
    AutoRefPtr<FieldLocTblPacket> const flt = decoded(pool, fltPayload(10, {5, 6}));
    flt->trailerE2 = 0xE1;
    EXPECT_TRUE(flt->packetValid);
    EXPECT_FALSE(flt->isValid());
}

TEST(FieldLocTblPacket, PaddingIsConsumedAndWhatFollowsIsNot) {
    PacketPool pool;
    Bytes payload = fltPayload(10, {5, 6}, 12);
    AutoRefPtr<FieldLocTblPacket> const flt = arrive(pool, payload.size());
    payload.text("next");
    GxfBuffer buffer = payload.filledBuffer();
    ASSERT_TRUE(flt->decode(buffer));
    EXPECT_EQ(28U, buffer.beginOffset());
    EXPECT_EQ(Bytes().text("next"), Bytes::occupied(buffer));
    EXPECT_TRUE(flt->isValid());
}

TEST(FieldLocTblPacket, PayloadBelowEightBytesFailsAndConsumesNothing) {
    for (unsigned payloadLength = 0; payloadLength < 8; ++payloadLength) {
        SCOPED_TRACE(payloadLength);
        PacketPool pool;
        AutoRefPtr<FieldLocTblPacket> const flt = decoded(pool, fltPayload(10, {5, 6}));
        flt->firstField = 3;
        flt->length = 16 + payloadLength;
        Bytes payload = fltPayload(20, {1});
        GxfBuffer buffer = payload.filledBuffer();
        MessageCapture const messages;
        OpResult const result = flt->decode(buffer);
        EXPECT_FALSE(result);
        EXPECT_EQ(OpResult::Error, result.getType());
        EXPECT_EQ(GxfOpSubsystem::badDecodeSize, result.getCode());
        EXPECT_STREQ("", result.getText());
        EXPECT_STREQ("decode", result.getLocation().function);
        EXPECT_NE(0U, result.getLocation().line);
        EXPECT_EQ(1U, messages.count(MessageKind::Trace));
        EXPECT_EQ(0U, buffer.beginOffset());
        EXPECT_EQ(12U, buffer.nOccupied());
        EXPECT_EQ(10U, flt->fieldsPerEntry);
        EXPECT_EQ(3U, flt->firstField);
        EXPECT_EQ((std::vector<unsigned>{5, 6}), tableOf(*flt));
        EXPECT_FALSE(flt->packetValid);
        EXPECT_FALSE(flt->isValid());
    }
}

TEST(FieldLocTblPacket, ACountThatDoesNotFitFailsBehindTheTwoWords) {
    struct Row {
        std::uint32_t count;
        std::size_t room;
    };
    Row const rows[] = {
        {1, 0},          {1, 3},
        {2, 7},          {1000, 3999},
        {1001, 4004},    {1001, 40000},
        {1001, 0},       {0x3FFFFFFF, 8},
        {0x40000000, 8}, // times 4 is 0
        {0x40000001, 8}, {0x40000002, 8},
        {0x80000000, 8}, {0xC0000001, 4000},
        {0xFFFFFFFF, 8}, {0x400003E8, 4000},
    };
    for (Row const& row : rows) {
        SCOPED_TRACE(testing::Message() << row.count << " entries in " << row.room << " bytes");
        PacketPool pool;
        AutoRefPtr<FieldLocTblPacket> const flt = decoded(pool, fltPayload(10, {5, 6}));
        Bytes payload;
        payload.u32Lsbf(77).u32Lsbf(row.count).fill(row.room, 1);
        flt->length = static_cast<std::uint32_t>(16 + payload.size());
        GxfBuffer buffer = payload.filledBuffer();
        OpResult const result = flt->decode(buffer);
        EXPECT_FALSE(result);
        EXPECT_EQ(OpResult::Error, result.getType());
        EXPECT_EQ(GxfOpSubsystem::badDecodeData, result.getCode());
        EXPECT_STREQ("", result.getText());
        EXPECT_STREQ("decode", result.getLocation().function);
        EXPECT_NE(0U, result.getLocation().line);
        EXPECT_EQ(8U, buffer.beginOffset());
        EXPECT_EQ(row.room, buffer.nOccupied());
        EXPECT_EQ(77U, flt->fieldsPerEntry);
        EXPECT_EQ((std::vector<unsigned>{5, 6}), tableOf(*flt));
        EXPECT_FALSE(flt->packetValid);
        EXPECT_FALSE(flt->isValid());
    }
}

TEST(FieldLocTblPacket, AThousandEntriesAreTheMost) {
    PacketPool pool;
    std::vector<std::uint32_t> entries;
    for (unsigned i = 0; i < 1000; ++i) {
        entries.push_back(3 * i + 1);
    }
    AutoRefPtr<FieldLocTblPacket> const flt = decoded(pool, fltPayload(25, entries));
    ASSERT_EQ(1000U, flt->table.size());
    EXPECT_EQ(1U, flt->table[0]);
    EXPECT_EQ(2998U, flt->table[999]);
    EXPECT_TRUE(flt->isValid());
}

TEST(FieldLocTblPacket, NoEntriesAreAValidTable) {
    PacketPool pool;
    MessageCapture const messages;
    ChannelSetting const errors(gxfDebug, errorsBit);
    for (std::size_t const padding : {0U, 4U, 4096U}) {
        AutoRefPtr<FieldLocTblPacket> const flt = decoded(pool, fltPayload(25, {}, padding));
        EXPECT_EQ(25U, flt->fieldsPerEntry);
        EXPECT_EQ(0U, flt->table.size());
        EXPECT_TRUE(flt->checkTableValidity());
        EXPECT_TRUE(flt->isValid());
    }
    EXPECT_EQ(0U, messages.count(MessageKind::Error));
    EXPECT_EQ(0U, messages.count(MessageKind::Trace));
}

TEST(FieldLocTblPacket, AnEmptyTableBehindAFullOneDoesNotLookAtTheOldEntries) {
    PacketPool pool;
    AutoRefPtr<FieldLocTblPacket> const flt = decoded(pool, fltPayload(25, {9, 8, 7}));
    EXPECT_FALSE(flt->isValid());
    Bytes empty = fltPayload(25, {}, 12);
    GxfBuffer buffer = empty.filledBuffer();
    EXPECT_TRUE(flt->decode(buffer));
    EXPECT_EQ(0U, flt->table.size());
    EXPECT_TRUE(flt->isValid());
}

TEST(FieldLocTblPacket, PacketOfEveryShorterLength) {
    Bytes whole = fltPayload(300, {5, 6, 7});
    for (unsigned payloadLength = 0; payloadLength <= whole.size(); ++payloadLength) {
        SCOPED_TRACE(payloadLength);
        PacketPool pool;
        AutoRefPtr<FieldLocTblPacket> const flt = arrive(pool, payloadLength);
        std::vector<unsigned char> present(whole.data(), whole.data() + payloadLength);
        GxfBuffer buffer(present.data(), payloadLength, GxfBuffer::DataState::filled,
                         MediaAgent(nullptr));
        OpResult const result = flt->decode(buffer);
        if (payloadLength < 8) {
            EXPECT_EQ(GxfOpSubsystem::badDecodeSize, result.getCode());
            EXPECT_EQ(0U, buffer.beginOffset());
        } else if (payloadLength < 20) {
            EXPECT_EQ(GxfOpSubsystem::badDecodeData, result.getCode());
            EXPECT_EQ(8U, buffer.beginOffset());
        } else {
            EXPECT_TRUE(result);
            EXPECT_EQ(20U, buffer.beginOffset());
        }
        EXPECT_EQ(payloadLength == 20, flt->isValid());
    }
}

TEST(FieldLocTblPacket, BytesThatAreNotPresentReadAsZeroAndThePositionIsRight) {
    Bytes const whole = fltPayload(0x04030201, {0x11223344, 0x21223344, 0x31223344}, 6);
    for (unsigned n = 0; n <= whole.size(); ++n) {
        SCOPED_TRACE(n);
        PacketPool pool;
        AutoRefPtr<FieldLocTblPacket> const flt = arrive(pool, whole.size());
        std::vector<unsigned char> present(whole.data(), whole.data() + n);
        GxfBuffer buffer(present.data(), n, GxfBuffer::DataState::filled, MediaAgent(nullptr));
        EXPECT_TRUE(flt->decode(buffer));
        EXPECT_EQ(26U, buffer.beginOffset());
        EXPECT_EQ(0U, buffer.nOccupied());

        std::vector<unsigned char> padded = present;
        padded.resize(whole.size());
        auto const wordAt = [&padded](std::size_t at) {
            return padded[at] | (static_cast<unsigned>(padded[at + 1]) << 8) |
                   (static_cast<unsigned>(padded[at + 2]) << 16) |
                   (static_cast<unsigned>(padded[at + 3]) << 24);
        };
        EXPECT_EQ(wordAt(0), flt->fieldsPerEntry);
        ASSERT_EQ(wordAt(4), flt->table.size());
        for (unsigned i = 0; i < flt->table.size(); ++i) {
            EXPECT_EQ(wordAt(8 + 4 * i), flt->table[i]);
        }
    }
}

TEST(FieldLocTblPacket, ALengthBelowTheHeaderWrapsAndStaysInsideMemory) {
    for (unsigned length = 0; length < 16; ++length) {
        SCOPED_TRACE(length);
        PacketPool pool;
        AutoRefPtr<FieldLocTblPacket> const flt = arrive(pool, 0);
        flt->length = length;
        Bytes payload;
        payload.u32Lsbf(10).u32Lsbf(1000).u32Lsbf(7);
        GxfBuffer buffer = payload.filledBuffer();
        EXPECT_TRUE(flt->decode(buffer));
        EXPECT_EQ(0U, buffer.nOccupied());
        EXPECT_EQ(0x100000000ULL + length - 16, buffer.beginOffset());
        EXPECT_EQ(1000U, flt->table.size());
        EXPECT_EQ(7U, flt->table[0]);
        EXPECT_EQ(0U, flt->table[999]);
        EXPECT_FALSE(flt->isValid());
    }
}

TEST(FieldLocTblPacket, ValidityOfTables) {
    struct Row {
        std::vector<std::uint32_t> entries;
        bool valid;
        Texts errors; ///< message on zeroed entries
        Texts traces; ///< result that is raised and dropped
    };
    std::string const invalid = "error badDecodeData: FLT offsets are invalid @idx";
    Row const rows[] = {
        {{}, true, {}, {}},
        {{0}, true, {}, {}},
        {{7}, true, {}, {}},
        {{0xFFFFFFFF}, true, {}, {}},
        {{5, 5, 9}, true, {}, {}},
        {{0, 5}, true, {}, {}},
        {{5, 4}, false, {}, {invalid + "[1]\n"}},
        {{5, 6, 7, 6, 5}, false, {}, {invalid + "[3]\n"}},
        {{5, 0, 4}, true, {"FLT has zeroed offset @idx[1]\n"}, {}},
        {{5, 0, 4, 3}, false, {"FLT has zeroed offset @idx[1]\n"}, {invalid + "[3]\n"}},
        {{5, 4, 0}, false, {}, {invalid + "[1]\n"}},
        {{0, 0, 0}, true, {"FLT has zeroed offset @idx[1]\n"}, {}},
        {{1, 2, 3, 0}, true, {"FLT has zeroed offset @idx[3]\n"}, {}},
        {{0xFFFFFFFE, 0xFFFFFFFF}, true, {}, {}},
        {{0xFFFFFFFF, 1}, false, {}, {invalid + "[1]\n"}},
        {{0x80000000, 0x7FFFFFFF}, false, {}, {invalid + "[1]\n"}},
        {{0x7FFFFFFF, 0x80000000}, true, {}, {}},
    };
    for (Row const& row : rows) {
        SCOPED_TRACE(testing::PrintToString(row.entries));
        for (unsigned const debug : {errorsBit, ~errorsBit}) {
            PacketPool pool;
            ChannelSetting const errors(gxfDebug, debug);
            MessageCapture messages;
            AutoRefPtr<FieldLocTblPacket> const flt = decoded(pool, fltPayload(25, row.entries));
            bool const tells = debug == errorsBit;
            EXPECT_EQ(tells ? row.errors : Texts(), messages.texts(MessageKind::Error));
            EXPECT_EQ(tells ? row.traces : Texts(), messages.texts(MessageKind::Trace));
            EXPECT_EQ(row.valid, flt->packetValid);
            EXPECT_EQ(row.valid, flt->isValid());
            EXPECT_EQ(row.valid, flt->checkTableValidity());
            EXPECT_EQ(25U, flt->fieldsPerEntry);
            EXPECT_EQ(row.entries, tableOf(*flt));
        }
    }
}

TEST(FieldLocTblPacket, ZeroedEntriesAreToldOncePerObject) {
    PacketPool pool;
    ChannelSetting const errors(gxfDebug, errorsBit);
    MessageCapture messages;
    FieldLocTblPacket* object = nullptr;
    {
        AutoRefPtr<FieldLocTblPacket> const flt = decoded(pool, fltPayload(25, {5, 0, 0, 7}));
        object = flt.get();
        EXPECT_EQ((Texts{"FLT has zeroed offset @idx[1]\n"}), messages.texts());
        EXPECT_TRUE(flt->isValid());
    }
    messages.clear();
    {
        AutoRefPtr<FieldLocTblPacket> const flt = decoded(pool, fltPayload(25, {5, 6, 0}));
        ASSERT_EQ(object, flt.get());
        EXPECT_TRUE(flt->isValid());
        flt->reset(packetTypeFieldLocTbl);
        setTable(*flt, {1, 0});
        EXPECT_TRUE(flt->checkTableValidity());
        EXPECT_EQ(Texts(), messages.texts());

        AutoRefPtr<FieldLocTblPacket> const second = decoded(pool, fltPayload(25, {5, 6, 0}));
        ASSERT_NE(object, second.get());
        EXPECT_EQ((Texts{"FLT has zeroed offset @idx[2]\n"}), messages.texts());
    }
}

TEST(FieldLocTblPacket, ZeroedEntriesThatWereSilentAreNotCounted) {
    PacketPool pool;
    MessageCapture const messages;
    AutoRefPtr<FieldLocTblPacket> const flt = decoded(pool, fltPayload(25, {5, 0, 7}));
    EXPECT_EQ(Texts(), messages.texts());
    ChannelSetting const errors(gxfDebug, errorsBit);
    EXPECT_TRUE(flt->checkTableValidity());
    EXPECT_TRUE(flt->checkTableValidity());
    EXPECT_EQ((Texts{"FLT has zeroed offset @idx[1]\n"}), messages.texts());
}

TEST(FieldLocTblPacket, InvalidTablesAreToldEachTime) {
    PacketPool pool;
    ChannelSetting const errors(gxfDebug, errorsBit);
    MessageCapture const messages;
    AutoRefPtr<FieldLocTblPacket> const flt = decoded(pool, fltPayload(25, {5, 4}));
    EXPECT_FALSE(flt->checkTableValidity());
    EXPECT_EQ(2U, messages.count(MessageKind::Trace));
}

TEST(FieldLocTblPacket, IsEqualSamplesEveryFifthEntry) {
    PacketPool pool;
    std::vector<std::uint32_t> const entries{1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12};
    AutoRefPtr<FieldLocTblPacket> const flt = decoded(pool, fltPayload(25, entries));
    AutoRefPtr<FieldLocTblPacket> const other = decoded(pool, fltPayload(30, entries));
    for (unsigned i = 0; i < entries.size(); ++i) {
        EXPECT_TRUE(flt->isEqual(*other));
        EXPECT_TRUE(other->isEqual(*flt));
        other->table[i] ^= 0x80000000;
        EXPECT_EQ(i % 5 != 0, flt->isEqual(*other)) << i;
        EXPECT_EQ(i % 5 != 0, other->isEqual(*flt)) << i;
        other->table[i] ^= 0x80000000;
    }
}

TEST(FieldLocTblPacket, IsEqualComparesSizeValidityAndClass) {
    PacketPool pool;
    AutoRefPtr<FieldLocTblPacket> const flt = decoded(pool, fltPayload(25, {1, 2, 3}));
    AutoRefPtr<FieldLocTblPacket> const other = decoded(pool, fltPayload(25, {1, 2, 3, 4}));
    EXPECT_TRUE(flt->isEqual(*flt));
    EXPECT_FALSE(flt->isEqual(*other));
    EXPECT_FALSE(other->isEqual(*flt));
    other->table.resize(3);
    EXPECT_TRUE(flt->isEqual(*other));
    other->firstField = 9;
    EXPECT_TRUE(flt->isEqual(*other));
    other->packetValid = false;
    EXPECT_FALSE(flt->isEqual(*other));
    flt->packetValid = false;
    EXPECT_TRUE(flt->isEqual(*other));
    flt->packetValid = true;
    flt->reserved = 1;
    EXPECT_TRUE(flt->isEqual(*other));

    AutoRefPtr<Packet> const media = pool.alloc(packetTypeMedia);
    AutoRefPtr<Packet> const eos = pool.alloc(packetTypeEos);
    AutoRefPtr<FieldLocTblPacket> const fresh = pool.alloc(packetTypeFieldLocTbl)->getFltPacket();
    EXPECT_FALSE(fresh->isEqual(*media));
    EXPECT_FALSE(fresh->isEqual(*eos));
}

TEST(FieldLocTblPacket, EncodeWritesTheHeaderAlone) {
    PacketPool pool;
    AutoRefPtr<FieldLocTblPacket> const flt = decoded(pool, fltPayload(25, {1, 2, 3}));
    Bytes storage;
    storage.fill(64);
    GxfBuffer buffer = storage.emptyBuffer();
    EXPECT_TRUE(flt->encode(buffer));
    EXPECT_EQ((Bytes{0, 0, 0, 0, 1, 0xFC, 0, 0, 0, 36, 0, 0, 0, 0, 0xE1, 0xE2}),
              Bytes::occupied(buffer));
}

TEST(FieldLocTblPacket, MessagesOfADecode) {
    PacketPool pool;
    AutoRefPtr<FieldLocTblPacket> const flt = arrive(pool, 12);
    Bytes bytes = fltPayload(25, {2});
    bytes.add(fltPayload(25, {3}));
    GxfBuffer buffer = bytes.filledBuffer();
    MessageCapture messages;
    {
        ChannelSetting const level(gxfDecodeDetail, 1);
        EXPECT_TRUE(flt->decode(buffer));
        EXPECT_EQ(Texts(), messages.texts());
    }
    ChannelSetting const level(gxfDecodeDetail, 2);
    EXPECT_TRUE(flt->decode(buffer));
    EXPECT_EQ((Texts{"start FieldLocTblPacket decode @12\n",
                     "end FieldLocTblPacket decode: "
                     "fieldLocTbl:28b@0={\n25 flds/entry,entry[1]={f    0:        3072\n"}),
              messages.texts(MessageKind::Info));
    EXPECT_EQ(2U, messages.texts().size());

    messages.clear();
    flt->length = 16 + 7;
    EXPECT_FALSE(flt->decode(buffer));
    EXPECT_EQ((Texts{"start FieldLocTblPacket decode @24\n"}), messages.texts());
}

TEST(FieldLocTblPacket, AnUnorderedTableEndsWithItsMessageToo) {
    PacketPool pool;
    AutoRefPtr<FieldLocTblPacket> const flt = arrive(pool, 16);
    Bytes bytes = fltPayload(25, {3, 2});
    GxfBuffer buffer = bytes.filledBuffer();
    MessageCapture const messages;
    ChannelSetting const level(gxfDecodeDetail, 2);
    EXPECT_TRUE(flt->decode(buffer));
    EXPECT_EQ((Texts{"start FieldLocTblPacket decode @0\n",
                     "end FieldLocTblPacket decode: fieldLocTbl:32b@0,invalid={\n"
                     "25 flds/entry,entry[2]={f    0:        3072, f   25:        2048\n"}),
              messages.texts());
}

TEST(FieldLocTblPacket, TextsOfTablesOfEverySmallSize) {
    struct Row {
        char const* brief;
        char const* all; ///< at an indent of 3
    };
    Row const rows[] = {
        {"", "}}"},
        {"f    0:        1024", "\n     f    0:        1024}}"},
        {"f    0:        1024, f   10:        2048",
         "\n     f    0:        1024, f   10:        2048}}"},
        {"f    0:        1024, f   10:        2048, f   20:        3072... ",
         "\n     f    0:        1024, f   10:        2048, f   20:        3072}}"},
        {"f    0:        1024, f   10:        2048, f   20:        3072, ... ",
         "\n     f    0:        1024, f   10:        2048, f   20:        3072, "
         "f   30:        4096}}"},
        {"f    0:        1024, f   10:        2048, f   20:        3072, ... ",
         "\n     f    0:        1024, f   10:        2048, f   20:        3072, "
         "f   30:        4096, f   40:        5120}}"},
        {"f    0:        1024, f   10:        2048, f   20:        3072, ... f 60: 6144}}",
         "\n     f    0:        1024, f   10:        2048, f   20:        3072, "
         "f   30:        4096, f   40:        5120, \n     f   50:        6144}}"},
        {"f    0:        1024, f   10:        2048, f   20:        3072, ... f 70: 7168}}",
         "\n     f    0:        1024, f   10:        2048, f   20:        3072, "
         "f   30:        4096, f   40:        5120, \n     f   50:        6144, "
         "f   60:        7168}}"},
    };
    PacketPool pool;
    AutoRefPtr<FieldLocTblPacket> const flt = pool.alloc(packetTypeFieldLocTbl)->getFltPacket();
    flt->fieldsPerEntry = 10;
    for (unsigned size = 0; size < std::size(rows); ++size) {
        SCOPED_TRACE(size);
        std::vector<unsigned> entries;
        for (unsigned i = 0; i < size; ++i) {
            entries.push_back(i + 1);
        }
        setTable(*flt, entries);
        std::string const words = "10 flds/entry,entry[" + std::to_string(size) + "]={";
        {
            ChannelSetting const channel(gxfDebug, noDebug);
            EXPECT_EQ("<fieldLocTbl:16b@0={\n   " + words + rows[size].brief,
                      textOfPacket(*flt, 3));
            EXPECT_EQ("fieldLocTbl:16b@0={\n" + words + rows[size].brief, flt->toString().get());
        }
        ChannelSetting const channel(gxfDebug, arraysBit);
        EXPECT_EQ("<fieldLocTbl:16b@0={\n   " + words + rows[size].all, textOfPacket(*flt, 3));
    }
}

TEST(FieldLocTblPacket, TextAtIndentZeroStillIndentsItsRows) {
    PacketPool pool;
    ChannelSetting const channel(gxfDebug, arraysBit);
    AutoRefPtr<FieldLocTblPacket> const flt = decoded(pool, fltPayload(25, {2, 4, 6, 8, 10, 12}));
    EXPECT_STREQ("fieldLocTbl:48b@0={\n25 flds/entry,entry[6]={"
                 "\n  f    0:        2048, f   25:        4096, f   50:        6144, "
                 "f   75:        8192, f  100:       10240, "
                 "\n  f  125:       12288}}",
                 flt->toString().get());
}

TEST(FieldLocTblPacket, TextOfWideNumbers) {
    PacketPool pool;
    AutoRefPtr<FieldLocTblPacket> const flt = pool.alloc(packetTypeFieldLocTbl)->getFltPacket();
    flt->fieldsPerEntry = 0x40000000;
    flt->firstField = 5;
    setTable(*flt, {0x00400000, 0xFFFFFFFF, 1, 2, 3, 4, 0x00600000});
    EXPECT_STREQ("fieldLocTbl:16b@0={\n1073741824 flds/entry,entry[7]={"
                 "f    5:  4294967296, f1073741829: 4398046510080, f-2147483643:        1024, "
                 "... f-1073741824: -2147483648}}",
                 flt->toString().get());

    flt->fieldsPerEntry = 100;
    EXPECT_STREQ("fieldLocTbl:16b@0={\n100 flds/entry,entry[7]={"
                 "f    5:  4294967296, f  105: 4398046510080, f  205:        1024, "
                 "... f700: -2147483648}}",
                 flt->toString().get());
}

TEST(FieldLocTblPacket, DecodeAllocatesNothing) {
    PacketPool pool;
    std::vector<std::uint32_t> entries(1000, 9);
    Bytes payload = fltPayload(25, entries);
    Bytes headerBytes = header(0xFC, static_cast<std::uint32_t>(16 + payload.size()));
    GxfBuffer headerBuffer = headerBytes.filledBuffer();
    AutoRefPtr<Packet> const packetHeader = pool.alloc(packetTypeHeader);
    ASSERT_TRUE(packetHeader->decode(headerBuffer));
    packetHeader->createActual();

    std::uint64_t const before = allocationCount();
    bool good = true;
    for (unsigned round = 0; round < 10; ++round) {
        GxfBuffer buffer = payload.filledBuffer();
        AutoRefPtr<Packet> const flt = packetHeader->createActual();
        good = good && flt->decode(buffer) && flt->isValid();
    }
    EXPECT_EQ(before, allocationCount());
    EXPECT_TRUE(good);
}

TEST(OffsetBound, HoldsItsFourValues) {
    OffsetBound const bound(1, 0x123456789ULL, static_cast<OffsetType>(5), 7);
    EXPECT_EQ(1U, bound.field);
    EXPECT_EQ(0x123456789ULL, bound.offset);
    EXPECT_EQ(5U, static_cast<unsigned>(bound.type));
    EXPECT_EQ(7U, bound.index);
    EXPECT_EQ(0U, static_cast<unsigned>(offsetEstimated));
    expectBound(OffsetBound::estimate(3, 0xFFFFFFFFFFULL, 4), 3, 0xFFFFFFFFFFULL, 4);
    expectBound(OffsetBound(), 0, 0, 0);
    expectBound(OffsetBracket().lower, 0, 0, 0);
    expectBound(OffsetBracket().upper, 0, 0, 0);
}

namespace {

/// Which entries a search must give; empty for none.
struct Found {
    std::optional<unsigned> lower;
    std::optional<unsigned> upper;
};

void expectSearch(FieldLocTblPacket& flt, unsigned field, unsigned margin, Found const& expected) {
    SCOPED_TRACE(testing::Message() << "field " << field << ", margin " << margin << ", "
                                    << flt.fieldsPerEntry << " fields per entry, first field "
                                    << flt.firstField << ", " << flt.table.size() << " entries");
    OffsetBracket bracket = untouched;
    EXPECT_EQ(expected.lower.has_value(), flt.findBounds(field, margin, bracket));
    auto const boundOf = [&flt](unsigned entry) {
        return OffsetBound(
            static_cast<unsigned>(std::uint64_t{flt.fieldsPerEntry} * entry + flt.firstField),
            std::uint64_t{flt.table[entry]} * 1024, offsetEstimated, entry);
    };
    EXPECT_TRUE(same(expected.lower ? boundOf(*expected.lower) : untouched.lower, bracket.lower))
        << "lower entry " << bracket.lower.index;
    EXPECT_TRUE(same(expected.upper ? boundOf(*expected.upper) : untouched.upper, bracket.upper))
        << "upper entry " << bracket.upper.index;
}

class FindBounds : public testing::Test {
  protected:
    FindBounds() {
        flt->fieldsPerEntry = 100;
        setTable(*flt, {10, 11, 12, 13, 14, 15, 16, 17, 18, 0xFFFFFFFF});
    }

    PacketPool pool;
    AutoRefPtr<FieldLocTblPacket> flt = pool.alloc(packetTypeFieldLocTbl)->getFltPacket();
};

} // namespace

TEST_F(FindBounds, GivesFieldPositionKindAndEntry) {
    OffsetBracket bracket = untouched;
    EXPECT_TRUE(flt->findBounds(250, 20, bracket));
    expectBound(bracket.lower, 200, 12 * 1024, 2);
    expectBound(bracket.upper, 300, 13 * 1024, 3);
    EXPECT_TRUE(flt->findBounds(850, 20, bracket));
    expectBound(bracket.lower, 800, 18 * 1024, 8);
    expectBound(bracket.upper, 900, 4398046510080ULL, 9);
}

TEST_F(FindBounds, WidensByTheMargin) {
    struct Row {
        unsigned field;
        unsigned margin;
        Found found;
    };
    Row const rows[] = {
        {250, 20, {2, 3}},
        {250, 100, {0, 5}},
        {300, 10, {2, 4}},
        {980, 50, {9, {}}},
        {1050, 20, {}},
        {10, 20, {}},
        // Exactly on an entry's field.
        {300, 0, {3, 4}},
        {299, 0, {2, 3}},
        {301, 0, {3, 4}},
        // The field as far from the start as the margin, and one closer.
        {20, 20, {0, 1}},
        {19, 20, {}},
        {1, 0, {0, 1}},
        {0, 0, {}},
        {1, 1, {0, 1}},
        // Doubled from a margin as wide as an entry's span.
        {500, 99, {4, 6}},
        {500, 100, {3, 8}},
        {500, 101, {2, 8}},
        {200, 100, {0, 5}},
        {199, 100, {}},
        // Around the table's end.
        {899, 0, {8, 9}},
        {900, 0, {9, {}}},
        {999, 0, {9, {}}},
        {1000, 0, {}},
        {1049, 50, {9, {}}},
        {1050, 50, {}},
        {880, 19, {8, 9}},
        {880, 20, {8, {}}},
    };
    for (Row const& row : rows) {
        expectSearch(*flt, row.field, row.margin, row.found);
    }
}

TEST_F(FindBounds, NeedsTwoEntries) {
    for (unsigned const size : {0U, 1U}) {
        flt->table.resize(size);
        for (unsigned const field : {0U, 1U, 50U, 100U, 4294967295U}) {
            expectSearch(*flt, field, 0, {});
            expectSearch(*flt, field, 10, {});
        }
    }
    flt->table.resize(2);
    expectSearch(*flt, 50, 10, {0, 1});
}

TEST_F(FindBounds, NoFieldsPerEntryIsNoAnswer) {
    flt->fieldsPerEntry = 0;
    for (unsigned const margin : {0U, 1U, 0x80000000U, 4294967295U}) {
        expectSearch(*flt, 500, margin, {});
    }
}

TEST_F(FindBounds, CountsFromTheFirstField) {
    flt->firstField = 1000;
    expectSearch(*flt, 1000, 0, {});
    expectSearch(*flt, 1001, 0, {0, 1});
    expectSearch(*flt, 1250, 20, {2, 3});
    expectSearch(*flt, 1010, 20, {}); // 990 lies in front of the first field
    expectSearch(*flt, 1999, 0, {9, {}});
    OffsetBracket bracket;
    EXPECT_TRUE(flt->findBounds(1250, 20, bracket));
    expectBound(bracket.lower, 1200, 12 * 1024, 2);
    expectBound(bracket.upper, 1300, 13 * 1024, 3);
}

TEST_F(FindBounds, LooksAtNoValidityAndNoValue) {
    flt->packetValid = false;
    flt->leader = 1;
    setTable(*flt, {9, 0, 3});
    MessageCapture const messages;
    OffsetBracket bracket;
    EXPECT_TRUE(flt->findBounds(50, 0, bracket));
    expectBound(bracket.lower, 0, 9 * 1024, 0);
    expectBound(bracket.upper, 100, 0, 1);
    EXPECT_TRUE(flt->findBounds(150, 0, bracket));
    expectBound(bracket.lower, 100, 0, 1);
    expectBound(bracket.upper, 200, 3 * 1024, 2);
    EXPECT_EQ(Texts(), messages.texts());
    EXPECT_EQ(Texts(), messages.texts(MessageKind::Trace));
}

TEST_F(FindBounds, ChangesNothingInThePacket) {
    std::vector<unsigned> const before = tableOf(*flt);
    OffsetBracket bracket;
    flt->findBounds(500, 100, bracket);
    EXPECT_EQ(before, tableOf(*flt));
    EXPECT_EQ(100U, flt->fieldsPerEntry);
    EXPECT_EQ(0U, flt->firstField);
    EXPECT_TRUE(flt->isValid());
}

TEST_F(FindBounds, SumsWrapAt32Bits) {
    // The doubled margin wraps to 0.
    expectSearch(*flt, 500, 0x80000000, {5, 6});
    // The upper target wraps to 4, in front of the lower one.
    flt->fieldsPerEntry = 0x10000000;
    expectSearch(*flt, 0xFFFFFFFF, 5, {});
    setTable(*flt, std::vector<unsigned>(16, 7));
    expectSearch(*flt, 0xFFFFFFFF, 5, {15, 1});
    // The entry behind the last number of all is entry 0.
    flt->fieldsPerEntry = 1;
    expectSearch(*flt, 0x80000001, 0x3FFFFFFF, {3, 0});
}

TEST_F(FindBounds, AgreesWithAWalkAlongTheTable) {
    std::mt19937 random(360);
    auto const upTo = [&random](unsigned limit) {
        return std::uniform_int_distribution<unsigned>(0, limit)(random);
    };
    unsigned answers = 0;
    for (unsigned round = 0; round < 20000; ++round) {
        flt->fieldsPerEntry = upTo(12);
        flt->firstField = upTo(3) == 0 ? upTo(20) : 0;
        setTable(*flt, std::vector<unsigned>(upTo(12), 1));
        for (unsigned i = 0; i < flt->table.size(); ++i) {
            flt->table[i] = upTo(0xFFFFFFFF);
        }
        unsigned const field = upTo(120);
        unsigned const margin = upTo(15);

        unsigned const wide = margin >= flt->fieldsPerEntry ? 2 * margin : margin;
        Found expected;
        bool const searched = flt->table.size() >= 2 && flt->fieldsPerEntry != 0 &&
                              field > flt->firstField && field >= wide + flt->firstField;
        if (searched) {
            for (unsigned i = 0; i < flt->table.size(); ++i) {
                unsigned const fieldOfEntry = flt->firstField + i * flt->fieldsPerEntry;
                bool const holdsLower = fieldOfEntry <= field - wide &&
                                        field - wide < fieldOfEntry + flt->fieldsPerEntry;
                if (holdsLower) {
                    expected.lower = i;
                }
                if (expected.lower && !expected.upper && fieldOfEntry > field + wide) {
                    expected.upper = i;
                }
            }
        }
        answers += expected.lower.has_value() ? 1 : 0;
        expectSearch(*flt, field, margin, expected);
        if (HasFailure()) {
            return;
        }
    }
    EXPECT_GT(answers, 4000U);
}

TEST_F(FindBounds, AgreesWithTheStepsModulo32Bits) {
    constexpr std::uint64_t modulus = 0x100000000ULL;
    std::mt19937 random(361);
    auto const anyNumber = [&random]() -> std::uint64_t {
        std::uint64_t const small = random() % 40;
        switch (random() % 5) {
        case 0:
            return small;
        case 1:
            return modulus - 1 - small;
        case 2:
            return (modulus / 2 - 20) + small;
        case 3:
            return (modulus / 4 - 20) + small;
        default:
            return random();
        }
    };
    unsigned lowers = 0;
    unsigned uppers = 0;
    for (unsigned round = 0; round < 100000; ++round) {
        std::uint64_t const perEntry = anyNumber();
        std::uint64_t const first = random() % 2 == 0 ? 0 : anyNumber();
        std::uint64_t const field = anyNumber();
        std::uint64_t const margin = anyNumber();
        auto const size = static_cast<unsigned>(random() % 20);
        flt->fieldsPerEntry = static_cast<unsigned>(perEntry);
        flt->firstField = static_cast<unsigned>(first);
        setTable(*flt, std::vector<unsigned>(size, static_cast<unsigned>(random())));

        Found expected;
        std::uint64_t const wide = (perEntry > margin ? margin : 2 * margin) % modulus;
        if (size >= 2 && first < field && field >= wide && perEntry != 0) {
            std::uint64_t const lower = ((field - wide + modulus - first) % modulus) / perEntry;
            std::uint64_t const target = (field + wide) % modulus;
            std::uint64_t upper = ((target + modulus - first) % modulus) / perEntry;
            if ((perEntry * upper + first) % modulus <= target) {
                upper = (upper + 1) % modulus;
            }
            if (lower < size) {
                expected.lower = static_cast<unsigned>(lower);
                if (upper < size) {
                    expected.upper = static_cast<unsigned>(upper);
                }
            }
        }
        lowers += expected.lower.has_value() ? 1 : 0;
        uppers += expected.upper.has_value() ? 1 : 0;
        expectSearch(*flt, static_cast<unsigned>(field), static_cast<unsigned>(margin), expected);
        if (HasFailure()) {
            return;
        }
    }
    EXPECT_GT(lowers, 5000U);
    EXPECT_GT(uppers, 2000U);
}

#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <functional>
#include <optional>
#include <random>
#include <string>
#include <type_traits>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <testing/bytes.h>
#include <testing/capture.h>

using namespace GxfTypes;
using namespace GxfTesting;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

using Material = UmfPacket::MaterialDesc;
using Timestamp = UmfPacket::MaterialDesc::Timestamp;

static_assert(!std::is_polymorphic_v<Material> && !std::is_polymorphic_v<Timestamp>);

/// The first of January 2000 and the first of January 1970, in units of 100 nanoseconds since 1601.
constexpr std::uint64_t time2000 = 125911584000000000;
constexpr std::uint64_t time1970 = 116444736000000000;

Bytes materialBytes() {
    return {
        0x41, 0x00, 0x00, 0x80,                         // attributes
        0x01, 0x02, 0x03, 0x84,                         // longest
        0x05, 0x06, 0x07, 0x88,                         // shortest
        0x09, 0x0A, 0x0B, 0x8C,                         // mark in
        0x0D, 0x0E, 0x0F, 0x90,                         // mark out
        0x0A, 0x3B, 0x3B, 0x37,                         // timecode in; bit 4 is lost
        0x01, 0x02, 0x03, 0x44,                         // timecode out
        0x01, 0x02, 0x03, 0x04, 0x05, 0x06, 0x07, 0x08, // modified
        0x11, 0x12, 0x13, 0x14, 0x15, 0x16, 0x17, 0x98, // created
        0xD1, 0xD2, 0xE1, 0xE2, 0x21, 0xA2, 0x23, 0xA4, 0xF1, 0xF2, 0x25, 0xA6,
    };
}

OpResult decodeInto(Material& material, Bytes bytes) {
    GxfBuffer buffer = bytes.filledBuffer();
    return material.decode(buffer, static_cast<unsigned>(bytes.size()));
}

Material decoded() {
    Material material;
    EXPECT_TRUE(decodeInto(material, materialBytes()));
    return material;
}

Bytes encoded(Material const& material) {
    Bytes storage = Bytes().fill(56, 0xAA);
    GxfBuffer out = storage.emptyBuffer();
    EXPECT_EQ(material.encode(out).getType(), OpResult::Ok);
    EXPECT_EQ(out.nOccupied(), 56U);
    return storage;
}

void expectFailure(OpResult const& result, int code, char const* function) {
    EXPECT_EQ(result.getType(), OpResult::Error);
    EXPECT_EQ(result.getCode(), code);
    EXPECT_STREQ(result.getText(), "");
    EXPECT_STREQ(result.getLocation().file, "umf_material_desc.cpp");
    EXPECT_STREQ(result.getLocation().function, function);
}

Timestamp timestampOf(Bytes bytes, bool lowWordFirst) {
    Timestamp time;
    time.lowWordFirst = lowWordFirst;
    GxfBuffer buffer = bytes.filledBuffer();
    time.decode(buffer);
    EXPECT_EQ(buffer.nOccupied(), bytes.size() - 8);
    return time;
}

Bytes encoded(Timestamp const& time) {
    Bytes storage = Bytes().fill(8, 0xAA);
    GxfBuffer out = storage.emptyBuffer();
    time.encode(out);
    EXPECT_EQ(out.nOccupied(), 8U);
    return storage;
}

Bytes highFirst(std::uint64_t time) {
    return Bytes()
        .u32Lsbf(static_cast<std::uint32_t>(time >> 32))
        .u32Lsbf(static_cast<std::uint32_t>(time));
}

std::uint64_t swappedWords(std::uint64_t time) { return (time << 32) | (time >> 32); }

/// The middle of a year.
std::uint64_t midYear(int year) {
    using namespace std::chrono;
    sys_days const day = std::chrono::year{year} / July / 1;
    sys_days const first = std::chrono::year{1601} / January / 1;
    return static_cast<std::uint64_t>((day - first).count()) * 864000000000U;
}

int thisYear() {
    using namespace std::chrono;
    auto const today = floor<days>(system_clock::now());
    return static_cast<int>(year_month_day(today).year());
}

/// Runs a scope in Greenwich Mean Time.
class GreenwichTime {
  public:
    GreenwichTime() {
        if (char const* const before = std::getenv("TZ")) {
            m_before = before;
        }
        setenv("TZ", "UTC0", 1);
    }
    GreenwichTime(GreenwichTime const&) = delete;
    GreenwichTime& operator=(GreenwichTime const&) = delete;
    ~GreenwichTime() {
        if (m_before) {
            setenv("TZ", m_before->c_str(), 1);
        } else {
            unsetenv("TZ");
        }
    }

  private:
    std::optional<std::string> m_before;
};

} // namespace

TEST(UmfTimestamp, New) {
    Timestamp time;
    EXPECT_EQ(time.time, 0U);
    EXPECT_TRUE(time.lowWordFirst);
    time.time = 5;
    time.lowWordFirst = false;
    time.reset();
    EXPECT_EQ(time.time, 0U);
    EXPECT_TRUE(time.lowWordFirst);
}

TEST(UmfTimestamp, IsReadAsOneLittleEndianNumber) {
    Timestamp const time = timestampOf({1, 2, 3, 4, 5, 6, 7, 8, 9}, true);
    EXPECT_EQ(time.time, 0x0807060504030201U);
    EXPECT_TRUE(time.lowWordFirst);
    EXPECT_EQ(encoded(time), (Bytes{1, 2, 3, 4, 5, 6, 7, 8}));
    // Also where only the other order makes a plausible time: intended.
    Timestamp const other = timestampOf(highFirst(time2000), true);
    EXPECT_EQ(other.time, swappedWords(time2000));
    EXPECT_EQ(encoded(other), highFirst(time2000));
}

TEST(UmfTimestamp, PlausibilityDecidesOnceTheFlagIsClear) {
    int const year = thisYear();
    struct Row {
        std::uint64_t highFirst;
        bool lowWordFirst;
    };
    Row const rows[] = {
        {midYear(year), false},
        {midYear(year - 1), false},
        {midYear(year - 50), false},
        {midYear(year - 51), true},
        {midYear(year + 1), true},
        {midYear(1601), true},
        {0, true},
        {0x7FFFFFFFFFFFFFFF, true},
        {0x8000000000000001, true},
        {0xFFFFFFFFFFFFFFFF, true},
        {0x8000000000000000, true},
    };
    for (Row const& row : rows) {
        Timestamp const time = timestampOf(highFirst(row.highFirst), false);
        EXPECT_EQ(time.lowWordFirst, row.lowWordFirst) << row.highFirst;
        EXPECT_EQ(time.time, row.lowWordFirst ? swappedWords(row.highFirst) : row.highFirst);
        EXPECT_EQ(encoded(time), highFirst(row.highFirst));
    }
}

TEST(UmfTimestamp, NothingClearsTheFlag) {
    Timestamp time;
    for (std::uint64_t const next : {midYear(thisYear()), std::uint64_t{0}, time2000}) {
        Bytes bytes = highFirst(next);
        GxfBuffer buffer = bytes.filledBuffer();
        time.decode(buffer);
        EXPECT_TRUE(time.lowWordFirst);
        EXPECT_EQ(time.time, swappedWords(next));
    }
}

TEST(UmfTimestamp, EncodesInTheOrderOfItsFlag) {
    Timestamp time;
    time.time = 0x0102030405060708;
    EXPECT_EQ(encoded(time), (Bytes{8, 7, 6, 5, 4, 3, 2, 1}));
    time.lowWordFirst = false;
    EXPECT_EQ(encoded(time), (Bytes{4, 3, 2, 1, 8, 7, 6, 5}));
}

TEST(UmfTimestamp, EqualByTheTimeAlone) {
    Timestamp a;
    Timestamp b;
    b.lowWordFirst = false;
    EXPECT_TRUE(a == b);
    a.time = 0x8000000000000000;
    EXPECT_FALSE(a == b);
    b.time = a.time;
    EXPECT_TRUE(a == b);
    b.time ^= 1;
    EXPECT_FALSE(a == b);
}

TEST(UmfMaterialDesc, New) {
    Material const material;
    EXPECT_EQ(material.attributes, 0U);
    EXPECT_EQ(material.maxLength, 0U);
    EXPECT_EQ(material.minLength, 0U);
    EXPECT_EQ(material.markIn, 0U);
    EXPECT_EQ(material.markOut, 0U);
    EXPECT_TRUE(material.timecodeIn == Timecode());
    EXPECT_TRUE(material.timecodeOut == Timecode());
    EXPECT_EQ(material.modifiedTime.time, 0U);
    EXPECT_TRUE(material.modifiedTime.lowWordFirst);
    EXPECT_EQ(material.createdTime.time, 0U);
    EXPECT_TRUE(material.createdTime.lowWordFirst);
    EXPECT_EQ(material.reservedD, 0U);
    EXPECT_EQ(material.reservedE, 0U);
    EXPECT_EQ(material.nAudio, 0U);
    EXPECT_EQ(material.nTc, 0U);
    EXPECT_EQ(material.reservedF, 0U);
    EXPECT_EQ(material.nMpeg, 0U);
    EXPECT_FALSE(material.valid);
}

TEST(UmfMaterialDesc, DecodesEachField) {
    Material material;
    Bytes bytes = materialBytes().u8(0x77);
    GxfBuffer buffer = bytes.filledBuffer();
    EXPECT_EQ(material.decode(buffer, 57).getType(), OpResult::Ok);
    EXPECT_EQ(buffer.nOccupied(), 1U);
    EXPECT_EQ(material.attributes, 0x80000041U);
    EXPECT_EQ(material.maxLength, 0x84030201U);
    EXPECT_EQ(material.minLength, 0x88070605U);
    EXPECT_EQ(material.markIn, 0x8C0B0A09U);
    EXPECT_EQ(material.markOut, 0x900F0E0DU);
    EXPECT_EQ(material.timecodeIn.frames, 10U);
    EXPECT_EQ(material.timecodeIn.seconds, 59U);
    EXPECT_EQ(material.timecodeIn.minutes, 59U);
    EXPECT_EQ(material.timecodeIn.hours, 7U);
    EXPECT_TRUE(material.timecodeIn.isDropFrame());
    EXPECT_EQ(material.timecodeIn.reservedFlag, 0U);
    EXPECT_FALSE(material.timecodeIn.isInvalid());
    EXPECT_EQ(material.timecodeOut.frames, 1U);
    EXPECT_EQ(material.timecodeOut.seconds, 2U);
    EXPECT_EQ(material.timecodeOut.minutes, 3U);
    EXPECT_EQ(material.timecodeOut.hours, 4U);
    EXPECT_FALSE(material.timecodeOut.isDropFrame());
    EXPECT_EQ(material.timecodeOut.reservedFlag, 1U);
    EXPECT_EQ(material.modifiedTime.time, 0x0807060504030201U);
    EXPECT_EQ(material.createdTime.time, 0x9817161514131211U);
    EXPECT_EQ(material.reservedD, 0xD2D1U);
    EXPECT_EQ(material.reservedE, 0xE2E1U);
    EXPECT_EQ(material.nAudio, 0xA221U);
    EXPECT_EQ(material.nTc, 0xA423U);
    EXPECT_EQ(material.reservedF, 0xF2F1U);
    EXPECT_EQ(material.nMpeg, 0xA625U);
    EXPECT_TRUE(material.valid);
}

TEST(UmfMaterialDesc, EncodesEachField) {
    Material material = decoded();
    Bytes expected = materialBytes();
    expected[23] = 0x27;
    EXPECT_EQ(encoded(material), expected);
    // A description that isn't valid is written as it stands.
    material.valid = false;
    EXPECT_EQ(encoded(material), expected);
    EXPECT_EQ(encoded(Material()), Bytes().fill(23).u8(0x80).fill(3).u8(0x80).fill(28));
}

TEST(UmfMaterialDesc, AnyBytesComeBack) {
    std::mt19937 random(56);
    for (unsigned i = 0; i < 500; ++i) {
        Bytes bytes;
        for (unsigned n = 0; n < 56; ++n) {
            bytes.u8(static_cast<unsigned>(random()));
        }
        Material material;
        EXPECT_TRUE(decodeInto(material, bytes));
        // A bit of the timecodes isn't used.
        bytes[23] &= 0xEF;
        bytes[27] &= 0xEF;
        EXPECT_EQ(encoded(material), bytes);
        Material again;
        EXPECT_TRUE(decodeInto(again, bytes));
        EXPECT_TRUE(again.isEqual(material));
    }
}

TEST(UmfMaterialDesc, ShortDecodeChangesNothing) {
    for (unsigned size = 0; size < 56; ++size) {
        Bytes bytes = Bytes().fill(56, 0x11);
        GxfBuffer whole = bytes.filledBuffer();
        Material material = decoded();
        expectFailure(material.decode(whole, size), 9, "decode");
        EXPECT_FALSE(material.valid);
        EXPECT_TRUE(material.isEqual(decoded()));
        EXPECT_EQ(whole.nOccupied(), 56U);

        material.valid = true;
        GxfBuffer cut(bytes.data(), size, GxfBuffer::DataState::filled, MediaAgent(nullptr));
        expectFailure(material.decode(cut, 56), 9, "decode");
        EXPECT_FALSE(material.valid);
        EXPECT_TRUE(material.isEqual(decoded()));
        EXPECT_EQ(cut.nOccupied(), size);
    }
}

TEST(UmfMaterialDesc, EncodeWithoutRoom) {
    for (unsigned room = 0; room < 56; ++room) {
        Bytes storage = Bytes().fill(56, 0xAA);
        GxfBuffer out(storage.data(), room, GxfBuffer::DataState::empty, MediaAgent(nullptr));
        expectFailure(decoded().encode(out), 12, "encode");
        EXPECT_EQ(out.nOccupied(), 0U);
        EXPECT_EQ(storage, Bytes().fill(56, 0xAA));
    }
}

TEST(UmfMaterialDesc, ResetLeavesTheTimecodes) {
    Material material = decoded();
    material.modifiedTime.lowWordFirst = false;
    material.createdTime.lowWordFirst = false;
    Timecode const in = material.timecodeIn;
    Timecode const out = material.timecodeOut;
    material.reset();
    EXPECT_TRUE(material.timecodeIn == in);
    EXPECT_TRUE(material.timecodeOut == out);
    EXPECT_TRUE(material.modifiedTime.lowWordFirst);
    EXPECT_TRUE(material.createdTime.lowWordFirst);
    EXPECT_FALSE(material.valid);
    EXPECT_FALSE(material.isEqual(Material()));
    material.timecodeIn = Timecode();
    material.timecodeOut = Timecode();
    EXPECT_TRUE(material.isEqual(Material()));
}

TEST(UmfMaterialDesc, RecycledPacketKeepsItsTimecodes) {
    PacketPool pool;
    UmfPacket const* first = nullptr;
    {
        AutoRefPtr<UmfPacket> const umf = pool.alloc(packetTypeUmfFile)->getUmfPacket();
        EXPECT_TRUE(decodeInto(umf->materialDesc, materialBytes()));
        first = umf.get();
    }
    AutoRefPtr<UmfPacket> const again = pool.alloc(packetTypeUmfFile)->getUmfPacket();
    EXPECT_EQ(again.get(), first);
    EXPECT_TRUE(again->materialDesc.timecodeIn == decoded().timecodeIn);
    EXPECT_TRUE(again->materialDesc.timecodeOut == decoded().timecodeOut);
    EXPECT_EQ(again->materialDesc.maxLength, 0U);
    EXPECT_FALSE(again->materialDesc.valid);
}

TEST(UmfMaterialDesc, EqualByEachFieldButTheValidity) {
    std::vector<std::function<void(Material&)>> const changes = {
        [](Material& m) { m.attributes = static_cast<MaterialAttrBits>(m.attributes ^ 1U); },
        [](Material& m) { m.maxLength ^= 0x80000000; },
        [](Material& m) { m.minLength ^= 1; },
        [](Material& m) { m.markIn ^= 1; },
        [](Material& m) { m.markOut ^= 1; },
        [](Material& m) { m.timecodeIn.frames = 0; },
        [](Material& m) { m.timecodeIn.reservedFlag = 1; },
        [](Material& m) { m.timecodeOut.hours = 0; },
        [](Material& m) { m.modifiedTime.time ^= 1; },
        [](Material& m) { m.createdTime.time ^= 1; },
        [](Material& m) { m.reservedD ^= 0x8000; },
        [](Material& m) { m.reservedE ^= 0x8000; },
        [](Material& m) { m.nAudio ^= 0x8000; },
        [](Material& m) { m.nTc ^= 0x8000; },
        [](Material& m) { m.reservedF ^= 0x8000; },
        [](Material& m) { m.nMpeg ^= 0x8000; },
    };
    Material const material = decoded();
    for (std::size_t i = 0; i < changes.size(); ++i) {
        Material other = decoded();
        changes[i](other);
        EXPECT_FALSE(material.isEqual(other)) << i;
        EXPECT_FALSE(other.isEqual(material)) << i;
    }
    Material other = decoded();
    other.valid = false;
    other.modifiedTime.lowWordFirst = false;
    other.createdTime.lowWordFirst = false;
    EXPECT_TRUE(material.isEqual(other));
}

TEST(UmfMaterialDesc, Text) {
    GreenwichTime const zone;
    Material material = decoded();
    material.maxLength = 0xFFFFFFFF;
    material.minLength = 7;
    material.markIn = 0x80000000;
    material.markOut = 9;
    material.modifiedTime.time = time2000;
    material.createdTime.time = time1970;
    material.nAudio = 16;
    material.nTc = 2;
    material.nMpeg = 65535;
    EXPECT_STREQ(material.toString().get(),
                 "\nattr={0x80000041,ReadOnly,50hz,Restoring},"
                 "\nlen{min,max}={7,4294967295},"
                 "\nmark{in,out}={2147483648,9},"
                 "\ntcmark{in,out}={07:59:59;10,drop,04:03:02;01},"
                 "\nmodTime=Sat Jan  1 00:00:00 2000,createTime=Thu Jan  1 00:00:00 1970"
                 "\nnAudio=16,nTc=2,nMpeg=65535");

    material = Material();
    FormatStr text(128);
    text.cat(">");
    EXPECT_EQ(&material.toString(3, text), &text);
    EXPECT_STREQ(text.get(), ">\n   attr={0x0},"
                             "\n   len{min,max}={0,0},"
                             "\n   mark{in,out}={0,0},"
                             "\n   tcmark{in,out}={inv,inv},"
                             "\n   modTime=Mon Jan  1 00:00:00 1601,"
                             "createTime=Mon Jan  1 00:00:00 1601"
                             "\n   nAudio=0,nTc=0,nMpeg=0");
}

TEST(UmfMaterialDesc, TextOfATimeThatHasNone) {
    GreenwichTime const zone;
    Material material;
    material.modifiedTime.time = 0x7FFFFFFFFFFFFFFF;
    material.createdTime.time = time2000;
    EXPECT_STREQ(material.toString().get(),
                 "\nattr={0x0},\nlen{min,max}={0,0},\nmark{in,out}={0,0},"
                 "\ntcmark{in,out}={inv,inv},"
                 "\nmodTime=null,createTime=Sat Jan  1 00:00:00 2000"
                 "\nnAudio=0,nTc=0,nMpeg=0");
}

TEST(UmfMaterialDesc, Messages) {
    GreenwichTime const zone;
    Material const material;
    Bytes storage = Bytes().fill(56);
    MessageCapture capture;
    {
        ChannelSetting const level(gxfEncodeDetail, 2);
        GxfBuffer out = storage.emptyBuffer();
        EXPECT_TRUE(material.encode(out));
        EXPECT_THAT(capture.texts(), IsEmpty());
    }
    ChannelSetting const level(gxfEncodeDetail, 3);
    ChannelSetting const decodeLevel(gxfDecodeDetail, 9);
    GxfBuffer out = storage.emptyBuffer();
    out.reset(GxfBuffer::DataState::empty, 0xFFFFFFFFFFFFFFFF);
    EXPECT_TRUE(material.encode(out));
    EXPECT_THAT(capture.texts(MessageKind::Info),
                ElementsAre("start Material Desc encode @18446744073709551615\n",
                            "end Material Desc encode "
                            "\nattr={0x0},\nlen{min,max}={0,0},\nmark{in,out}={0,0},"
                            "\ntcmark{in,out}={inv,inv},"
                            "\nmodTime=Mon Jan  1 00:00:00 1601,"
                            "createTime=Mon Jan  1 00:00:00 1601"
                            "\nnAudio=0,nTc=0,nMpeg=0\n"));
    EXPECT_EQ(capture.texts().size(), 2U);
    capture.clear();
    EXPECT_FALSE(material.encode(out));
    EXPECT_THAT(capture.texts(), ElementsAre("start Material Desc encode @18446744073709551615\n"));
    capture.clear();
    Material read;
    EXPECT_TRUE(read.decode(out, 56));
    EXPECT_THAT(capture.texts(), IsEmpty());
}

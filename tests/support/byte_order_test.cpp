#include <gxftypes/support/byte_order.h>

#include <cstdint>
#include <vector>

#include <gtest/gtest.h>

#include <gxftypes/packet/gxf.h>

using namespace GxfTypes;

namespace {

using ByteVector = std::vector<unsigned char>;

constexpr unsigned char bytes[] = {0x81, 0x02, 0x93, 0x04, 0xA5, 0x06, 0xB7, 0x08};

TEST(ByteOrder, LoadsTheMostSignificantByteFirst) {
    EXPECT_EQ(loadMsbf<std::uint8_t>(bytes), 0x81U);
    EXPECT_EQ(loadMsbf<std::uint16_t>(bytes), 0x8102U);
    EXPECT_EQ(loadMsbf<std::uint32_t>(bytes), 0x81029304U);
    EXPECT_EQ(loadMsbf<std::uint64_t>(bytes), 0x81029304A506B708U);
    EXPECT_EQ(loadMsbf<std::int16_t>(bytes), -0x7EFE);
    EXPECT_EQ(loadMsbf<std::uint32_t>(bytes + 3), 0x04A506B7U);
}

TEST(ByteOrder, LoadsTheLeastSignificantByteFirst) {
    EXPECT_EQ(loadLsbf<std::uint8_t>(bytes), 0x81U);
    EXPECT_EQ(loadLsbf<std::uint16_t>(bytes), 0x0281U);
    EXPECT_EQ(loadLsbf<std::uint32_t>(bytes), 0x04930281U);
    EXPECT_EQ(loadLsbf<std::uint64_t>(bytes), 0x08B706A504930281U);
    EXPECT_EQ(loadLsbf<std::uint32_t>(bytes + 1), 0xA5049302U);
}

TEST(ByteOrder, LoadsDoubles) {
    constexpr unsigned char minusOneAndAHalf[] = {0, 0, 0, 0, 0, 0, 0xF8, 0xBF};
    EXPECT_EQ(loadLsbf<double>(minusOneAndAHalf), -1.5);
}

template <typename T> ByteVector storedMsbf(T value) {
    ByteVector to(sizeof(T));
    storeMsbf(to.data(), value);
    return to;
}

template <typename T> ByteVector storedLsbf(T value) {
    ByteVector to(sizeof(T));
    storeLsbf(to.data(), value);
    return to;
}

TEST(ByteOrder, StoresTheMostSignificantByteFirst) {
    EXPECT_EQ(storedMsbf(std::uint8_t{0x81}), (ByteVector{0x81}));
    EXPECT_EQ(storedMsbf(std::uint16_t{0x8102}), (ByteVector{0x81, 0x02}));
    EXPECT_EQ(storedMsbf(std::uint32_t{0x81029304}), (ByteVector{0x81, 0x02, 0x93, 0x04}));
    EXPECT_EQ(storedMsbf(std::uint64_t{0x81029304A506B708}),
              (ByteVector{0x81, 0x02, 0x93, 0x04, 0xA5, 0x06, 0xB7, 0x08}));
    EXPECT_EQ(storedMsbf(std::int32_t{-2}), (ByteVector{0xFF, 0xFF, 0xFF, 0xFE}));
}

TEST(ByteOrder, StoresTheLeastSignificantByteFirst) {
    EXPECT_EQ(storedLsbf(std::uint8_t{0x81}), (ByteVector{0x81}));
    EXPECT_EQ(storedLsbf(std::uint16_t{0x8102}), (ByteVector{0x02, 0x81}));
    EXPECT_EQ(storedLsbf(std::uint32_t{0x81029304}), (ByteVector{0x04, 0x93, 0x02, 0x81}));
    EXPECT_EQ(storedLsbf(std::uint64_t{0x81029304A506B708}),
              (ByteVector{0x08, 0xB7, 0x06, 0xA5, 0x04, 0x93, 0x02, 0x81}));
    EXPECT_EQ(storedLsbf(std::int16_t{-2}), (ByteVector{0xFE, 0xFF}));
    EXPECT_EQ(storedLsbf(-1.5), (ByteVector{0, 0, 0, 0, 0, 0, 0xF8, 0xBF}));
}

TEST(ByteOrder, IsKnownToTheCompiler) {
    static_assert(loadMsbf<std::uint32_t>(bytes) == 0x81029304U);
    static_assert(loadLsbf<std::uint16_t>(bytes) == 0x0281U);
}

} // namespace

#include <gxfstream/header_search.h>

#include <gtest/gtest.h>

#include <testing/stream_builder.h>
#include <testing/stream_sources.h>

using namespace GxfStream;
using namespace GxfTesting;

namespace {

using Found = std::optional<std::uint64_t>;

Bytes noise(std::size_t count) { return Bytes().fill(count, 0x55); }

TEST(IsPlausibleHeader, takesTheHeaderOfEveryKindOfPacket) {
    for (unsigned type = 0; type < 256; ++type) {
        bool const isKind = type == 188 || type == 191 || type >= 250;
        EXPECT_EQ(isPlausibleHeader(header(type, 100).data()), isKind) << type;
    }
}

TEST(IsPlausibleHeader, wantsEachFixedByte) {
    for (std::size_t const i : {0U, 1U, 2U, 3U, 4U, 10U, 11U, 12U, 13U, 14U, 15U}) {
        for (unsigned bit = 0; bit < 8; ++bit) {
            Bytes bytes = header(0xBF, 100);
            bytes[i] = static_cast<unsigned char>(bytes[i] ^ (1U << bit));
            EXPECT_FALSE(isPlausibleHeader(bytes.data())) << "byte " << i << ", bit " << bit;
        }
    }
}

TEST(IsPlausibleHeader, wantsALengthThatHoldsTheHeader) {
    EXPECT_FALSE(isPlausibleHeader(header(0xBF, 0).data()));
    EXPECT_FALSE(isPlausibleHeader(header(0xBF, 15).data()));
    EXPECT_TRUE(isPlausibleHeader(header(0xBF, 16).data()));
    EXPECT_TRUE(isPlausibleHeader(header(0xBF, 0x80000000).data()));
    EXPECT_TRUE(isPlausibleHeader(header(0xBF, 0xFFFFFFFF).data()));
}

TEST(LengthInHeader, isBigEndian) {
    EXPECT_EQ(lengthInHeader(header(0xBF, 0x81020304).data()), 0x81020304U);
    EXPECT_EQ(lengthInHeader(header(0xBF, 16).data()), 16U);
}

class HeaderSearchTest : public testing::TestWithParam<SourceKind> {
  protected:
    Found find(Bytes const& stream, std::uint64_t from = 0) const {
        StreamSource const source(GetParam(), stream);
        return HeaderSearch(*source).find(from);
    }
    Found findConfirmed(Bytes const& stream, std::uint64_t from, std::uint64_t to) const {
        StreamSource const source(GetParam(), stream);
        return HeaderSearch(*source).findConfirmed(from, to);
    }
};

INSTANTIATE_TEST_SUITE_P(Sources, HeaderSearchTest,
                         testing::Values(SourceKind::memory, SourceKind::file, SourceKind::pipe),
                         [](auto const& test) { return getName(test.param); });

TEST_P(HeaderSearchTest, nothingIsFoundWhereThereIsNone) {
    EXPECT_EQ(find({}), std::nullopt);
    EXPECT_EQ(find(noise(15)), std::nullopt);
    EXPECT_EQ(find(noise(16)), std::nullopt);
    EXPECT_EQ(find(noise(300000)), std::nullopt);
    EXPECT_EQ(find(endOfStream(), 1), std::nullopt);
    EXPECT_EQ(find(endOfStream(), 16), std::nullopt);
    EXPECT_EQ(find(endOfStream(), 1000), std::nullopt);
}

TEST_P(HeaderSearchTest, aHeaderIsFoundWhereverItBegins) {
    // A search asks for 4 KiB first, then for 8, 16, up to 256.
    for (std::size_t const border :
         {std::size_t{0}, std::size_t{4096}, std::size_t{12288}, std::size_t{28672},
          std::size_t{258048}, std::size_t{520192}, std::size_t{782336}}) {
        for (std::size_t before = 0; before < 34; ++before) {
            std::size_t const at = border + 17 - std::min(before, border + 17);
            EXPECT_EQ(find(noise(at).add(endOfStream())), at);
        }
    }
}

TEST_P(HeaderSearchTest, aSearchBeginsWhereItIsTold) {
    Bytes const stream = Bytes().add(endOfStream()).add(endOfStream()).add(endOfStream());
    EXPECT_EQ(find(stream, 0), 0U);
    EXPECT_EQ(find(stream, 1), 16U);
    EXPECT_EQ(find(stream, 16), 16U);
    EXPECT_EQ(find(stream, 17), 32U);
}

TEST_P(HeaderSearchTest, aHeaderCountsThatAnotherOneFollows) {
    Bytes const first = packet(0xBF, noise(40));
    EXPECT_EQ(find(noise(7).add(first).add(endOfStream()).add(noise(5))), 7U);
}

TEST_P(HeaderSearchTest, aHeaderCountsThatTheEndOfTheStreamFollows) {
    EXPECT_EQ(find(noise(7).add(packet(0xBF, noise(40)))), 7U);
    EXPECT_EQ(findConfirmed(noise(7).add(packet(0xBF, noise(40))), 0, 8), 7U);
    EXPECT_EQ(findConfirmed(noise(7).add(packet(0xBF, noise(40))).add(noise(1)), 0, 8),
              std::nullopt);
    EXPECT_EQ(findConfirmed(noise(7).add(header(0xBF, 57)).add(noise(40)), 0, 8), std::nullopt);
}

TEST_P(HeaderSearchTest, aFakeHeaderGivesWayToAConfirmedOneInsideItsPacket) {
    Bytes const stream = noise(10)
                             .add(header(0xBF, 5000))
                             .add(noise(30))
                             .add(packet(0xBF, noise(64)))
                             .add(endOfStream())
                             .add(noise(100));
    EXPECT_EQ(find(stream), 56U);
}

TEST_P(HeaderSearchTest, aHeaderCountsThatNothingConfirmsAndNothingContradicts) {
    // The confirmed header lies where the unconfirmed packet ends and a byte more: not inside.
    Bytes const stream = noise(10)
                             .add(packet(0xBF, noise(40)))
                             .add(noise(1))
                             .add(packet(0xBF, noise(64)))
                             .add(endOfStream());
    EXPECT_EQ(find(stream), 10U);
}

TEST_P(HeaderSearchTest, anUnconfirmedHeaderDoesNotContradict) {
    Bytes const stream =
        noise(10).add(header(0xBF, 200)).add(noise(30)).add(header(0xBF, 50)).add(noise(300));
    EXPECT_EQ(find(stream), 10U);
}

TEST_P(HeaderSearchTest, confirmedHeadersAreThoseThatBeginInTheStretch) {
    Bytes const stream =
        Bytes().add(packet(0xBF, noise(40))).add(packet(0xBF, noise(40))).add(endOfStream());
    EXPECT_EQ(findConfirmed(stream, 0, 1), 0U);
    EXPECT_EQ(findConfirmed(stream, 0, 0), std::nullopt);
    EXPECT_EQ(findConfirmed(stream, 1, 56), std::nullopt);
    EXPECT_EQ(findConfirmed(stream, 1, 57), 56U);
    EXPECT_EQ(findConfirmed(stream, 56, 57), 56U);
    EXPECT_EQ(findConfirmed(stream, 57, 0xFFFFFFFFFFFFFFFF), 112U);
}

TEST_P(HeaderSearchTest, confirmationMayLieFarAhead) {
    Bytes const stream =
        noise(3).add(packet(0xBF, noise(3000000))).add(endOfStream()).add(noise(20));
    EXPECT_EQ(findConfirmed(stream, 0, 4), 3U);
}

TEST_P(HeaderSearchTest, aPipeCannotConfirmWhatLiesTooFarAhead) {
    Bytes const stream =
        noise(3).add(packet(0xBF, noise(PipeSource::lookAhead))).add(endOfStream()).add(noise(20));
    EXPECT_EQ(findConfirmed(stream, 0, 4),
              GetParam() == SourceKind::pipe ? std::nullopt : Found(3U));
    // Where nothing speaks against it, it counts all the same.
    EXPECT_EQ(find(stream), 3U);
}

TEST_P(HeaderSearchTest, aHeaderIsConfirmedAtTheFarthestPlaceThatAPipeReaches) {
    std::size_t const essence = PipeSource::lookAhead - 3 - 16 - 16;
    EXPECT_EQ(findConfirmed(noise(3).add(packet(0xBF, noise(essence))).add(endOfStream()), 0, 4),
              3U);
    EXPECT_EQ(
        findConfirmed(noise(3).add(packet(0xBF, noise(essence + 1))).add(endOfStream()), 0, 4),
        GetParam() == SourceKind::pipe ? std::nullopt : Found(3U));
}

} // namespace

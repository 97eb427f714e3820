#include <gxftypes/support/mpeg_headers.h>

#include <vector>

#include <gtest/gtest.h>
#include <testing/bytes.h>

using namespace GxfTypes;
using namespace GxfTesting;

namespace {

using Codes = std::vector<unsigned>;

/// A parser over copies of the pieces of some bytes, so that reading behind a piece is noticed.
class Source {
  public:
    explicit Source(Bytes const& bytes, std::vector<std::size_t> const& cuts = {}) {
        std::size_t from = 0;
        for (std::size_t const cut : cuts) {
            add(bytes, from, cut);
            from = cut;
        }
        add(bytes, from, bytes.size());
        for (auto& piece : m_pieces) {
            m_list.push_back(initSgl_t(piece.data(), static_cast<unsigned>(piece.size())));
        }
        parser.setList(static_cast<unsigned>(m_list.size()), m_list.data());
    }

    Codes codes() {
        Codes result;
        while (unsigned const code = nextMpegStartCode(parser)) {
            result.push_back(code);
        }
        return result;
    }

    BitChunkParser parser;

  private:
    void add(Bytes const& bytes, std::size_t from, std::size_t to) {
        m_pieces.emplace_back(bytes.data() + from, bytes.data() + to);
        m_pieces.back().shrink_to_fit();
    }

    std::vector<std::vector<unsigned char>> m_pieces;
    std::vector<simpleSgl_s> m_list;
};

Bytes cutTo(Bytes const& bytes, std::size_t size) {
    Bytes result;
    for (std::size_t i = 0; i < size; ++i) {
        result.u8(bytes.vector()[i]);
    }
    return result;
}

// 1920 by 1088, 16:9, 29.97 hertz, a bit rate of 0x12345 x 400, a buffer of 0x155, no matrices.
Bytes const sequence = {0x78, 0x04, 0x40, 0x34, 0x48, 0xD1, 0x6A, 0xA8};
// 10:11:12:13 without drop frame, closed.
Bytes const group = {0x28, 0xB9, 0x86, 0xC0};

TEST(NextMpegStartCode, WithoutData) {
    BitChunkParser parser;
    EXPECT_EQ(nextMpegStartCode(parser), 0U);
    EXPECT_EQ(nextMpegStartCode(parser), 0U);
}

TEST(NextMpegStartCode, GivesEveryLastByte) {
    for (unsigned last = 0; last < 256; ++last) {
        EXPECT_EQ(Source(Bytes({0, 0, 1, last})).codes(), Codes({0x100 + last}));
    }
}

struct Scan {
    Bytes bytes;
    Codes codes;
};

TEST(NextMpegStartCode, FindsWhatIsThere) {
    static Scan const scans[] = {
        {{}, {}},
        {{0x00}, {}},
        {{0x00, 0x00}, {}},
        {{0x00, 0x00, 0x01}, {}},
        {{0x00, 0x01, 0xB3}, {}},
        {{0x01, 0xB3, 0xB3, 0xB3}, {}},
        {{0x00, 0xFF, 0x00, 0x01, 0xB3}, {}},
        {{0x00, 0x00, 0x02, 0xB3}, {}},
        {{0x00, 0x00, 0x00, 0x01, 0xB8}, {0x1B8}},
        {{0x00, 0x00, 0x00, 0x00, 0x00, 0x01, 0xB8}, {0x1B8}},
        {{0x01, 0x00, 0x00, 0x01, 0x01}, {0x101}},
        {{0x00, 0x01, 0x00, 0x00, 0x01, 0x00}, {0x100}},
        {{0xFF, 0xFF, 0x00, 0x00, 0x01, 0xB3, 0x78, 0x00, 0x00, 0x01, 0xB8}, {0x1B3, 0x1B8}},
        {{0x00, 0x00, 0x01, 0xB3, 0x00, 0x00, 0x01, 0xB8, 0x00, 0x00, 0x01}, {0x1B3, 0x1B8}},
        {{0x00, 0x00, 0x01, 0xB3, 0x00, 0x01, 0xB8}, {0x1B3}},
        // The last byte of a code doesn't begin the next one.
        {{0x00, 0x00, 0x01, 0x00, 0x00, 0x01, 0xB8}, {0x100}},
        {{0x00, 0x00, 0x01, 0x00, 0x00, 0x00, 0x01, 0xB8}, {0x100, 0x1B8}},
        {{0x00, 0x00, 0x01, 0x01, 0x00, 0x00, 0x01, 0x02}, {0x101, 0x102}},
    };
    for (Scan const& row : scans) {
        EXPECT_EQ(Source(row.bytes).codes(), row.codes) << row.bytes;
    }
}

TEST(NextMpegStartCode, FindsCodesThatStraddleEntries) {
    Bytes const bytes{0x47, 0x00, 0x00, 0x00, 0x01, 0xB3, 0x12, 0x00, 0x00, 0x01, 0xB8, 0x00};
    Codes const expected{0x1B3, 0x1B8};
    std::size_t const size = bytes.size();
    for (std::size_t first = 0; first <= size; ++first) {
        for (std::size_t second = first; second <= size; ++second) {
            for (std::size_t third = second; third <= size; ++third) {
                ASSERT_EQ(Source(bytes, {first, second, third}).codes(), expected)
                    << first << ' ' << second << ' ' << third;
            }
        }
    }
}

TEST(NextMpegStartCode, FindsCodesInEntriesOfOneByteWithEmptyOnesBetween) {
    EXPECT_EQ(Source({0, 0, 1, 0xB8}, {0, 1, 1, 2, 2, 2, 3, 3, 4, 4}).codes(), Codes({0x1B8}));
}

TEST(NextMpegStartCode, LooksAtWholeBytes) {
    // At the first bit behind the start stand 00 00 01 B3, but not on a byte.
    Source shifted(Bytes{0x80, 0x00, 0x00, 0xD9, 0x80});
    EXPECT_EQ(shifted.codes(), Codes());

    Source source(Bytes{0xFF, 0x00, 0x00, 0x01, 0xB3});
    unsigned bits = 0;
    ASSERT_TRUE(source.parser.getBits(3, bits));
    EXPECT_EQ(nextMpegStartCode(source.parser), 0x1B3U);
}

TEST(NextMpegStartCode, StandsBehindTheCode) {
    Source source(Bytes{0x00, 0x00, 0x01, 0xB8, 0xAB});
    EXPECT_EQ(nextMpegStartCode(source.parser), 0x1B8U);
    unsigned bits = 0;
    ASSERT_TRUE(source.parser.getBits(8, bits));
    EXPECT_EQ(bits, 0xABU);
}

TEST(MpegStartCode, Values) {
    EXPECT_EQ(mpegPictureStartCode, 0x100U);
    EXPECT_EQ(mpegFirstSliceStartCode, 0x101U);
    EXPECT_EQ(mpegSequenceHeaderCode, 0x1B3U);
    EXPECT_EQ(mpegGroupStartCode, 0x1B8U);
}

TEST(MpegGopHeader, IsZeroAtFirst) {
    MpegGopHeader const header;
    EXPECT_EQ(header.timeCode, 0U);
    EXPECT_FALSE(header.closedGop);
    EXPECT_FALSE(header.brokenLink);
}

TEST(MpegGopHeader, Decode) {
    struct Row {
        Bytes bytes;
        unsigned timeCode;
        bool closed;
        bool broken;
    };
    static Row const rows[] = {
        {group, 0x51730D, true, false},
        {{0x28, 0xB9, 0x86, 0x80}, 0x51730D, false, false},
        {{0x28, 0xB9, 0x86, 0xA0}, 0x51730D, false, true},
        {{0x28, 0xB9, 0x86, 0xE0}, 0x51730D, true, true},
        {{0x00, 0x00, 0x00, 0x1F}, 0, false, false},
        {{0x00, 0x00, 0x00, 0x40}, 0, true, false},
        {{0x80, 0x00, 0x00, 0x00}, 0x1000000, false, false},
        {{0xFF, 0xFF, 0xFF, 0xFF}, 0x1FFFFFF, true, true},
    };
    for (Row const& row : rows) {
        Source source(row.bytes);
        MpegGopHeader header;
        EXPECT_TRUE(header.decode(source.parser, nullptr)) << row.bytes;
        EXPECT_EQ(header.timeCode, row.timeCode) << row.bytes;
        EXPECT_EQ(header.closedGop, row.closed) << row.bytes;
        EXPECT_EQ(header.brokenLink, row.broken) << row.bytes;
    }
}

TEST(MpegGopHeader, FailsWhenCutOff) {
    for (std::size_t size = 0; size < group.size(); ++size) {
        Source source(cutTo(group, size));
        MpegGopHeader header;
        header.timeCode = 77;
        header.brokenLink = true;
        EXPECT_FALSE(header.decode(source.parser, nullptr)) << size;
        EXPECT_EQ(header.timeCode, 77U);
        EXPECT_FALSE(header.closedGop);
        EXPECT_TRUE(header.brokenLink);
        unsigned bits = 0;
        EXPECT_TRUE(source.parser.getBits(static_cast<unsigned>(8 * size), bits));
    }
}

TEST(MpegGopHeader, StraddlesEntries) {
    for (std::size_t first = 0; first <= group.size(); ++first) {
        for (std::size_t second = first; second <= group.size(); ++second) {
            Source source(group, {first, second});
            MpegGopHeader header;
            EXPECT_TRUE(header.decode(source.parser, nullptr));
            EXPECT_EQ(header.timeCode, 0x51730DU);
            EXPECT_TRUE(header.closedGop);
        }
    }
}

void expectSequence(MpegSeqHeader const& header) {
    EXPECT_EQ(header.horizontalSize, 1920U);
    EXPECT_EQ(header.verticalSize, 1088U);
    EXPECT_EQ(header.aspectRatioInformation, 3U);
    EXPECT_EQ(header.frameRateCode, 4U);
    EXPECT_EQ(header.bitRateValue, 0x12345U);
    EXPECT_EQ(header.vbvBufferSizeValue, 0x155U);
}

TEST(MpegSeqHeader, IsZeroAtFirst) {
    MpegSeqHeader const header;
    EXPECT_EQ(header.horizontalSize, 0U);
    EXPECT_EQ(header.verticalSize, 0U);
    EXPECT_EQ(header.aspectRatioInformation, 0U);
    EXPECT_EQ(header.frameRateCode, 0U);
    EXPECT_EQ(header.bitRateValue, 0U);
    EXPECT_EQ(header.vbvBufferSizeValue, 0U);
}

TEST(MpegSeqHeader, Decode) {
    Source source(sequence);
    MpegSeqHeader header;
    EXPECT_TRUE(header.decode(source.parser, nullptr));
    expectSequence(header);
}

TEST(MpegSeqHeader, HoldsTheLargestNumbers) {
    Source source(Bytes().fill(8, 0xFF));
    MpegSeqHeader header;
    EXPECT_TRUE(header.decode(source.parser, nullptr));
    EXPECT_EQ(header.horizontalSize, 4095U);
    EXPECT_EQ(header.verticalSize, 4095U);
    EXPECT_EQ(header.aspectRatioInformation, 15U);
    EXPECT_EQ(header.frameRateCode, 15U);
    EXPECT_EQ(header.bitRateValue, 0x3FFFFU);
    EXPECT_EQ(header.vbvBufferSizeValue, 0x3FFU);
}

TEST(MpegSeqHeader, DoesntJudgeMarkersAndZeros) {
    Source source(Bytes().fill(8));
    MpegSeqHeader header;
    header.horizontalSize = 720;
    header.verticalSize = 512;
    EXPECT_TRUE(header.decode(source.parser, nullptr));
    EXPECT_EQ(header.horizontalSize, 0U);
    EXPECT_EQ(header.verticalSize, 0U);
}

TEST(MpegSeqHeader, DecodesTheSizesOfStandardDefinition) {
    Source source(Bytes{0x2D, 0x02, 0x40, 0x23, 0x18, 0x6A, 0x23, 0xF8});
    MpegSeqHeader header;
    EXPECT_TRUE(header.decode(source.parser, nullptr));
    EXPECT_EQ(header.horizontalSize, 720U);
    EXPECT_EQ(header.verticalSize, 576U);
    EXPECT_EQ(header.aspectRatioInformation, 2U);
    EXPECT_EQ(header.frameRateCode, 3U);
    EXPECT_EQ(header.bitRateValue, 25000U);
    EXPECT_EQ(header.vbvBufferSizeValue, 127U);
}

TEST(MpegSeqHeader, FailsWhenCutOff) {
    for (std::size_t size = 0; size < sequence.size(); ++size) {
        Source source(cutTo(sequence, size));
        MpegSeqHeader header;
        header.horizontalSize = 11;
        header.verticalSize = 12;
        EXPECT_FALSE(header.decode(source.parser, nullptr)) << size;
        EXPECT_EQ(header.horizontalSize, 11U);
        EXPECT_EQ(header.verticalSize, 12U);
        for (std::size_t i = 0; i < size; ++i) {
            unsigned byte = 0;
            EXPECT_TRUE(source.parser.getBits(8, byte));
            EXPECT_EQ(byte, sequence.vector()[i]);
        }
    }
}

TEST(MpegSeqHeader, StraddlesEntries) {
    for (std::size_t first = 0; first <= sequence.size(); ++first) {
        for (std::size_t second = first; second <= sequence.size(); ++second) {
            Source source(sequence, {first, second});
            MpegSeqHeader header;
            EXPECT_TRUE(header.decode(source.parser, nullptr));
            expectSequence(header);
        }
    }
}

/// The sequence header with both matrices of 64 values of 16, the first of which begin at the last
/// bit of the eighth byte, and a group behind it.
Bytes sequenceWithMatrices() {
    Bytes bytes = sequence;
    bytes[7] = 0xAA;               // load_intra_quantiser_matrix, and the top bit of a 16
    bytes.fill(63, 0x20).u8(0x21); // the rest of the 16s, then load_non_intra_quantiser_matrix
    bytes.fill(64, 0x10);
    return bytes.u32(0x1B8).add(group);
}

TEST(MpegSeqHeader, IsDecodedInFrontOfMatrices) {
    Source source(sequenceWithMatrices());
    MpegSeqHeader header;
    EXPECT_TRUE(header.decode(source.parser, nullptr));
    expectSequence(header);
    ASSERT_EQ(nextMpegStartCode(source.parser), 0x1B8U);
    MpegGopHeader gop;
    EXPECT_TRUE(gop.decode(source.parser, nullptr));
    EXPECT_EQ(gop.timeCode, 0x51730DU);
    EXPECT_TRUE(gop.closedGop);
}

TEST(MpegSeqHeader, DoesntNeedTheMatrices) {
    Bytes const bytes = sequenceWithMatrices();
    for (std::size_t size = 8; size < 8 + 128; ++size) {
        Source source(cutTo(bytes, size));
        MpegSeqHeader header;
        EXPECT_TRUE(header.decode(source.parser, nullptr)) << size;
        expectSequence(header);
        EXPECT_EQ(nextMpegStartCode(source.parser), 0U);
    }
}

TEST(MpegHeaders, FollowEachOtherAcrossEntries) {
    Bytes bytes;
    bytes.u8(0).u32(0x1B3).add(sequence).u32(0x1B5).u32(0x14820001).u32(0x1B8).add(group);
    bytes.u32(0x100);
    for (std::size_t cut = 0; cut <= bytes.size(); ++cut) {
        Source source(bytes, {cut, cut});
        ASSERT_EQ(nextMpegStartCode(source.parser), 0x1B3U);
        MpegSeqHeader header;
        ASSERT_TRUE(header.decode(source.parser, nullptr));
        expectSequence(header);
        ASSERT_EQ(nextMpegStartCode(source.parser), 0x1B5U);
        ASSERT_EQ(nextMpegStartCode(source.parser), 0x1B8U);
        MpegGopHeader gop;
        ASSERT_TRUE(gop.decode(source.parser, nullptr));
        EXPECT_TRUE(gop.closedGop);
        EXPECT_EQ(source.codes(), Codes({0x100}));
    }
}

} // namespace

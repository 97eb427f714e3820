#include <gmock/gmock.h>
#include <unistd.h>

#include <gxfstream/umf_rewriter.h>
#include <testing/stream_builder.h>
#include <testing/stream_sources.h>
#include <testing/umf_builder.h>

namespace {

using namespace GxfTypes;
using namespace GxfStream;
using namespace GxfTesting;

Bytes letters(std::string const& text) { return Bytes().text(text); }

Bytes media(std::size_t size) { return mediaPacket({}, Bytes().fill(size, 0x5A)); }

/// A clip of one track and one pair, with an XML document and bytes behind it.
UmfContent clip(std::string const& title = "Evening news") {
    UmfContent content;
    content.addTrack({});
    content.userData = umfPair(1, "Title", letters(title));
    content.hasIndex = true;
    content.indexWords = {1, 2, 0, 3, 0, 4, 5, 6};
    content.xml = utf16("<?xml version=\"1.0\"?><Asset/>").fill(2);
    content.rest = letters("behind the document");
    return content;
}

/// What a rewrite makes of a content that was `size` bytes long: zeros fill it up, and the word
/// that tells the whole length stays.
Bytes rewritten(UmfContent const& content, std::uint32_t size) {
    Bytes payload = content.payload();
    setWordAt(payload, 0, size);
    return payload.fill(size - payload.size());
}

/// Changes the first pair's value, whatever its name.
UmfRewriter::Change valueTo(std::string const& value) {
    return [value](UmfPacket& umf) {
        UmfPacket::UserDataPair& pair = umf.userData.pairs[0];
        pair.keyItem->valueSize = static_cast<unsigned>(value.size());
        pair.valueItem->init(
            UmfPacket::GxfKey(pair.valueItem->getKey()),
            UmfTrackNum(trackTypeEncodingMpeg2Sd, static_cast<TrackNumberEncoding>(48)),
            reinterpret_cast<unsigned char const*>(value.data()),
            static_cast<unsigned>(value.size()));
        return std::string();
    };
}

struct Rewrite {
    bool done = false;
    RewriteRefusal refusal;
    TailLoss loss;
    unsigned umfs = 0;
    std::vector<Patch> patches;
    Bytes stream; ///< with the patches in place
};

Rewrite rewrite(Bytes const& stream, UmfRewriter::Change const& change,
                UmfRewriter::TailRule rule = UmfRewriter::keepTail) {
    MemorySource source({stream.data(), stream.size()});
    PacketReader reader(source);
    UmfRewriter rewriter(change, rule);
    bool good = true;
    while (StreamPacket const* const packet = good ? reader.next() : nullptr) {
        good = rewriter.take(*packet, source);
    }
    Rewrite result;
    result.done = good && rewriter.finish(reader);
    result.refusal = rewriter.refusal();
    result.loss = rewriter.loss();
    result.umfs = rewriter.umfs();
    result.patches = rewriter.patches();
    MemorySource again({stream.data(), stream.size()});
    EXPECT_TRUE(copyPatched(again, result.patches, [&](Span bytes) {
        result.stream.text({reinterpret_cast<char const*>(bytes.data()), bytes.size()});
        return true;
    }));
    return result;
}

/// The packets of a content between other packets.
Bytes streamOf(Bytes const& payload) {
    return Bytes()
        .add(media(100))
        .add(joined(umfPackets(payload)))
        .add(media(50))
        .add(endOfStream());
}

TEST(UmfRewriter, ChangesTheUmfAndNothingElse) {
    UmfContent const before = clip("Evening news");
    UmfContent const after = clip("Late news");
    Rewrite const result = rewrite(streamOf(before.payload()), valueTo("Late news"));
    ASSERT_TRUE(result.done) << result.refusal.text;
    EXPECT_EQ(result.umfs, 1U);
    EXPECT_EQ(result.stream, streamOf(rewritten(after, before.size())));
    ASSERT_EQ(result.patches.size(), 1U);
    EXPECT_EQ(result.patches[0].offset, media(100).size());
    EXPECT_EQ(result.patches[0].before, umfPackets(before.payload())[0].vector());
    EXPECT_EQ(result.patches[0].after, umfPackets(rewritten(after, before.size()))[0].vector());
}

TEST(UmfRewriter, AChangeThatChangesNothingPatchesNothing) {
    Bytes const stream = streamOf(clip().payload());
    Rewrite const result = rewrite(stream, valueTo("Evening news"));
    EXPECT_TRUE(result.done);
    EXPECT_EQ(result.umfs, 1U);
    EXPECT_TRUE(result.patches.empty());
    EXPECT_EQ(result.stream, stream);
}

TEST(UmfRewriter, TheBytesOfALongUmfGoWhereItsPacketsLie) {
    UmfContent before = clip("Evening news");
    while (before.rest.size() < std::size_t{2} * 32768) {
        before.rest.u32(static_cast<std::uint32_t>(before.rest.size() * 0x01010101));
    }
    UmfContent after = clip("Late news");
    after.rest = before.rest;
    auto const spread = [](Bytes const& payload) {
        Bytes stream;
        for (Bytes const& packet : umfPackets(payload)) {
            stream.add(media(40)).add(packet).add(Bytes().fill(33, 0xAA));
        }
        return stream.add(media(1)).add(endOfStream());
    };
    Rewrite const result = rewrite(spread(before.payload()), valueTo("Late news"));
    ASSERT_TRUE(result.done) << result.refusal.text;
    EXPECT_EQ(result.stream, spread(rewritten(after, before.size())));
    EXPECT_EQ(result.patches.size(), 3U);
}

TEST(UmfRewriter, AllUmfsOfAStreamAreChangedAlike) {
    UmfContent const one = clip("Evening news");
    UmfContent two = clip("Morning");
    two.rest = Bytes();
    auto const both = [](Bytes const& first, Bytes const& second) {
        return streamOf(first).add(streamOf(second));
    };
    Rewrite const result = rewrite(both(one.payload(), two.payload()), valueTo("Noon"));
    ASSERT_TRUE(result.done) << result.refusal.text;
    EXPECT_EQ(result.umfs, 2U);
    UmfContent twoAfter = clip("Noon");
    twoAfter.rest = Bytes();
    EXPECT_EQ(result.stream,
              both(rewritten(clip("Noon"), one.size()), rewritten(twoAfter, two.size())));
}

TEST(UmfRewriter, AUmfThatCannotBeReadStopsAll) {
    Bytes broken = clip().payload();
    setWordAt(broken, 4, 9); // an unknown version
    Rewrite const result =
        rewrite(streamOf(clip().payload()).add(streamOf(broken)), valueTo("Late"));
    EXPECT_FALSE(result.done);
    EXPECT_EQ(result.refusal.kind, RewriteRefusal::broken);
    std::size_t const offset = streamOf(clip().payload()).size() + media(100).size();
    EXPECT_EQ(result.refusal.offset, offset);
    EXPECT_THAT(
        result.refusal.text,
        testing::StartsWith("the UMF at offset " + std::to_string(offset) + " can't be decoded, "));
}

TEST(UmfRewriter, PacketsThatMakeNoWholeUmfStopAll) {
    Bytes const alone = umfPacket(1, clip().payload()); // "First"
    for (Bytes const& stream :
         {Bytes(media(100)).add(alone),
          Bytes(media(100)).add(alone).add(streamOf(clip().payload())),
          Bytes(media(100)).add(umfPacket(2, letters("lost"))).add(streamOf(clip().payload())),
          Bytes(media(100)).add(packet(0xFD, {9, 0, 0, 0, 0})).add(streamOf(clip().payload()))}) {
        Rewrite const result = rewrite(stream, valueTo("Late"));
        EXPECT_FALSE(result.done);
        EXPECT_EQ(result.refusal.kind, RewriteRefusal::broken);
        EXPECT_EQ(result.refusal.offset, media(100).size());
        EXPECT_EQ(result.refusal.text, "the UMF at offset " + std::to_string(media(100).size()) +
                                           " isn't whole, so that it can't be changed");
    }
}

TEST(UmfRewriter, AUmfThatReachesOverOtherPacketsIsRefused) {
    UmfContent content = clip();
    content.rest = media(10).add(media(20));
    std::size_t const inside = media(100).size() + 21 + content.size() - content.rest.size();
    Bytes const stream =
        media(100).add(umfPacket(3, content.payload())).fill(3, 0xEE).add(media(5));
    Rewrite const result = rewrite(stream, valueTo("Late"));
    EXPECT_FALSE(result.done);
    EXPECT_EQ(result.refusal.kind, RewriteRefusal::broken);
    EXPECT_EQ(result.refusal.text, "the UMF at offset " + std::to_string(media(100).size()) +
                                       " reaches over another packet at offset " +
                                       std::to_string(inside));
}

TEST(UmfRewriter, PacketsCutInAnotherWayAreRefused) {
    UmfContent const content = clip();
    Rewrite const fragments =
        rewrite(joined(umfPackets(content.payload(), 200)).add(endOfStream()), valueTo("Late"));
    EXPECT_FALSE(fragments.done);
    EXPECT_EQ(fragments.refusal.kind, RewriteRefusal::layout);
    EXPECT_EQ(fragments.refusal.text,
              "the UMF at offset 0 lies in packets of other lengths than a rewrite makes for its " +
                  std::to_string(content.size()) + " bytes");
    // Four bytes of padding more than there need to be.
    Bytes payload;
    payload.u8(3).u32(content.size()).add(content.payload());
    while ((16 + payload.size()) % 4 != 0) {
        payload.u8(0);
    }
    Rewrite const padded =
        rewrite(packet(0xFD, payload.fill(4)).add(endOfStream()), valueTo("Late"));
    EXPECT_EQ(padded.refusal.kind, RewriteRefusal::layout);
}

TEST(UmfRewriter, WhatGrowsBeyondTheRoomIsRefused) {
    UmfContent const content = clip("Evening news");
    Rewrite const result = rewrite(streamOf(content.payload()), valueTo("Evening news, late"));
    EXPECT_FALSE(result.done);
    EXPECT_EQ(result.refusal.kind, RewriteRefusal::tail);
    EXPECT_EQ(result.refusal.text, "the UMF at offset " + std::to_string(media(100).size()) +
                                       " has no room for 6 bytes more");
    EXPECT_EQ(result.loss.missing, 6U);
    EXPECT_EQ(result.loss.behind, content.rest.size());
    EXPECT_EQ(result.loss.xml, 0U);
}

/// What is thrown away, in this order: what stands behind the document, the document, the index.
TEST(UmfRewriter, ThrowsTheTailAwayWhenItMay) {
    UmfContent const content = clip("Evening news");
    auto const longer = [](std::size_t by) { return std::string(12 + by, 'x'); };
    auto const behind = content.rest.size();
    auto const document = content.xml.size();

    UmfContent after = clip(longer(behind));
    after.rest = Bytes();
    Rewrite result =
        rewrite(streamOf(content.payload()), valueTo(longer(behind)), UmfRewriter::discardTail);
    ASSERT_TRUE(result.done) << result.refusal.text;
    EXPECT_EQ(result.stream, streamOf(rewritten(after, content.size())));
    EXPECT_EQ(result.loss.behind, behind);
    EXPECT_EQ(result.loss.xml, 0U);

    after = clip(longer(behind + 1));
    after.rest = Bytes();
    after.xml = Bytes();
    result =
        rewrite(streamOf(content.payload()), valueTo(longer(behind + 1)), UmfRewriter::discardTail);
    ASSERT_TRUE(result.done) << result.refusal.text;
    EXPECT_EQ(result.stream, streamOf(rewritten(after, content.size())));
    EXPECT_EQ(result.loss.behind, behind);
    EXPECT_EQ(result.loss.xml, document);

    // An item wants 16 bytes behind it: without the index there must be as much filler.
    after = clip(longer(behind + document));
    after.rest = Bytes();
    after.xml = Bytes();
    result = rewrite(streamOf(content.payload()), valueTo(longer(behind + document)),
                     UmfRewriter::discardTail);
    ASSERT_TRUE(result.done) << result.refusal.text;
    EXPECT_EQ(result.stream, streamOf(rewritten(after, content.size())));

    // So the index always has its room.
    result = rewrite(streamOf(content.payload()), valueTo(longer(behind + document + 1)),
                     UmfRewriter::discardTail);
    EXPECT_FALSE(result.done);
    EXPECT_EQ(result.refusal.kind, RewriteRefusal::room);
    EXPECT_EQ(result.loss.missing, behind + document + 1);
    EXPECT_EQ(result.refusal.text, "the UMF at offset " + std::to_string(media(100).size()) +
                                       " has no room for " + std::to_string(behind + document + 1) +
                                       " bytes more, even without its tail");
}

TEST(UmfRewriter, TheLastItemKeepsItsSixteenBytes) {
    UmfContent content;
    content.addTrack({});
    content.userData = umfPair(1, "Title", letters("four"));
    content.rest = Bytes().fill(20);
    UmfContent after = content;
    after.userData = umfPair(1, "Title", letters("fouruuuu"));
    after.rest = Bytes().fill(16);
    Rewrite result = rewrite(streamOf(content.payload()), valueTo("fouruuuu"));
    ASSERT_TRUE(result.done) << result.refusal.text;
    EXPECT_EQ(result.stream, streamOf(rewritten(after, content.size())));
    result = rewrite(streamOf(content.payload()), valueTo("fouruuuuu"), UmfRewriter::discardTail);
    EXPECT_FALSE(result.done);
    EXPECT_EQ(result.refusal.kind, RewriteRefusal::room);
    EXPECT_EQ(result.loss.missing, 1U);
}

TEST(UmfRewriter, AllLossesAreCounted) {
    UmfContent big = clip("Evening news");
    UmfContent small = clip("Evening news");
    small.rest = letters("behind");
    std::string const value(12 + big.rest.size() + 1, 'x');
    Rewrite const result = rewrite(streamOf(big.payload()).add(streamOf(small.payload())),
                                   valueTo(value), UmfRewriter::discardTail);
    ASSERT_TRUE(result.done) << result.refusal.text;
    EXPECT_EQ(result.loss.behind, big.rest.size() + small.rest.size());
    EXPECT_EQ(result.loss.xml, big.xml.size() + small.xml.size());
}

/// Written without its terminator it would not be written at all, and all behind it would move.
TEST(UmfRewriter, AUserDataTextThatFillsItsFieldIsNotRewritten) {
    for (std::size_t const field : {20U, 52U, 84U, 164U, 244U}) {
        UmfContent content = clip("Evening news");
        content.userData.add(umfPair(2, "Rights", letters("all")));
        std::size_t const size = field == 84 || field == 164 ? 80 : 32;
        std::size_t const key = umfPair(1, "Title", letters("Evening news")).size() + 16;
        for (std::size_t i = 0; i < size; ++i) {
            content.userData[key + field + i] = 'V';
        }
        Rewrite const result = rewrite(streamOf(content.payload()), valueTo("Late"));
        EXPECT_FALSE(result.done) << field;
        EXPECT_EQ(result.refusal.kind, RewriteRefusal::inexact);
        EXPECT_EQ(result.refusal.text,
                  "the UMF at offset " + std::to_string(media(100).size()) +
                      " has a text in its user data that fills its field, and would be lost");
    }
}

TEST(UmfRewriter, AMediaNameThatFillsItsFieldIsNotRewritten) {
    UmfContent content = clip("Evening news");
    for (std::size_t i = 0; i < 88; ++i) {
        content.media[0][24 + i] = 'N';
    }
    Rewrite const result = rewrite(streamOf(content.payload()), valueTo("Late"));
    EXPECT_FALSE(result.done);
    EXPECT_EQ(result.refusal.kind, RewriteRefusal::inexact);
}

TEST(UmfRewriter, AnXmlThatTheIndexCouldNoLongerReachIsRefused) {
    UmfContent content = clip("Evening news");
    content.rest = Bytes().fill(70000);
    Rewrite result = rewrite(streamOf(content.payload()), valueTo(std::string(64500, 'x')));
    EXPECT_TRUE(result.done) << result.refusal.text;
    result = rewrite(streamOf(content.payload()), valueTo(std::string(65500, 'x')));
    EXPECT_FALSE(result.done);
    EXPECT_EQ(result.refusal.kind, RewriteRefusal::room);
    EXPECT_EQ(result.refusal.text, "the UMF at offset " + std::to_string(media(100).size()) +
                                       " would have its XML further in than its index can tell");
}

/// The reader doesn't hand it out, and yet it can't be changed like the others.
TEST(UmfRewriter, AUmfThatIsCutOffOrTooLargeStopsAll) {
    Bytes const first = media(10).add(joined(umfPackets(clip().payload())));
    Bytes const cut = umfPackets(clip().payload())[0];
    Bytes const large = Bytes().add(header(0xFD, (4U << 20) + 4)).fill((4U << 20) - 12, 0x11);
    for (Bytes const& stream :
         {Bytes(first).text({reinterpret_cast<char const*>(cut.data()), cut.size() - 9}),
          Bytes(first).add(large).add(endOfStream())}) {
        Rewrite const result = rewrite(stream, valueTo("Late"));
        EXPECT_FALSE(result.done) << stream.size();
        EXPECT_EQ(result.umfs, 1U);
        EXPECT_EQ(result.refusal.kind, RewriteRefusal::broken);
        EXPECT_EQ(result.refusal.text, "the UMF at offset " + std::to_string(first.size()) +
                                           " isn't whole, so that it can't be changed");
    }
}

TEST(UmfRewriter, ZerosAtTheEndAreRoom) {
    Bytes const original = streamOf(clip("Evening news").payload());
    Rewrite const shorter = rewrite(original, valueTo("E"));
    ASSERT_TRUE(shorter.done);
    Rewrite const again = rewrite(shorter.stream, valueTo("Evening news"));
    ASSERT_TRUE(again.done) << again.refusal.text;
    EXPECT_EQ(again.stream, original);
    Rewrite const tooLong = rewrite(shorter.stream, valueTo("Evening news!"));
    EXPECT_FALSE(tooLong.done);
    EXPECT_EQ(tooLong.loss.missing, 1U);
    EXPECT_EQ(tooLong.loss.behind, clip().rest.size());
}

/// Bytes that no field holds: behind the name of a media file, in a reserved place of its
/// description. The padding of the packet is written anew.
TEST(UmfRewriter, BytesInFrontOfTheUserDataStay) {
    auto const dirty = [](UmfContent content, std::uint32_t size) {
        content.media[0][24 + 80] = 0x99;
        content.media[0][158] = 0x98;
        Bytes packet = umfPackets(rewritten(content, size))[0];
        EXPECT_NE(size % 4, 3U); // there is padding
        packet[packet.size() - 1] = 0x97;
        return media(100).add(packet).add(endOfStream());
    };
    UmfContent before = clip("Evening news");
    before.rest.fill((7 - before.size() % 4) % 4, 'x'); // one byte of padding at least
    before.rest.fill(before.size() % 4 == 3 ? 1 : 0, 'x');
    UmfContent after = before;
    after.userData = umfPair(1, "Title", letters("Late news"));
    Rewrite const result = rewrite(dirty(before, before.size()), valueTo("Late news"));
    ASSERT_TRUE(result.done) << result.refusal.text;
    Bytes expected = dirty(after, before.size());
    // Behind the user data the bytes move, and the padding is written anew.
    expected[media(100).size() + umfPackets(before.payload())[0].size() - 1] = 0;
    EXPECT_EQ(result.stream, expected);
}

TEST(UmfRewriter, BytesThatWouldBeLostAreNotRewritten) {
    // An index of another size isn't read: the bytes of its length are missing at the end.
    UmfContent content = clip();
    content.hasIndex = false;
    content.xml = Bytes();
    content.rest = Bytes().fill(40, 0x77);
    Bytes payload = content.payload();
    setWordAt(payload, 44, 12);
    Rewrite const result = rewrite(streamOf(payload), valueTo("Late"));
    EXPECT_FALSE(result.done);
    EXPECT_EQ(result.refusal.kind, RewriteRefusal::inexact);
    EXPECT_EQ(result.refusal.text, "the UMF at offset " + std::to_string(media(100).size()) +
                                       " has bytes that a rewrite would lose");
}

TEST(UmfRewriter, AnXmlThatTheParserRefusesStaysAsItIs) {
    UmfContent before = clip("Evening news");
    before.xml = utf16("<?xml version=\"1.0\"?><Asset></Data>").fill(2);
    UmfContent after = before;
    after.userData = umfPair(1, "Title", letters("Late"));
    Rewrite const result = rewrite(streamOf(before.payload()), valueTo("Late"));
    ASSERT_TRUE(result.done) << result.refusal.text;
    EXPECT_EQ(result.stream, streamOf(rewritten(after, before.size())));
}

TEST(UmfRewriter, AChangeThatCannotBeMadeIsToldAndStopsAll) {
    Rewrite const result = rewrite(streamOf(clip().payload()),
                                   [](UmfPacket&) { return std::string("no such track"); });
    EXPECT_FALSE(result.done);
    EXPECT_EQ(result.refusal.kind, RewriteRefusal::change);
    EXPECT_EQ(result.refusal.text, "the UMF at offset " + std::to_string(media(100).size()) +
                                       " can't be changed: no such track");
}

TEST(UmfRewriter, AnEncodingThatFailsStopsAll) {
    // A segment of a kind that decodes and has no form to be written in.
    UmfContent content = clip();
    Bytes payload = content.payload();
    std::size_t const typeOffset = 104 + 4 + 24 + 88;
    setWordAt(payload, typeOffset, 1); // Motion JPEG
    Rewrite const result = rewrite(streamOf(payload), valueTo("Late"));
    EXPECT_FALSE(result.done);
    EXPECT_EQ(result.refusal.kind, RewriteRefusal::inexact);
    EXPECT_THAT(result.refusal.text, testing::HasSubstr(" can't be written, "));
}

TEST(UmfRewriter, AStreamWithoutUmfHasNothingToChange) {
    Rewrite const result = rewrite(media(100).add(endOfStream()), valueTo("Late"));
    EXPECT_TRUE(result.done);
    EXPECT_EQ(result.umfs, 0U);
}

TEST(CopyPatched, StopsWhenTheSinkDoes) {
    Bytes const stream = letters("abcdefgh");
    MemorySource source({stream.data(), stream.size()});
    unsigned calls = 0;
    EXPECT_FALSE(copyPatched(source, {{2, {'c'}, {'C'}}}, [&](Span) { return ++calls < 2; }));
    EXPECT_EQ(calls, 2U);
}

TEST(CopyPatched, ASourceThatIsAnotherOneFails) {
    Bytes const stream = letters("abcdefgh");
    MemorySource source({stream.data(), stream.size()});
    EXPECT_FALSE(copyPatched(source, {{2, {'x'}, {'C'}}}, [](Span) { return true; }));
}

TEST(CopyPatched, ASourceThatBecomesShorterFails) {
    Bytes bytes = Bytes().fill(3U << 20, 0x33);
    TemporaryFile const file(bytes);
    std::string error;
    auto const source = FileSource::open(file.path(), error);
    ASSERT_NE(source, nullptr) << error;
    EXPECT_FALSE(copyPatched(*source, {{2, {0x33}, {0x44}}}, [&file](Span) {
        return ::ftruncate(file.descriptor(), 2U << 20) == 0;
    }));
}

TEST(CopyPatched, ASourceThatEndsInFrontOfAPatchFails) {
    Bytes const stream = letters("abcdefgh");
    MemorySource source({stream.data(), stream.size()});
    EXPECT_FALSE(copyPatched(source, {{20, {'c'}, {'C'}}}, [](Span) { return true; }));
}

TEST(CopyPatched, CopiesAFileInPieces) {
    Bytes bytes;
    for (unsigned i = 0; i < 700000; ++i) {
        bytes.u32(i);
    }
    StreamSource const source(SourceKind::file, bytes);
    std::string copy;
    EXPECT_TRUE(
        copyPatched(*source, {{1500000, {0x00, 0x05}, {7, 8}}, {2799998, {0xAE, 0x5F}, {9, 9}}},
                    [&copy](Span part) {
                        copy.append(reinterpret_cast<char const*>(part.data()), part.size());
                        return true;
                    }));
    bytes[1500000] = 7;
    bytes[1500001] = 8;
    bytes[2799998] = 9;
    bytes[2799999] = 9;
    EXPECT_TRUE(copy == std::string(reinterpret_cast<char const*>(bytes.data()), bytes.size()));
}

} // namespace

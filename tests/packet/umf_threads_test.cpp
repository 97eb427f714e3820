#include <atomic>
#include <cstring>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include <testing/bytes.h>
#include <testing/capture.h>
#include <testing/umf_builder.h>

using namespace GxfTypes;
using namespace GxfTesting;

// A packet belongs to one thread at a time; several threads may each have one.

namespace {

constexpr unsigned nThreads = 4;
constexpr unsigned rounds = 25;

void inThreads(std::function<void(unsigned)> const& work) {
    std::vector<std::thread> threads;
    for (unsigned i = 0; i < nThreads; ++i) {
        threads.emplace_back(work, i);
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
}

/// A UMF of each thread's own, with numbers that have no name, so that the texts for those are
/// needed too.
UmfContent contentOf(unsigned thread) {
    std::string const mark(1 + thread, static_cast<char>('a' + thread));
    UmfContent content;
    content.addTrack({'0' + thread, 'A' + thread, 2});
    content.addTrack({'1' + thread, 'a' + thread, 1 + thread});
    content.media[0][112] = static_cast<unsigned char>(12 + thread); // no media type
    content.media[1][128] = static_cast<unsigned char>(5 + thread);  // no sampling
    content.userData = umfPair(thread, "Name" + mark, Bytes().text("value" + mark));
    content.userData.add(umfValueItem(thread + 100, Bytes().text(mark)));
    content.hasIndex = true;
    content.xml = utf16("<?xml version=\"1.0\"?><Asset><Data><Track trackType=\"AudioTrack\" "
                        "trackNumber=\"" +
                        std::to_string(thread + 1) + "\" trackLabel=\"Label" + mark +
                        "\"><Segment><MediaSegment><MpegSegment AspectRatio=\"9x16\"/>"
                        "</MediaSegment></Segment></Track></Data></Asset>");
    content.rest = Bytes().fill(33000 + 1000 * thread, thread);
    return content;
}

/// All that a thread gets out of its UMF in one round, as one text.
std::string useUmf(PacketPool& pool, UmfContent const& content, std::string const& name) {
    AutoRefPtr<UmfPacket> const packet = gathered(pool, umfPackets(content.payload()));
    OpResult const result = packet->decodeFinal();
    std::string text = result.toString();
    text += packet->toString().get();
    text += packet->xmlTree.toString().get();
    GxfXmlTrack const* const track = packet->getXmlTrack(
        {trackTypeEncodingAudio, UmfTrackNum::umfTrackNumToTrackNumEncoding(
                                     static_cast<unsigned char>(content.tracks[0].number - '0'))});
    text += track != nullptr ? track->getLabel() : "no track";

    packet->userData.removeUserData(name.c_str());
    unsigned char const value[] = {1, 2, 3};
    packet->userData.addUserData("New", {}, userDataBinary, value, 3);
    text += packet->update().toString();
    packet->mediaDescs[0].mediaType = mediaTypeAncillaryData;
    Bytes storage = Bytes().fill(packet->getCodedLength());
    GxfBuffer out = storage.emptyBuffer();
    text += packet->encode(out).toString();
    text.append(reinterpret_cast<char const*>(storage.data()), storage.size());
    AutoRefPtr<UmfPacket> const copy = packet->clone();
    text += copy.get() != nullptr ? copy->toString().get() : "no copy";
    return text;
}

/// A payload that fails in its own way, and what it says.
std::string failUmf(PacketPool& pool, unsigned thread) {
    UmfContent content = contentOf(thread);
    content.xml = utf16("<?xml version=\"1.0\"?><a></" + std::string(1 + thread, 'x') + ">");
    std::string text = gathered(pool, umfPackets(content.payload()))->decodeFinal().getText();
    Bytes payload = contentOf(thread).payload();
    setWordAt(payload, 44, 17 + thread); // the index's length
    text += gathered(pool, umfPackets(payload))->decodeFinal().getText();
    content.xml = utf16("<?xml ").add({0, 0xDC}).add(utf16(">"));
    text += gathered(pool, umfPackets(content.payload()))->decodeFinal().getText();
    return text;
}

std::string failureOf(unsigned thread) {
    return "err=76:(Opening and ending tag mismatch: a line 1 and " + std::string(1 + thread, 'x') +
           ")UMF index size " + std::to_string(17 + thread) +
           "b != 16bconversion to utf8 failed [Success]";
}

/// A pool of its own for each use: a packet that was used before keeps its tail and its tree.
std::string expectedOf(unsigned thread) {
    PacketPool pool;
    return useUmf(pool, contentOf(thread),
                  "Name" + std::string(1 + thread, static_cast<char>('a' + thread)));
}

/// Counts what a sink is given, by a text that all threads send.
std::atomic<unsigned> starts{0};
std::atomic<unsigned> ends{0};

void countingSink(MessageKind, char const* text) {
    if (std::strcmp(text, "start UmfPacket decodeFinal\n") == 0) {
        ++starts;
    } else if (std::strncmp(text, "end UmfPacket encode: ", 22) == 0) {
        ++ends;
    }
}

class Sink {
  public:
    Sink() : m_before(setMessageSink(&countingSink)) {
        starts = 0;
        ends = 0;
    }
    Sink(Sink const&) = delete;
    Sink& operator=(Sink const&) = delete;
    ~Sink() { setMessageSink(m_before); }

  private:
    MessageSink m_before;
};

} // namespace

TEST(UmfThreads, EachDecodesPrintsAndEncodesItsOwn) {
    Sink const sink;
    std::vector<std::string> expected;
    for (unsigned thread = 0; thread < nThreads; ++thread) {
        expected.push_back(expectedOf(thread));
        EXPECT_NE(expected.back().find("Label" +
                                       std::string(1 + thread, static_cast<char>('a' + thread))),
                  std::string::npos);
    }
    std::atomic<unsigned> good{0};
    inThreads([&](unsigned thread) {
        for (unsigned round = 0; round < rounds; ++round) {
            good += expectedOf(thread) == expected[thread] ? 1 : 0;
        }
    });
    EXPECT_EQ(good, nThreads * rounds);
}

TEST(UmfThreads, EachFailsInItsOwnWay) {
    Sink const sink;
    std::atomic<unsigned> good{0};
    inThreads([&](unsigned thread) {
        for (unsigned round = 0; round < rounds; ++round) {
            PacketPool pool;
            good += failUmf(pool, thread) == failureOf(thread) ? 1 : 0;
        }
    });
    EXPECT_EQ(good, nThreads * rounds);
}

TEST(UmfThreads, ShareAPoolAndAllChannels) {
    Sink const sink;
    ChannelSetting const decodeLevel(gxfDecodeDetail, 9);
    ChannelSetting const encodeLevel(gxfEncodeDetail, 9);
    PacketPool pool;
    std::atomic<unsigned> good{0};
    inThreads([&](unsigned thread) {
        UmfContent const content = contentOf(thread);
        std::vector<Bytes> const wire = umfPackets(content.payload());
        for (unsigned round = 0; round < rounds; ++round) {
            // Released by this thread, and perhaps used by another one next.
            AutoRefPtr<UmfPacket> const packet = gathered(pool, wire);
            packet->decodeFinal();
            packet->mediaDescs[0].mediaType = mediaTypeAncillaryData;
            Bytes storage = Bytes().fill(packet->getCodedLength());
            GxfBuffer out = storage.emptyBuffer();
            packet->fillerData.erase();
            bool const isWritten = packet->update() && packet->encode(out);
            GxfBuffer again = storage.filledBuffer();
            good += isWritten && again.nOccupied() == joined(wire).size() ? 1 : 0;
        }
    });
    EXPECT_EQ(good, nThreads * rounds);
    EXPECT_EQ(starts, nThreads * rounds);
    EXPECT_EQ(ends, nThreads * rounds);
}

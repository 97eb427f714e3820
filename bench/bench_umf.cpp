// A UMF: its final decode with and without XML, its user data, and its encode. What comes before an
// operation (the packets that are gathered, the packet that the set belongs to) and what comes
// behind it (giving the memory back) isn't timed, on neither side of a comparison.

#include <cstring>
#include <iconv.h>
#include <libxml/parser.h>
#include <malloc.h>
#include <memory>

#include <bench/comparison.h>
#include <gxftypes/packet/gxf.h>
#include <testing/umf_builder.h>

using namespace GxfBench;
using namespace GxfTesting;
using namespace GxfTypes;

namespace {

constexpr unsigned xmlTracks = 200;
constexpr std::size_t xmlSize = std::size_t{40} << 10;
constexpr unsigned trackCount = 20;
constexpr unsigned itemsPerPair = 2;

std::string trackElement(unsigned index) {
    bool const isAudio = index != 0;
    std::string const number = std::to_string(isAudio ? index : 1);
    return std::string("<Track trackType=\"") + (isAudio ? "AudioTrack" : "MpegHiDefVideoTrack") +
           "\" trackNumber=\"" + number + "\" trackLabel=\"" + (isAudio ? "A" : "V") + number +
           "\"><Segment duration=\"600\"/></Track>\n";
}

/// 40 KiB of UTF-16. The name of the movie takes up what the tracks leave.
Bytes xmlRegion() {
    std::string const head = "<?xml version=\"1.0\"?>\n<Asset><Data><Header Version=\"2.0\"/>\n"
                             "<Movie uri=\"clip://BENCH\" movieName=\"";
    std::string tracks = "\"/>\n";
    for (unsigned i = 0; i < xmlTracks; ++i) {
        tracks += trackElement(i);
    }
    tracks += "</Data></Asset>";
    return utf16(head + std::string(xmlSize / 2 - head.size() - tracks.size(), 'n') + tracks);
}

UmfContent contentOfTracks() {
    UmfContent content;
    content.addTrack({'0', 'M', 1});
    for (unsigned i = 1; i < trackCount; ++i) {
        content.addTrack({i < 10 ? '0' + i : 'A' + i - 10, 'A', 1});
    }
    return content;
}

UmfContent contentWithXml() {
    UmfContent content = contentOfTracks();
    content.hasIndex = true;
    content.xml = xmlRegion();
    return content;
}

std::string pairName(unsigned index) { return "Property " + std::to_string(index); }

Bytes pairValue(unsigned index) { return Bytes().text("value " + std::to_string(index)); }

UmfContent contentWithPairs(unsigned pairs) {
    UmfContent content = contentOfTracks();
    for (unsigned i = 0; i < pairs; ++i) {
        content.userData.add(umfPair(i, pairName(i), pairValue(i)));
    }
    // An item is only taken when 16 bytes follow it.
    content.rest = Bytes().fill(16);
    return content;
}

bool isWhole(UmfPacket const& umf, unsigned pairs, unsigned tracksOfXml) {
    return umf.isValid() && umf.mediaDescs.size() == trackCount && umf.userData.nItems() == pairs &&
           umf.xmlTree.getXmlTracks().size() == tracksOfXml;
}

/// Each pass has a pool of its own: a packet that came back would bring its XML along.
void decodeFinal(benchmark::State& state, UmfContent const& content, unsigned pairs,
                 unsigned tracksOfXml) {
    std::vector<Bytes> const packets = umfPackets(content.payload());
    for (auto _ : state) {
        state.PauseTiming();
        {
            PacketPool pool;
            AutoRefPtr<UmfPacket> const umf = gathered(pool, packets);
            state.ResumeTiming();
            OpResult const result = umf->decodeFinal();
            state.PauseTiming();
            if (!result || !isWhole(*umf, pairs, tracksOfXml)) {
                state.SkipWithError("the UMF can't be read");
            }
        }
        state.ResumeTiming();
    }
}

void decodeFinalWithXml(benchmark::State& state) {
    decodeFinal(state, contentWithXml(), 0, xmlTracks);
}

using Document = std::unique_ptr<xmlDoc, decltype(&xmlFreeDoc)>;

Document parseByHand(unsigned char* text, std::size_t size) {
    auto const utf8 = std::make_unique_for_overwrite<char[]>(size);
    char* from = reinterpret_cast<char*>(text);
    std::size_t fromLeft = size;
    char* to = utf8.get();
    std::size_t toLeft = size;
    iconv_t const converter = iconv_open("UTF-8", "UTF-16LE");
    bool const isConverted =
        iconv(converter, &from, &fromLeft, &to, &toLeft) != static_cast<std::size_t>(-1);
    iconv_close(converter);
    return {isConverted ? xmlReadMemory(utf8.get(), static_cast<int>(size - toLeft), "bench",
                                        nullptr, XML_PARSE_NOERROR | XML_PARSE_NOWARNING)
                        : nullptr,
            &xmlFreeDoc};
}

void parseXmlByHand(benchmark::State& state) {
    UmfContent const content = contentWithXml();
    std::vector<Bytes> const packets = umfPackets(content.payload());
    for (auto _ : state) {
        state.PauseTiming();
        {
            PacketPool pool;
            AutoRefPtr<UmfPacket> const umf = gathered(pool, packets);
            unsigned char* const text = umf->gatherBuffer.ptrBegin() + content.xmlOffset();
            state.ResumeTiming();
            Document const document = parseByHand(text, xmlSize);
            state.PauseTiming();
            if (document == nullptr) {
                state.SkipWithError("the document can't be read");
            }
        }
        state.ResumeTiming();
    }
}

void countItems(benchmark::State& state, char const* what, unsigned items) {
    state.counters[what] = benchmark::Counter(items, benchmark::Counter::kIsIterationInvariantRate |
                                                         benchmark::Counter::kInvert);
}

void decodeFinalWithPairs(benchmark::State& state) {
    auto const pairs = static_cast<unsigned>(state.range(0));
    decodeFinal(state, contentWithPairs(pairs), pairs, 0);
    countItems(state, "time/item", itemsPerPair * pairs);
}

void addPairsByName(benchmark::State& state) {
    auto const pairs = static_cast<unsigned>(state.range(0));
    std::vector<std::string> names;
    std::vector<Bytes> values;
    for (unsigned i = 0; i < pairs; ++i) {
        names.push_back(pairName(i));
        values.push_back(pairValue(i));
    }
    UmfTrackNum const track(trackTypeEncodingMpeg2Sd, static_cast<TrackNumberEncoding>('0'));
    for (auto _ : state) {
        state.PauseTiming();
        {
            UmfPacket::UserDataSet set;
            state.ResumeTiming();
            for (unsigned i = 0; i < pairs; ++i) {
                set.addUserData(names[i].c_str(), track, userDataString, values[i].data(),
                                static_cast<unsigned>(values[i].size()));
            }
            state.PauseTiming();
            if (set.nItems() != pairs || set.getNextKeyId() != pairs) {
                state.SkipWithError("the pairs can't be added");
            }
        }
        state.ResumeTiming();
    }
    countItems(state, "time/pair", pairs);
}

void encodeUmf(benchmark::State& state) {
    PacketPool pool;
    std::vector<Bytes> const packets = umfPackets(contentWithPairs(300).payload());
    AutoRefPtr<UmfPacket> const umf = gathered(pool, packets);
    umf->decodeFinal();
    Bytes out = Bytes().fill(umf->getCodedLength());
    for (auto _ : state) {
        GxfBuffer buffer = out.emptyBuffer();
        if (!umf->encode(buffer)) {
            state.SkipWithError("the UMF can't be written");
            break;
        }
        benchmark::ClobberMemory();
    }
    if (out != joined(packets)) {
        state.SkipWithError("the UMF isn't written as it was read");
    }
}

void copyUmf(benchmark::State& state) {
    Bytes const bytes = joined(umfPackets(contentWithPairs(300).payload()));
    Bytes out = Bytes().fill(bytes.size());
    for (auto _ : state) {
        std::memcpy(out.data(), bytes.data(), bytes.size());
        benchmark::ClobberMemory();
    }
}

} // namespace

BENCHMARK(decodeFinalWithXml);
BENCHMARK(parseXmlByHand);
BENCHMARK(decodeFinalWithPairs)->Arg(300)->Arg(3000);
BENCHMARK(addPairsByName)->Arg(300)->Arg(3000);
BENCHMARK(encodeUmf);
BENCHMARK(copyUmf);

int main(int argc, char** argv) {
    // Else memory goes back to the kernel between two passes, and one side or the other fetches it
    // page by page again.
    mallopt(M_TRIM_THRESHOLD, 256 << 20);
    mallopt(M_MMAP_THRESHOLD, 32 << 20);
    return runAndCompare(
        argc, argv,
        {{"UMF of 20 tracks, XML of 200: decodeFinal / iconv and parser, time",
          Comparison::timeRatio, "decodeFinalWithXml", "parseXmlByHand", "", 1.3},
         {"UMF of 20 tracks, 300 pairs: decodeFinal, ns per item", Comparison::counterValue,
          "decodeFinalWithPairs/300", "", "time/item", -1},
         {"UMF of 20 tracks, 3000 pairs: decodeFinal, ns per item", Comparison::counterValue,
          "decodeFinalWithPairs/3000", "", "time/item", -1},
         {"UMF: decodeFinal, an item of 3000 pairs / one of 300, time", Comparison::counterRatio,
          "decodeFinalWithPairs/3000", "decodeFinalWithPairs/300", "time/item", 1.2},
         {"User data: adding 300 pairs by name, ns per pair", Comparison::counterValue,
          "addPairsByName/300", "", "time/pair", -1},
         {"User data: adding 3000 pairs by name, ns per pair", Comparison::counterValue,
          "addPairsByName/3000", "", "time/pair", -1},
         {"User data: adding, a pair of 3000 / one of 300, time", Comparison::counterRatio,
          "addPairsByName/3000", "addPairsByName/300", "time/pair", -1},
         {"UMF of 20 tracks, 300 pairs: encode / memcpy of its bytes, time", Comparison::timeRatio,
          "encodeUmf", "copyUmf", "", -1}});
}

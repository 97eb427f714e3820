#include <algorithm>
#include <cmath>
#include <memory>
#include <set>

#include "fields.h"
#include "input.h"
#include "output.h"
#include "text.h"

namespace Gxf {

using namespace GxfStream;
using namespace GxfTypes;

namespace {

struct Options : StreamOptions {
    unsigned track = 0;
    std::string output = "-";
    FieldRange fields;
};

/// Bytes of a payload, from its first byte on.
struct Stretch {
    std::uint64_t first;
    std::uint64_t size;
};

/// Bytes of one audio sample; 0 for what isn't audio.
unsigned sampleSize(TrackMediaType type) {
    switch (type) {
    case trackMediaAudioPCM_16:
    case trackMediaAc3_16bit:
        return 2;
    case trackMediaAudioPCM_24:
    case trackMediaCompressedAudio:
        return 3;
    default:
        return 0;
    }
}

bool isPcm(TrackMediaType type) {
    return type == trackMediaAudioPCM_16 || type == trackMediaAudioPCM_24;
}

bool endsInWav(std::string const& path) {
    return path.size() >= 4 && striCmp(path.c_str() + path.size() - 4, ".wav") == 0;
}

class Extraction {
  public:
    explicit Extraction(Options const& options)
        : m_options(options), m_input(options), m_output(open()),
          m_isWav(endsInWav(options.output)) {}

    int run() {
        while (StreamPacket const* const packet = m_input.next()) {
            if (AutoRefPtr<MapPacket> const map = mapOf(*packet); map.get() != nullptr) {
                noteMap(*map);
            }
            MediaPacket const* const media = packet->media();
            if (media == nullptr || !media->valid) {
                continue;
            }
            m_seenTracks.insert(media->hdr.getTrackNum());
            if (media->hdr.getTrackNum() == m_options.track) {
                take(*packet, media->hdr);
            }
        }
        if (!m_mediaType) {
            throw NotDone(noSuchTrack());
        }
        if (m_input.status() == notDone) {
            throw NotDone(m_input.name() + ": reading failed; nothing is written");
        }
        finishWav();
        m_output.finish();
        if (m_written == 0 && !m_options.fields.isAll()) {
            return m_input.notFound("track " + std::to_string(m_options.track) +
                                    " has nothing of " + m_options.fields.text());
        }
        return m_input.status();
    }

  private:
    Output open() const {
        if (m_options.output == "-") {
            Output output = Output::standard();
            if (output.isTerminal()) {
                throw NotDone("essence isn't written to a terminal; give -o OUT, or pipe it on");
            }
            return output;
        }
        if (m_input.isSameFile(m_options.output)) {
            throw NotDone(m_options.output + ": is the stream itself; choose another output name");
        }
        return Output::file(m_options.output);
    }

    void noteMap(MapPacket const& map) {
        m_fieldsPerSecond = map.tracks.getRealFieldRate();
        for (unsigned i = 0; i < map.tracks.size(); ++i) {
            if (map.tracks[i]->getTrackNum() == m_options.track) {
                m_fieldsPerPicture = fieldsPerPicture(map.tracks[i]);
            }
        }
    }

    void take(StreamPacket const& packet, MediaPacketHdr const& hdr) {
        if (!m_mediaType) {
            begin(hdr.getMediaType());
        }
        if (hdr.getMediaType() != *m_mediaType) {
            m_input.addFault(packet.offset, "this packet of track " +
                                                std::to_string(m_options.track) + " is " +
                                                getName(hdr.getMediaType()) + ", not " +
                                                getName(*m_mediaType) + "; it is left out");
            return;
        }
        Stretch const wanted = essenceOf(packet, hdr);
        if (wanted.size != 0) {
            copy(wanted);
        }
    }

    void begin(TrackMediaType type) {
        m_mediaType = type;
        if (!m_isWav) {
            return;
        }
        if (!isPcm(type)) {
            throw NotDone("track " + std::to_string(m_options.track) + " is " + getName(type) +
                          ", which a .wav file can't hold; choose another output name");
        }
        if (!m_output.canRewind()) {
            throw NotDone(m_options.output + ": a .wav file needs a regular file");
        }
        m_output.write(wavHeader());
    }

    /// The bytes of the payload that are essence of the chosen fields.
    Stretch essenceOf(StreamPacket const& packet, MediaPacketHdr const& hdr) {
        std::uint64_t const held = packet.length - Packet::headerSize - MediaPacketHdr::wireSize;
        std::uint64_t const start = MediaPacketHdr::wireSize;
        if (unsigned const bytes = sampleSize(hdr.getMediaType())) {
            Stretch const samples = samplesOf(packet, hdr, held / bytes);
            return {start + samples.first * bytes, samples.size * bytes};
        }
        if (!overlaps(hdr)) {
            return {start, 0};
        }
        if (!hdr.isMpeg()) {
            return {start, held};
        }
        if (hdr.getMpegByteCount() > held) {
            m_input.addFault(packet.offset,
                             "this picture claims " + std::to_string(hdr.getMpegByteCount()) +
                                 " bytes, but its packet holds " + std::to_string(held));
        }
        return {start, std::min<std::uint64_t>(hdr.getMpegByteCount(), held)};
    }

    bool overlaps(MediaPacketHdr const& hdr) const {
        std::uint32_t const first = hdr.getMediaField();
        bool const isPicture = getTrackType(hdr.getMediaType()) == trackTypeVideo ||
                               getTrackType(hdr.getMediaType()) == trackTypeUnknown;
        std::uint64_t const last = isPicture ? std::uint64_t{first} + m_fieldsPerPicture - 1
                                             : lastFieldOf(hdr, nullptr, m_fieldsPerSecond);
        return last >= m_options.fields.first && first <= m_options.fields.last;
    }

    /// In samples from the first of the packet on.
    Stretch samplesOf(StreamPacket const& packet, MediaPacketHdr const& hdr, std::uint64_t held) {
        std::uint64_t first = hdr.getFirstValid();
        std::uint64_t end = hdr.getLastValid() + std::uint64_t{1};
        if (end <= first || end > held) {
            m_input.addFault(packet.offset,
                             "this packet claims the samples " + std::to_string(first) + " to " +
                                 std::to_string(end - 1) + " of " + std::to_string(held));
            end = std::min(end, held);
        }
        m_samplesPerPacket = std::max(m_samplesPerPacket, held);
        if (!m_options.fields.isAll() && held != 0) {
            double const perField = samplesPerField(m_fieldsPerSecond);
            double const base = firstSampleOf(hdr.getMediaField());
            auto const inPacket = [&](double field) {
                double const sample = firstSampleOfField(field, perField) - base;
                return static_cast<std::uint64_t>(
                    std::clamp(sample, 0.0, static_cast<double>(held)));
            };
            first = std::max(first, inPacket(m_options.fields.first));
            end = std::min(end, inPacket(m_options.fields.last + 1.0));
        }
        return {first, end > first ? end - first : 0};
    }

    static double firstSampleOfField(double field, double perField) {
        return std::ceil(field * perField - 1e-6);
    }

    /// The clip's sample at which a packet with that field begins. Every packet of a track but its
    /// last one holds the same number of samples, so that a packet's number follows from its field:
    /// it is the last one that begins in it or before.
    double firstSampleOf(std::uint32_t field) const {
        double const perField = samplesPerField(m_fieldsPerSecond);
        auto const perPacket = static_cast<double>(m_samplesPerPacket);
        if (perPacket < perField) {
            return firstSampleOfField(field, perField);
        }
        return (std::ceil((field + 1.0) * perField / perPacket - 1e-9) - 1) * perPacket;
    }

    void copy(Stretch const& wanted) {
        std::uint64_t position = wanted.first;
        std::uint64_t const end = wanted.first + wanted.size;
        while (position < end) {
            Span const bytes = m_input.reader().payload(position, end - position);
            if (bytes.empty()) {
                // The reader reports the end of the stream at its next step.
                return;
            }
            m_output.write(bytes);
            position += bytes.size();
            m_written += bytes.size();
        }
    }

    void finishWav() {
        if (!m_isWav) {
            return;
        }
        // Chunks of a WAV file begin at even positions.
        static constexpr unsigned char pad[1] = {0};
        if (m_written % 2 != 0) {
            m_output.write(pad);
        }
        m_output.rewrite(wavHeader(), 0);
    }

    /// RIFF header, format chunk and the head of the data chunk, for one channel at 48 kHz.
    std::vector<unsigned char> wavHeader() const {
        constexpr unsigned sampleRate = 48000;
        constexpr std::uint64_t headerSize = 44;
        std::uint64_t const riffSize = headerSize - 8 + m_written + m_written % 2;
        if (riffSize > std::numeric_limits<std::uint32_t>::max()) {
            throw NotDone(m_options.output + ": a .wav file holds at most 4 GiB; choose another "
                                             "output name, or fewer fields");
        }
        unsigned const blockSize = sampleSize(*m_mediaType);
        GxfBuffer header{MediaAgent(nullptr)};
        header.allowFor(headerSize, false);
        header.encodeBlob("RIFF", 4);
        header.encodeLsbf(static_cast<unsigned>(riffSize));
        header.encodeBlob("WAVEfmt ", 8);
        header.encodeLsbf(16U);                            // size of the format chunk
        header.encodeLsbf(static_cast<unsigned short>(1)); // PCM
        header.encodeLsbf(static_cast<unsigned short>(1)); // channels
        header.encodeLsbf(sampleRate);
        header.encodeLsbf(sampleRate * blockSize);
        header.encodeLsbf(static_cast<unsigned short>(blockSize));
        header.encodeLsbf(static_cast<unsigned short>(8 * blockSize));
        header.encodeBlob("data", 4);
        header.encodeLsbf(static_cast<unsigned>(m_written));
        return {header.ptrBegin(), header.ptrEnd()};
    }

    std::string noSuchTrack() const {
        std::string text =
            m_input.name() + ": has no packets of track " + std::to_string(m_options.track) + "; ";
        if (m_seenTracks.empty()) {
            return text + "it has no media packets at all";
        }
        char const* separator = "choose from ";
        for (unsigned const track : m_seenTracks) {
            text += separator + std::to_string(track);
            separator = ", ";
        }
        return text;
    }

    Options const& m_options;
    Input m_input;
    Output m_output;
    bool m_isWav;
    std::set<unsigned> m_seenTracks;
    std::optional<TrackMediaType> m_mediaType;
    double m_fieldsPerSecond = 60000.0 / 1001.0; // until a MAP tells
    std::uint32_t m_fieldsPerPicture = 2;
    std::uint64_t m_samplesPerPacket = 0;
    std::uint64_t m_written = 0;
};

} // namespace

void addExtract(CLI::App& app, Command& chosen) {
    auto const options = std::make_shared<Options>();
    CLI::App* const command =
        app.add_subcommand("extract", "One track's essence without the packets around it");
    addStreamOptions(*command, *options);
    addNumber(
        *command, "--track", {0, 63},
        [options](std::uint64_t number) { options->track = static_cast<unsigned>(number); },
        "The track's number, as info prints it")
        ->required();
    command->add_option("-o,--output", options->output,
                        "Where it goes; standard output if not given. A name that ends in .wav "
                        "gets PCM with a WAV header");
    addFieldRange(*command, options->fields);
    command->footer("Example: gxf extract --track 1 -o left.wav clip.gxf");
    command->callback([options, &chosen] {
        options->fields.check();
        chosen = [options] { return Extraction(*options).run(); };
    });
}

} // namespace Gxf

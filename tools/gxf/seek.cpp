#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstdio>
#include <map>
#include <memory>
#include <nlohmann/json.hpp>

#include "fields.h"
#include "input.h"
#include "output.h"
#include "text.h"

namespace Gxf {

using namespace GxfStream;
using namespace GxfTypes;
using nlohmann::ordered_json;

namespace {

struct Options : StreamOptions {
    std::optional<std::uint32_t> field;
    std::string timecode;
    bool json = false;
};

/// Hours, minutes, seconds, frames.
struct TimecodeDigits {
    unsigned digits[4] = {};

    bool operator==(TimecodeDigits const&) const = default;
};

/// One or two digits from the front, which are taken off; nothing without any.
std::optional<unsigned> takeNumber(std::string_view& text) {
    constexpr std::size_t most = 2;
    unsigned number = 0;
    auto const [stop, error] =
        std::from_chars(text.data(), text.data() + std::min(text.size(), most), number);
    if (error != std::errc()) {
        return std::nullopt;
    }
    text.remove_prefix(static_cast<std::size_t>(stop - text.data()));
    return number;
}

/// "HH:MM:SS:FF", with ';' or '.' in front of the frames for drop frame. Throws NotDone.
TimecodeDigits parseTimecode(std::string const& text) {
    static constexpr char const* separators[] = {"", ":", ":", ":;."};
    TimecodeDigits parsed;
    std::string_view rest = text;
    bool matches = true;
    for (unsigned i = 0; matches && i < 4; ++i) {
        if (i != 0) {
            matches = !rest.empty() &&
                      std::string_view(separators[i]).find(rest.front()) != std::string_view::npos;
            rest.remove_prefix(matches ? 1 : 0);
        }
        std::optional<unsigned> const number = takeNumber(rest);
        matches = matches && number;
        parsed.digits[i] = number.value_or(0);
    }
    unsigned const* const d = parsed.digits;
    if (!matches || !rest.empty() || d[0] > 23 || d[1] > 59 || d[2] > 59) {
        throw NotDone("--timecode: '" + text + "' is no timecode; give HH:MM:SS:FF");
    }
    return parsed;
}

TimecodeDigits digitsOf(ST12Timecode const& timecode) {
    FormatStr text(16);
    timecode.toString(0, text);
    TimecodeDigits parsed;
    unsigned* const d = parsed.digits;
    std::sscanf(text.get(), "%u:%u:%u%*c%u", &d[0], &d[1], &d[2], &d[3]);
    return parsed;
}

/// Where a media packet stands, and what it holds.
struct Place {
    std::uint32_t firstField;
    std::uint32_t lastField; ///< as far as the packet alone tells
    std::uint64_t offset;
    std::uint32_t length;
    unsigned track;
};

/// Finds, for every track, the packet that holds a field.
class Finder {
  public:
    explicit Finder(std::uint32_t field) : m_field(field) {}

    void add(Place const& place) {
        Track& track = m_tracks[place.track];
        if (place.firstField > m_field) {
            track.isBehind = true;
        } else if (place.lastField >= m_field &&
                   (!track.best || place.firstField >= track.best->firstField)) {
            track.best = place;
        }
    }

    /// Every track of the clip has its packet and went on behind the field. The latter alone isn't
    /// enough: pictures come in the order of their coding.
    bool isDone(std::size_t tracksOfClip) const {
        if (m_tracks.size() < tracksOfClip || tracksOfClip == 0) {
            return false;
        }
        return std::all_of(m_tracks.begin(), m_tracks.end(), [](auto const& entry) {
            return entry.second.isBehind && entry.second.best;
        });
    }

    /// Of two packets that hold something of the field, the one that begins later.
    std::vector<Place> found() const {
        std::vector<Place> places;
        for (auto const& [number, track] : m_tracks) {
            if (track.best) {
                places.push_back(*track.best);
            }
        }
        return places;
    }

  private:
    struct Track {
        std::optional<Place> best;
        bool isBehind = false;
    };

    std::uint32_t m_field;
    std::map<unsigned, Track> m_tracks;
};

class Seek {
  public:
    explicit Seek(Options const& options)
        : m_options(options), m_field(options.field), m_input(options) {
        if (m_field) {
            startFinding();
        } else {
            m_wanted = parseTimecode(options.timecode);
        }
    }

    int run() {
        while (StreamPacket const* const packet = m_input.next()) {
            note(*packet);
            if (m_finder && m_finder->isDone(m_tracksOfClip)) {
                break;
            }
        }
        if (!m_field && !resolveByStripe()) {
            return m_input.notFound("has no field with the timecode " + m_options.timecode);
        }
        startFinding();
        std::vector<Place> const places = m_finder->found();
        print(places);
        if (places.empty()) {
            return m_input.notFound("has no packet that holds field " + std::to_string(*m_field));
        }
        return m_input.status();
    }

  private:
    void note(StreamPacket const& packet) {
        if (AutoRefPtr<MapPacket> const map = mapOf(packet); map.get() != nullptr) {
            m_map = map;
            m_tracksOfClip = map->tracks.size();
        }
        if (AutoRefPtr<FieldLocTblPacket> const table = packet.packet->getFltPacket();
            table.get() != nullptr && packet.result) {
            m_table = table;
        }
        MediaPacket const* const media = packet.media();
        if (media == nullptr || !media->valid) {
            return;
        }
        if (!m_field && lookForTimecode(*media)) {
            startFinding();
        }
        Place const place = placeOf(packet, media->hdr);
        if (m_finder) {
            m_finder->add(place);
        } else {
            m_places.push_back(place);
        }
    }

    /// REQUIRES: the field is known. Nothing happens when it was known before.
    void startFinding() {
        if (m_finder) {
            return;
        }
        m_finder.emplace(*m_field);
        for (Place const& place : m_places) {
            m_finder->add(place);
        }
        m_places.clear();
    }

    Place placeOf(StreamPacket const& packet, MediaPacketHdr const& hdr) const {
        MapPacket::Track const* track = nullptr;
        for (unsigned i = 0; i < m_tracksOfClip; ++i) {
            if (m_map->tracks[i]->getTrackNum() == hdr.getTrackNum()) {
                track = m_map->tracks[i];
            }
        }
        double const rate = m_map.get() != nullptr ? m_map->tracks.getRealFieldRate() : 50.0;
        return {hdr.getMediaField(), lastFieldOf(hdr, track, rate), packet.offset, packet.length,
                hdr.getTrackNum()};
    }

    /// True when the packet has it; sets the field then.
    bool lookForTimecode(MediaPacket const& media) {
        if (media.perFrameTc.get() == nullptr) {
            return false;
        }
        m_hasTimecodes = true;
        TimecodeBlock const block(media);
        for (unsigned i = block.firstEntry(); i <= block.lastEntry(); ++i) {
            if (block[i].valid && digitsOf(block[i]) == m_wanted) {
                m_field = block.fieldOf(i);
                return true;
            }
        }
        return false;
    }

    /// Without timecode packets the MAP's timecode of the first field tells.
    bool resolveByStripe() {
        if (m_hasTimecodes || m_map.get() == nullptr || !m_map->tracks.stripedTc.valid) {
            return false;
        }
        PerFrameTimecode const& striped = m_map->tracks.stripedTc;
        MapPacket::Track const& track = *m_map->getTimecodeTrack();
        auto const hertz = static_cast<unsigned>(std::lround(track.getRealFrameRate()));
        unsigned long long const wanted = counterOf(m_wanted, hertz, striped.isDropFrame());
        unsigned long long const start = counterOf(digitsOf(striped), hertz, striped.isDropFrame());
        int const fields = track.getNumFields() == 1 ? 1 : 2;
        if (wanted < start) {
            return false;
        }
        m_field = static_cast<std::uint32_t>((wanted - start) * static_cast<unsigned>(fields));
        return true;
    }

    static unsigned long long counterOf(TimecodeDigits const& digits, unsigned hertz, bool drop) {
        // The hours of a Timecode end at 15, those of a day don't.
        Timecode timecode;
        timecode.minutes = digits.digits[1] & 0xFFU;
        timecode.seconds = digits.digits[2] & 0xFFU;
        timecode.frames = digits.digits[3] & 0xFFU;
        timecode.dropFrame = drop ? 1 : 0;
        Timecode oneHour;
        oneHour.hours = 1;
        oneHour.dropFrame = timecode.dropFrame;
        return digits.digits[0] * oneHour.getCounter(hertz) + timecode.getCounter(hertz);
    }

    static ordered_json jsonOf(OffsetBound const& bound) {
        return {{"field", bound.field}, {"offset", bound.offset}, {"entry", bound.index}};
    }

    void print(std::vector<Place> const& places) {
        // One field on both sides, so that the bracket holds the field's own packet.
        constexpr unsigned margin = 1;
        constexpr std::uint32_t unset = 0xFFFFFFFF;
        OffsetBracket bracket;
        bracket.upper.index = unset;
        bool const hasBracket =
            m_table.get() != nullptr && m_table->findBounds(*m_field, margin, bracket);
        bool const hasUpper = hasBracket && bracket.upper.index != unset;

        ordered_json json = {{"field", *m_field}};
        std::string text = "field " + std::to_string(*m_field) + '\n';
        if (hasBracket) {
            json["bracket"]["lower"] = jsonOf(bracket.lower);
            text += "between field " + std::to_string(bracket.lower.field) + " at offset " +
                    std::to_string(bracket.lower.offset);
        }
        if (hasUpper) {
            json["bracket"]["upper"] = jsonOf(bracket.upper);
            text += " and field " + std::to_string(bracket.upper.field) + " at offset " +
                    std::to_string(bracket.upper.offset);
        }
        text += hasBracket ? hasUpper ? ", by the field locator table\n"
                                      : " and the end, by the field locator table\n"
                           : "";
        json["packets"] = ordered_json::array();
        for (Place const& place : places) {
            json["packets"].push_back({{"track", place.track},
                                       {"field", place.firstField},
                                       {"offset", place.offset},
                                       {"length", place.length}});
            FormatStr const row("track %2u  field %8u  offset %12llu  length %8u\n", place.track,
                                place.firstField, static_cast<unsigned long long>(place.offset),
                                place.length);
            text += row.get();
        }
        Output output = Output::standard();
        output.write(m_options.json ? json.dump(2) + '\n' : text);
        output.finish();
    }

    Options const& m_options;
    std::optional<std::uint32_t> m_field;
    TimecodeDigits m_wanted;
    Input m_input;
    AutoRefPtr<MapPacket> m_map;
    AutoRefPtr<FieldLocTblPacket> m_table;
    unsigned m_tracksOfClip = 0;
    bool m_hasTimecodes = false;
    std::optional<Finder> m_finder;
    std::vector<Place> m_places; ///< while the field isn't known
};

} // namespace

void addSeek(CLI::App& app, Command& chosen) {
    auto const options = std::make_shared<Options>();
    CLI::App* const command = app.add_subcommand("seek", "Where a field or a timecode lies");
    addStreamOptions(*command, *options);
    CLI::Option* const field = addNumber(
        *command, "--field", {0, std::numeric_limits<std::uint32_t>::max()},
        [options](std::uint64_t number) { options->field = static_cast<std::uint32_t>(number); },
        "The field's number");
    command->add_option("--timecode", options->timecode, "HH:MM:SS:FF")->excludes(field);
    command->add_flag("--json", options->json, "One JSON object");
    command->footer("Example: gxf seek --timecode 10:00:00:20 clip.gxf");
    command->callback([options, &chosen] {
        if (!options->field && options->timecode.empty()) {
            throw NotDone("seek needs --field N or --timecode HH:MM:SS:FF");
        }
        chosen = [options] { return Seek(*options).run(); };
    });
}

} // namespace Gxf

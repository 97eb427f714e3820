#include "info_text.h"

#include <algorithm>
#include <cmath>

#include "table.h"
#include "text.h"
#include "umf_facts.h"

namespace Gxf {

using namespace GxfTypes;

namespace {

std::string decimal(double value, int decimals) {
    char text[64];
    std::snprintf(text, sizeof(text), "%.*f", decimals, value);
    return text;
}

/// At most two decimals, and none that are zero.
std::string rateText(double rate) {
    std::string text = decimal(rate, 2);
    text.erase(text.find_last_not_of('0') + 1);
    if (text.back() == '.') {
        text.pop_back();
    }
    return text;
}

std::string bitrateText(unsigned bitsPerSecond) {
    if (bitsPerSecond == 0) {
        return "";
    }
    if (bitsPerSecond >= 1000000) {
        return decimal(bitsPerSecond / 1e6, 2) + " Mb/s";
    }
    return decimal(bitsPerSecond / 1e3, 1) + " kb/s";
}

std::string pictureText(MapPacket::Track const& track) {
    bool const isPicture = getTrackType(track.getMediaType()) == trackTypeVideo;
    if (!isPicture || track.getNumLines() == 0) {
        return "";
    }
    return std::to_string(track.getWidth()) + 'x' + std::to_string(track.getNumLines()) +
           (track.getNumFields() == 1 ? "p" : "i");
}

/// Turns fields of the clip into timecodes.
class ClipTime {
  public:
    explicit ClipTime(MapPacket const& map)
        : m_fieldsPerSecond(map.tracks.getRealFieldRate()),
          m_hertz(static_cast<unsigned>(std::lround(map.tracks.getRealFrameRate()))) {
        if (MapPacket::Track const* const track = map.tracks.getAnyTrackWithVideoRate()) {
            m_fieldsPerFrame = track->getNumFields() == 1 ? 1 : 2;
        }
    }

    double seconds(std::uint64_t fields) const {
        return static_cast<double>(fields) / m_fieldsPerSecond;
    }

    std::string timecode(std::uint64_t fields) const {
        FormatStr text(16);
        return ST12Timecode(fields / m_fieldsPerFrame, m_hertz, false)
            .toString(m_hertz, text)
            .get();
    }

  private:
    double m_fieldsPerSecond;
    unsigned m_hertz;
    unsigned m_fieldsPerFrame = 2;
};

std::string durationText(Clip const& clip, ClipTime const& time) {
    auto const first = clip.number(mapTagFirstField);
    auto const last = clip.number(mapTagLastField);
    if (!first || !last || *last < *first) {
        return "";
    }
    std::uint64_t const fields = std::uint64_t{*last} - *first + 1;
    return time.timecode(fields) + "   " + decimal(time.seconds(fields), 3) + " s" + ", " +
           grouped(fields) + " fields, " + std::to_string(*first) + " to " + std::to_string(*last);
}

std::string markText(std::uint32_t mark, Clip const& clip, ClipTime const& time) {
    std::uint32_t const first = clip.number(mapTagFirstField).value_or(0);
    std::string text = "field " + std::to_string(mark);
    return mark >= first ? text + ", " + time.timecode(mark - first) + " into the clip" : text;
}

class Lines {
  public:
    void add(char const* label, std::string const& value) {
        if (!value.empty()) {
            FormatStr const line("%-11s ", label);
            m_text += line.get() + value + '\n';
        }
    }
    std::string const& text() const { return m_text; }

  private:
    std::string m_text;
};

std::string materialText(Clip const& clip) {
    Lines lines;
    lines.add("Clip", inOneLine(forPeople(clip.text(mapTagMedia).value_or(""))));
    if (clip.map() == nullptr) {
        lines.add("Clip", "unknown: the stream has no valid map packet");
        return lines.text();
    }
    ClipTime const time(*clip.map());
    lines.add("Duration", durationText(clip, time));
    if (auto const mark = clip.number(mapTagMarkIn)) {
        lines.add("Mark in", markText(*mark, clip, time));
    }
    if (auto const mark = clip.number(mapTagMarkOut)) {
        lines.add("Mark out", markText(*mark, clip, time));
    }
    lines.add("Timecode", clip.stripedTimecode());
    if (clip.hasRates()) {
        lines.add("Rates", rateText(clip.map()->tracks.getRealFrameRate()) + " frames/s, " +
                               rateText(clip.map()->tracks.getRealFieldRate()) + " fields/s");
    }
    return lines.text();
}

std::string tracksText(Clip const& clip, bool quickly) {
    Table table({{"Track", Table::right},
                 {"UMF", Table::left},
                 {"Type", Table::left},
                 {"Media", Table::left},
                 {"Rate", Table::right},
                 {"Picture", Table::right},
                 {"Aspect", Table::left},
                 {"Bit rate", Table::right},
                 {"Packets", Table::right},
                 {"Bytes", Table::right},
                 {"Fields", Table::right},
                 {"Name", Table::left}});
    for (TrackFacts const& facts : clip.tracks()) {
        std::vector<std::string> row = {std::to_string(facts.number), "",
                                        getName(getTrackType(facts.mediaType)),
                                        getName(facts.mediaType)};
        row.resize(8);
        std::string name = "(not in the map)";
        if (MapPacket::Track const* const track = clip.mapTrack(facts)) {
            bool const hasShape = track->getAspectRatio() != aspectRatioUnknown;
            row[1] = forPeople(umfTrackText(clip, facts));
            row[4] = getName(track->getFrameRate());
            row[5] = pictureText(*track);
            row[6] = hasShape ? getName(track->getAspectRatio()) : "";
            row[7] = bitrateText(track->getBitrate());
            name =
                track->getMediaName() != nullptr ? inOneLine(forPeople(track->getMediaName())) : "";
        }
        bool const counted = !quickly && facts.packets != 0;
        row.push_back(counted ? grouped(facts.packets) : "");
        row.push_back(counted ? grouped(facts.bytes) : "");
        row.push_back(counted
                          ? std::to_string(facts.firstField) + "-" + std::to_string(facts.lastField)
                          : "");
        row.push_back(name);
        table.add(std::move(row));
    }
    return table.text();
}

std::string packetsText(Clip const& clip) {
    std::string text;
    for (auto const& [name, count] : clip.packets()) {
        text += (text.empty() ? "" : ", ") + grouped(count) + ' ' + name;
    }
    return text;
}

std::string tableText(FieldLocTblPacket const& table) {
    return grouped(table.table.size()) + " entries, one for every " +
           std::to_string(table.fieldsPerEntry) +
           (table.fieldsPerEntry == 1 ? " field" : " fields") +
           (table.isValid() ? "" : "; NOT VALID");
}

std::string stateText(Input const& input, Clip const& clip, bool quickly) {
    std::string text = input.size() ? grouped(*input.size()) + " bytes" : "";
    if (!quickly) {
        text += (text.empty() ? "" : ", ") +
                std::string(clip.isComplete() ? "complete" : "INCOMPLETE: no end-of-stream packet");
    }
    if (input.faults() != 0) {
        text += (text.empty() ? "" : ", ") + grouped(input.faults()) +
                (input.faults() == 1 ? " FAULT" : " FAULTS");
    }
    return text;
}

} // namespace

std::string umfTrackText(UmfTrackNum const& number) {
    char const text[] = {static_cast<char>(number.trackType),
                         static_cast<char>(number.trackNumber)};
    return toUtf8({text, sizeof(text)});
}

std::string umfTrackText(Clip const& clip, TrackFacts const& facts) {
    // The library looks a track up by 8 bits.
    if (!facts.mapIndex || *facts.mapIndex > 0xFF) {
        return {};
    }
    UmfTrackNum const number =
        clip.map()->tracks.getUmfTrackNum(static_cast<unsigned char>(*facts.mapIndex));
    return number.trackType != trackTypeEncodingNone ? umfTrackText(number) : "";
}

std::string clipText(Input const& input, Clip const& clip, bool quickly) {
    Lines head;
    head.add("Stream", inOneLine(forPeople(input.name())));
    head.add("", stateText(input, clip, quickly));
    Lines tail;
    tail.add("Packets", quickly ? "" : packetsText(clip));
    if (clip.table() != nullptr) {
        tail.add("Locator", tableText(*clip.table()));
    }
    std::string text = head.text() + '\n' + materialText(clip);
    if (!clip.tracks().empty()) {
        text += '\n' + tracksText(clip, quickly);
    }
    if (!tail.text().empty()) {
        text += '\n' + tail.text();
    }
    return clip.umf() != nullptr ? text + '\n' + umfText(*clip.umf()) : text;
}

} // namespace Gxf

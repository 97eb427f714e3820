#include <memory>
#include <nlohmann/json.hpp>

#include "clip.h"
#include "info_text.h"
#include "output.h"
#include "text.h"
#include "umf_facts.h"

namespace Gxf {

using namespace GxfTypes;
using nlohmann::ordered_json;

namespace {

struct Options : StreamOptions {
    bool json = false;
    bool quickly = false;
};

ordered_json materialJson(Clip const& clip) {
    ordered_json json = ordered_json::object();
    if (auto const media = clip.text(mapTagMedia)) {
        json[getName(mapTagMedia)] = *media;
    }
    for (MapTagType const type :
         {mapTagFirstField, mapTagLastField, mapTagMarkIn, mapTagMarkOut, mapTagSizeEst}) {
        if (auto const number = clip.number(type)) {
            json[getName(type)] = *number;
        }
    }
    return json;
}

/// What the MAP says of a track.
void addDescription(ordered_json& json, Clip const& clip, TrackFacts const& facts) {
    MapPacket::Track const& track = *clip.mapTrack(facts);
    if (std::string const number = umfTrackText(clip, facts); !number.empty()) {
        json["umfTrack"] = number;
    }
    if (char const* const name = track.getMediaName()) {
        json["media"] = toUtf8(name);
    }
    json["frameRate"] = getName(track.getFrameRate());
    json["fields"] = track.getNumFields();
    if (track.getNumLines() != 0) {
        json["lines"] = track.getNumLines();
        json["width"] = track.getWidth();
    }
    if (unsigned const bitrate = track.getBitrate()) {
        json["bitrate"] = bitrate;
    }
    json["aspectRatio"] = getName(track.getAspectRatio());
}

ordered_json trackJson(Clip const& clip, TrackFacts const& facts, bool quickly) {
    ordered_json json = {{"number", facts.number},
                         {"mediaType", getName(facts.mediaType)},
                         {"code", static_cast<unsigned>(facts.mediaType)},
                         {"type", getName(getTrackType(facts.mediaType))}};
    if (facts.mapIndex) {
        addDescription(json, clip, facts);
    }
    if (!quickly) {
        json["packets"] = facts.packets;
        json["bytes"] = facts.bytes;
    }
    if (facts.packets != 0) {
        json["firstField"] = facts.firstField;
        json["lastField"] = facts.lastField;
    }
    return json;
}

ordered_json clipJson(Input const& input, Clip const& clip, bool quickly) {
    ordered_json json = {{"file", toUtf8(input.name())}};
    if (auto const size = input.size()) {
        json["bytes"] = *size;
    }
    if (!quickly) {
        json["complete"] = clip.isComplete();
    }
    json["faults"] = input.faults();
    if (!quickly) {
        json["packets"] = ordered_json::object();
        for (auto const& [name, count] : clip.packets()) {
            json["packets"][name] = count;
        }
    }
    if (clip.map() != nullptr) {
        json["material"] = materialJson(clip);
    }
    if (clip.hasRates()) {
        json["rates"] = {{"frame", clip.map()->tracks.getRealFrameRate()},
                         {"field", clip.map()->tracks.getRealFieldRate()}};
    }
    if (std::string const timecode = clip.stripedTimecode(); !timecode.empty()) {
        json["stripedTimecode"] = timecode;
    }
    json["tracks"] = ordered_json::array();
    for (TrackFacts const& facts : clip.tracks()) {
        json["tracks"].push_back(trackJson(clip, facts, quickly));
    }
    if (FieldLocTblPacket const* const table = clip.table()) {
        json["fieldLocatorTable"] = {{"fieldsPerEntry", table->fieldsPerEntry},
                                     {"entries", table->table.size()},
                                     {"valid", table->isValid()}};
    }
    if (clip.umf() != nullptr) {
        json["umf"] = umfJson(*clip.umf());
    }
    return json;
}

int run(Options const& options) {
    Input input(options);
    Clip const clip(input, options.quickly);
    input.finish();
    Output output = Output::standard();
    output.write(options.json ? clipJson(input, clip, options.quickly).dump(2) + '\n'
                              : clipText(input, clip, options.quickly));
    output.finish();
    return input.status();
}

} // namespace

void addInfo(CLI::App& app, Command& chosen) {
    auto const options = std::make_shared<Options>();
    CLI::App* const command =
        app.add_subcommand("info", "What the clip is: material, tracks, rates, timecode");
    addStreamOptions(*command, *options);
    command->add_flag("--quick", options->quickly,
                      "Read no further than the first media packet, and count nothing");
    command->add_flag("--json", options->json, "One JSON object");
    command->footer("Example: gxf info --json clip.gxf");
    command->callback([options, &chosen] { chosen = [options] { return run(*options); }; });
}

} // namespace Gxf

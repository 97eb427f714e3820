#include <cinttypes>
#include <limits>
#include <memory>
#include <nlohmann/json.hpp>
#include <set>

#include "input.h"
#include "output.h"
#include "text.h"

namespace Gxf {

using namespace GxfStream;
using namespace GxfTypes;
using nlohmann::ordered_json;

namespace {

struct Options : StreamOptions {
    std::vector<std::string> types;
    std::uint64_t limit = 0; ///< 0 for all
    std::uint64_t from = 0;
    bool json = false;
};

constexpr PacketType knownTypes[] = {packetTypeMap,         packetTypeMedia,   packetTypeReserved,
                                     packetTypeFieldLocTbl, packetTypeUmfFile, packetTypeEos};

std::set<PacketType> typesOf(std::vector<std::string> const& names) {
    std::set<PacketType> types;
    for (std::string const& name : names) {
        std::size_t const before = types.size();
        std::string known;
        for (PacketType const type : knownTypes) {
            known += known.empty() ? "" : ", ";
            known += getName(type);
            if (striCmp(name.c_str(), getName(type)) == 0) {
                types.insert(type);
                known.clear();
                break;
            }
        }
        if (types.size() == before && !known.empty()) {
            throw NotDone("--type: there is no packet type '" + name + "'; choose from " + known);
        }
    }
    return types;
}

/// What the packet says behind what every packet says of its header.
std::string ownText(Packet const& packet) {
    std::string const text = packet.toString().get();
    FormatStr headerText(128);
    packet.Packet::toString(0, headerText);
    std::size_t const own = text.find_first_not_of(":=\n ", headerText.size());
    std::string line = own == std::string::npos ? "" : forPeople(inOneLine(text.substr(own)));
    return packet.isValid() ? line : line + (line.empty() ? "invalid" : " (invalid)");
}

std::string row(StreamPacket const& packet) {
    FormatStr const line("%12" PRIu64 "  %-11s  %10u  %s", packet.offset, getName(packet.type),
                         packet.length, ownText(*packet.packet).c_str());
    std::string text = line.get();
    text.erase(text.find_last_not_of(' ') + 1);
    return text + '\n';
}

std::string jsonRow(StreamPacket const& packet) {
    ordered_json row = {{"offset", packet.offset},
                        {"type", getName(packet.type)},
                        {"length", packet.length},
                        {"valid", packet.packet->isValid()},
                        {"text", toUtf8(packet.packet->toString().get())}};
    if (MediaPacket const* const media = packet.media(); media != nullptr && media->valid) {
        MediaPacketHdr const& hdr = media->hdr;
        row["track"] = hdr.getTrackNum();
        row["mediaType"] = getName(hdr.getMediaType());
        row["field"] = hdr.getMediaField();
        if (hdr.timelineValid != 0) {
            row["timeline"] = hdr.timeline;
        }
    }
    return row.dump() + '\n';
}

int run(Options const& options) {
    std::set<PacketType> const types = typesOf(options.types);
    Input input(options);
    if (options.from != 0) {
        input.seek(options.from);
    }
    Output output = Output::standard();
    std::uint64_t printed = 0;
    while (StreamPacket const* const packet = input.next()) {
        if (!types.empty() && types.count(packet->type) == 0) {
            continue;
        }
        output.write(options.json ? jsonRow(*packet) : row(*packet));
        if (++printed == options.limit) {
            break;
        }
    }
    output.finish();
    return input.status();
}

} // namespace

void addPackets(CLI::App& app, Command& chosen) {
    auto const options = std::make_shared<Options>();
    CLI::App* const command = app.add_subcommand(
        "packets", "One line per packet: offset, type, length, and what the packet says of itself");
    addStreamOptions(*command, *options);
    command
        ->add_option("--type", options->types,
                     "Only packets of these types: map, media, fieldLocTbl, umfFile, EOS, reserved")
        ->delimiter(',')
        ->allow_extra_args(false);
    constexpr std::uint64_t most = std::numeric_limits<std::uint64_t>::max();
    addNumber(
        *command, "--limit", {1, most},
        [options](std::uint64_t number) { options->limit = number; },
        "Stop behind this many lines");
    addNumber(
        *command, "--from", {0, most}, [options](std::uint64_t number) { options->from = number; },
        "Begin with the first packet at or behind this byte offset");
    command->add_flag("--json", options->json, "One JSON object per line");
    command->footer("Example: gxf packets --type map,umfFile --limit 5 clip.gxf");
    command->callback([options, &chosen] { chosen = [options] { return run(*options); }; });
}

} // namespace Gxf

#include "umf_facts.h"

#include <cmath>
#include <nlohmann/json.hpp>
#include <optional>

#include "info_text.h"
#include "table.h"
#include "text.h"

namespace Gxf {

using namespace GxfTypes;
using GxfStream::StreamUmf;
using nlohmann::ordered_json;

namespace {

// A value item ends in two zero bytes that aren't the value's.
constexpr unsigned valuePad = 2;

std::string timecodeText(Timecode const& timecode) {
    FormatStr text(32);
    return timecode.toString(text).get();
}

/// In the form of ISO 8601; "" for a time of 0.
std::string timeText(std::uint64_t gxfTime) {
    if (gxfTime == 0) {
        return {};
    }
    GmtCalendar const at =
        Clock::getGmtCal(convertGxfTimeToPosixTime(static_cast<long long>(gxfTime)));
    FormatStr const text("%04u-%02u-%02uT%02u:%02u:%02uZ", at.year, at.month, at.day, at.hour,
                         at.minute, at.second);
    return text.get();
}

std::string trackText(TrackTypeEncoding type, TrackNumberEncoding number) {
    return toUtf8(umfTrackText(UmfTrackNum(type, number)));
}

std::string hexText(std::string_view bytes) {
    static constexpr char digits[] = "0123456789abcdef";
    std::string text;
    for (char const c : bytes) {
        auto const byte = static_cast<unsigned char>(c);
        text += digits[byte >> 4];
        text += digits[byte & 15];
    }
    return text;
}

bool isText(UmfPacket::GxfUserDataType type) {
    return type == userDataString || type == userDataDateTime || type == userDataBase64;
}

/// The bytes as a number, least significant byte first; nothing for another size than the type has.
std::optional<ordered_json> numberOf(UmfPacket::GxfUserDataType type, std::string_view bytes) {
    auto const is = [&](UmfPacket::GxfUserDataType wanted, std::size_t size) {
        return type == wanted && bytes.size() == size;
    };
    std::uint64_t word = 0;
    for (std::size_t i = 0; i < bytes.size() && i < sizeof(word); ++i) {
        word |= static_cast<std::uint64_t>(static_cast<unsigned char>(bytes[i])) << (8 * i);
    }
    if (is(userDataInt8, 1)) {
        return static_cast<std::int8_t>(word);
    }
    if (is(userDataInt16, 2)) {
        return static_cast<std::int16_t>(word);
    }
    if (is(userDataInt32, 4)) {
        return static_cast<std::int32_t>(word);
    }
    if (is(userDataInt64, 8)) {
        return static_cast<std::int64_t>(word);
    }
    if (is(userDataByte, 1) || is(userDataUint16, 2) || is(userDataUint32, 4) ||
        is(userDataUint64, 8)) {
        return word;
    }
    if (is(userDataBool, 1) && word <= 1) {
        return word == 1;
    }
    if (is(userDataDouble, 8) && std::isfinite(std::bit_cast<double>(word))) {
        return std::bit_cast<double>(word);
    }
    if (is(userDataFloat, 4) &&
        std::isfinite(std::bit_cast<float>(static_cast<std::uint32_t>(word)))) {
        return std::bit_cast<float>(static_cast<std::uint32_t>(word));
    }
    return std::nullopt;
}

ordered_json mediaJson(UmfPacket const& umf) {
    ordered_json list = ordered_json::array();
    for (unsigned i = 0; i < umf.mediaDescs.size(); ++i) {
        UmfPacket::MediaDesc const& media = umf.mediaDescs[i];
        list.push_back({{"track", trackText(media.trackNum.trackType, media.trackNum.trackNumber)},
                        {"mediaType", getName(media.mediaType)},
                        {"name", toUtf8(media.mediaName)},
                        {"sequence", media.sequence},
                        {"fields", media.numFields},
                        {"in", media.fieldIn},
                        {"out", media.fieldOut},
                        {"sampleRate", media.sampleRate},
                        {"sampleBits", media.sampleBits}});
    }
    return list;
}

ordered_json xmlTrackJson(GxfXmlTrack const& track) {
    UmfTrackNum const number = track.getUmfTrackNum();
    ordered_json json = {{"track", trackText(number.trackType, number.trackNumber)},
                         {"mediaType", getName(track.getType())}};
    if (track.getLabel() != nullptr) {
        json["label"] = toUtf8(track.getLabel());
    }
    json["segments"] = ordered_json::array();
    for (unsigned i = 0; i < track.getSegments().size(); ++i) {
        GxfXmlSegment const& segment = track.getSegments()[i];
        json["segments"].push_back({{"aspectRatio", getName(segment.getAspectRatio())},
                                    {"conversion", getName(segment.getAspectRatioConversion())}});
    }
    return json;
}

ordered_json xmlJson(UmfPacket const& umf) {
    ordered_json json = {{"valid", umf.xmlTree.isValid()},
                         {"bytes", umf.preservedData[0].size()},
                         {"tracks", ordered_json::array()}};
    GxfXmlTree::Tracks const& tracks = umf.xmlTree.getXmlTracks();
    for (unsigned i = 0; i < tracks.size(); ++i) {
        json["tracks"].push_back(xmlTrackJson(tracks[i]));
    }
    return json;
}

} // namespace

ClipUmf::ClipUmf(Input& input) {
    while (GxfStream::StreamPacket const* const packet = input.next()) {
        note(*packet);
    }
}

void ClipUmf::note(GxfStream::StreamPacket const& packet) {
    if (packet.umf == nullptr) {
        return;
    }
    if (packet.umf->packet->isValid() || !m_umf || !m_umf->packet->isValid()) {
        m_umf = *packet.umf;
    }
}

UmfPacket::UserDataPair* findUserData(UmfPacket& umf, std::string const& name) {
    UmfPacket::UserDataPair* printsAlike = nullptr;
    for (unsigned i = 0; i < umf.userData.pairs.size(); ++i) {
        UmfPacket::UserDataPair& pair = umf.userData.pairs[i];
        if (pair.isComplete() && name == pair.getKey()) {
            return &pair;
        }
        if (pair.isComplete() && printsAlike == nullptr && name == toUtf8(pair.getKey())) {
            printsAlike = &pair;
        }
    }
    return printsAlike;
}

std::string valueBytes(UmfPacket::UserDataPair const& pair) {
    UmfPacket::UserData const& item = *pair.valueItem;
    unsigned const held = item.getNumDataBytes();
    unsigned const size = held >= valuePad ? held - valuePad : 0;
    return {reinterpret_cast<char const*>(item.getData()), size};
}

ordered_json userDataJson(UmfPacket const& umf) {
    ordered_json list = ordered_json::array();
    for (unsigned i = 0; i < umf.userData.pairs.size(); ++i) {
        UmfPacket::UserDataPair const& pair = umf.userData.pairs[i];
        if (!pair.isComplete()) {
            continue;
        }
        UmfPacket::GxfUserDataType const type = pair.keyItem->getValueType();
        std::string const bytes = valueBytes(pair);
        ordered_json json = {{"name", toUtf8(pair.getKey())},
                             {"type", getName(type)},
                             {"track", trackText(pair.keyItem->trackNum.trackType,
                                                 pair.keyItem->trackNum.trackNumber)},
                             {"size", bytes.size()}};
        if (isText(type)) {
            json["value"] = toUtf8(bytes);
        } else if (auto const number = numberOf(type, bytes)) {
            json["value"] = *number;
        } else {
            json["valueHex"] = hexText(bytes);
        }
        list.push_back(std::move(json));
    }
    return list;
}

ordered_json umfJson(StreamUmf const& umf) {
    UmfPacket const& packet = *umf.packet;
    UmfPacket::MaterialDesc const& material = packet.materialDesc;
    ordered_json json = {{"valid", packet.isValid()},
                         {"packets", umf.packets.size()},
                         {"payloadBytes", packet.decodedPayloadSize}};
    if (!packet.isValid()) {
        return json;
    }
    json["attributes"] = static_cast<std::uint32_t>(material.attributes);
    json["minLength"] = material.minLength;
    json["maxLength"] = material.maxLength;
    json["markIn"] = material.markIn;
    json["markOut"] = material.markOut;
    if (!material.timecodeIn.isInvalid()) {
        json["timecodeIn"] = timecodeText(material.timecodeIn);
    }
    if (!material.timecodeOut.isInvalid()) {
        json["timecodeOut"] = timecodeText(material.timecodeOut);
    }
    if (std::string const time = timeText(material.modifiedTime.time); !time.empty()) {
        json["modified"] = time;
    }
    if (std::string const time = timeText(material.createdTime.time); !time.empty()) {
        json["created"] = time;
    }
    json["audioTracks"] = material.nAudio;
    json["timecodeTracks"] = material.nTc;
    json["mpegTracks"] = material.nMpeg;
    json["tracks"] = ordered_json::array();
    for (unsigned i = 0; i < packet.trackDescs.size(); ++i) {
        UmfPacket::TrackDesc const& track = packet.trackDescs[i];
        json["tracks"].push_back({{"track", trackText(track.trackType, track.trackNumber)},
                                  {"segments", track.numSegments}});
    }
    json["media"] = mediaJson(packet);
    json["userData"] = userDataJson(packet);
    if (packet.preservedData[0].size() != 0) {
        json["xml"] = xmlJson(packet);
    }
    return json;
}

std::string umfText(StreamUmf const& umf) {
    UmfPacket const& packet = *umf.packet;
    if (!packet.isValid()) {
        return "UMF         NOT VALID\n";
    }
    std::string text = "UMF         " + grouped(packet.decodedPayloadSize) + " bytes";
    if (std::string const time = timeText(packet.materialDesc.modifiedTime.time); !time.empty()) {
        text += ", modified " + time;
    }
    if (unsigned const bytes = packet.preservedData[0].size()) {
        text += packet.xmlTree.isValid() ? ", XML of " : ", UNUSABLE XML of ";
        text += grouped(bytes) + " bytes";
    }
    text += '\n';
    std::string const userData = userDataText(packet);
    return userData.empty() ? text : text + '\n' + userData;
}

std::string userDataText(UmfPacket const& umf) {
    ordered_json const userData = userDataJson(umf);
    if (userData.empty()) {
        return {};
    }
    Table table({{"User data", Table::left},
                 {"Type", Table::left},
                 {"Track", Table::left},
                 {"Size", Table::right},
                 {"Value", Table::left}});
    for (ordered_json const& pair : userData) {
        std::string value = pair.contains("value") ? pair["value"].is_string()
                                                         ? pair["value"].get<std::string>()
                                                         : pair["value"].dump()
                                                   : "0x" + pair["valueHex"].get<std::string>();
        constexpr std::size_t shown = 60;
        if (pair.contains("valueHex") && value.size() > shown) {
            value = value.substr(0, shown) + "...";
        }
        table.add({inOneLine(forPeople(pair["name"].get<std::string>())),
                   pair["type"].get<std::string>(), forPeople(pair["track"].get<std::string>()),
                   grouped(pair["size"].get<std::uint64_t>()), inOneLine(forPeople(value))});
    }
    return table.text();
}

} // namespace Gxf

#include "umf_clips.h"

#include "tool_streams.h"

namespace GxfTesting {

Bytes pairOf(unsigned id, std::string_view name, Bytes const& value, std::string_view type,
             UmfTrack const& track) {
    constexpr std::size_t keySize = 298;
    constexpr std::size_t typeField = 100;
    Bytes pair = umfPair(id, name, value);
    for (std::size_t i = 0; i < 80; ++i) {
        pair[typeField + i] = i < type.size() ? static_cast<unsigned char>(type[i]) : '\0';
    }
    for (std::size_t const item : {std::size_t{0}, keySize}) {
        pair[item + 8] = static_cast<unsigned char>(track.number);
        pair[item + 9] = static_cast<unsigned char>(track.type);
    }
    return pair;
}

UmfContent roomyContent(std::size_t room) {
    UmfContent content;
    content.addTrack({'0', 'M', 1});
    content.addTrack({'1', 'A', 1});
    content.hasIndex = true;
    content.indexWords = {0x1112, 0x2122, 0, 0x3132, 0, 0x4142, 0x5152, 0x6162};
    content.xml = utf16("<?xml version=\"1.0\"?><Asset><Data/></Asset>\r\n").fill(2);
    content.rest.fill(room);
    return content;
}

UmfContent newsContent() {
    UmfContent content = roomyContent(0);
    content.userData = pairOf(0, "Title", Bytes().text("Evening news"))
                           .add(pairOf(1, "Take", {7, 0, 0, 0}, "Int", {'1', 'A', 1}));
    return content;
}

UmfContent filledTo(UmfContent content, std::size_t size) {
    content.rest.fill(size - content.size());
    return content;
}

std::string clipAround(std::vector<Bytes> const& packets) {
    Bytes stream = picture(mpeg625, 0, 0, 8, Bytes().text("picture1"));
    for (Bytes const& packet : packets) {
        stream.add(packet).add(picture(mpeg625, 0, 2, 9, Bytes().text("picture2.")));
    }
    return asText(stream.add(endOfStream()));
}

std::string clipOf(Bytes const& payload) { return clipAround(umfPackets(payload)); }
std::string clipOf(UmfContent const& content) { return clipOf(content.payload()); }

} // namespace GxfTesting

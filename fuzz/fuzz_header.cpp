// Packet headers one after the other, each with the packet that it announces.
//
//     channels 1 | stream position 4 | headers and payloads

#include <fuzz/fuzz_input.h>

using namespace GxfTypes;
using namespace GxfFuzz;

namespace {

constexpr unsigned headerSize = Packet::headerSize;

std::uint32_t number(unsigned char const* bytes) {
    return static_cast<std::uint32_t>(bytes[0]) << 24 | static_cast<std::uint32_t>(bytes[1]) << 16 |
           static_cast<std::uint32_t>(bytes[2]) << 8 | bytes[3];
}

bool isHeader(unsigned char const* bytes) {
    unsigned const type = bytes[5];
    return number(bytes) == 0 && bytes[4] == 1 && (type == 0xBC || type == 0xBF || type >= 0xFA) &&
           number(bytes + 6) >= headerSize && number(bytes + 10) == 0 && bytes[14] == 0xE1 &&
           bytes[15] == 0xE2;
}

void checkFields(Packet const& packet, unsigned char const* bytes, std::uint64_t position) {
    check(packet.fileOffset == position && packet.getFileOffset() == position);
    check(packet.leader == number(bytes) && packet.leaderMark == bytes[4]);
    check(packet.type == bytes[5] && packet.getType() == packet.type);
    check(packet.length == number(bytes + 6) && packet.getCodedLength() == packet.length);
    check(packet.reserved == number(bytes + 10));
    check(packet.trailerE1 == bytes[14] && packet.trailerE2 == bytes[15]);
}

void checkText(Packet const& header) {
    FormatStr const expected("%s:%db@%lld%s", getName(header.type), static_cast<int>(header.length),
                             static_cast<long long>(header.fileOffset),
                             header.isValid() ? "" : ",invalid");
    check(printed(header) == expected.get());
}

void checkEncode(Packet const& header, unsigned char const* bytes) {
    ByteVector room(headerSize);
    OutputBuffer out(room);
    check(header.encode(out));
    check(out.nOccupied() == headerSize && std::memcmp(room.data(), bytes, headerSize) == 0);
    check(header.encode(out).getCode() == GxfOpSubsystem::badEncodeSize);
    check(out.nOccupied() == headerSize);
}

/// Drives the packet through the buffer as a reader does that holds all there is.
void decodeActual(Packet& packet, unsigned char const* bytes, InputBuffer& buffer) {
    checkFields(packet, bytes, buffer.beginOffset() - headerSize);
    if (buffer.nOccupied() != 0) {
        packet.needsAllData(buffer);
    }
    std::uint64_t const before = buffer.beginOffset();
    OpResult const result = packet.decode(buffer);
    check(isKnownCode(result.getCode()));
    check(buffer.beginOffset() >= before);
    check(!packet.isValid() || result);
    printed(packet);
    check((packet.getMapPacket().get() != nullptr) == (packet.type == packetTypeMap));
    check((packet.getMediaPacket().get() != nullptr) == (packet.type == packetTypeMedia));
    check((packet.getFltPacket().get() != nullptr) == (packet.type == packetTypeFieldLocTbl));
    check((packet.getEosPacket().get() != nullptr) == (packet.type == packetTypeEos));
}

/// False at the end of the input.
bool readPacket(PacketHeader& header, ByteVector const& bytes, std::uint64_t start,
                InputBuffer& buffer) {
    std::uint64_t const position = buffer.beginOffset();
    if (buffer.nOccupied() < headerSize) {
        std::string const before = printed(header);
        unsigned const left = buffer.nOccupied();
        check(header.decode(buffer).getCode() == GxfOpSubsystem::badDecodeSize);
        check(printed(header) == before && buffer.nOccupied() == left);
        check(buffer.beginOffset() == position);
        return false;
    }
    unsigned char const* const at = bytes.data() + (position - start);
    check(header.decode(buffer));
    check(buffer.beginOffset() == position + headerSize);
    checkFields(header, at, position);
    check(header.isValid() == isHeader(at));
    checkText(header);
    checkEncode(header, at);
    AutoRefPtr<Packet> const actual = header.createActual();
    if (actual.get() != nullptr) {
        decodeActual(*actual, at, buffer);
    }
    return true;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
    Input input(data, size);
    Surroundings const surroundings(input.u8());
    std::uint64_t const start = input.u32();
    ByteVector bytes = input.rest();
    ByteVector const original = bytes;

    InputBuffer buffer(bytes, start);
    PacketPool pool;
    AutoRefPtr<Packet> const header = pool.alloc(packetTypeHeader);
    while (readPacket(static_cast<PacketHeader&>(*header), bytes, start, buffer)) {
    }
    check(bytes == original);
    return 0;
}

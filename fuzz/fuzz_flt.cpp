// A field locator table.
//
//     channels 1 | packet length 4, 0 for the true one | first field 4 | field 4 | margin 4 |
//     payload

#include <optional>

#include <fuzz/fuzz_input.h>
#include <testing/stream_builder.h>

using namespace GxfTypes;
using namespace GxfFuzz;

namespace {

constexpr std::uint64_t position = 4096;

std::uint32_t number(ByteVector const& bytes, std::size_t at) {
    std::uint32_t value = 0;
    for (unsigned i = 0; i < 4 && at + i < bytes.size(); ++i) {
        value |= static_cast<std::uint32_t>(bytes[at + i]) << (8 * i);
    }
    return value;
}

/// A second, naive reading of the table; nothing when it is to be refused.
std::optional<std::vector<unsigned>> entriesOf(ByteVector const& payload, std::uint32_t length) {
    std::uint32_t const payloadLength = length - Packet::headerSize;
    std::uint64_t const count = number(payload, 4);
    if (payloadLength < 8 || count > FieldLocTblPacket::maxEntries ||
        count * 4 > payloadLength - 8) {
        return std::nullopt;
    }
    std::vector<unsigned> entries;
    for (std::size_t i = 0; i < count; ++i) {
        entries.push_back(number(payload, 8 + 4 * i));
    }
    return entries;
}

bool isOrdered(std::vector<unsigned> const& entries) {
    for (std::size_t i = 1; i < entries.size(); ++i) {
        if (entries[i] != 0 && entries[i] < entries[i - 1]) {
            return false;
        }
    }
    return true;
}

void checkDecode(FieldLocTblPacket const& flt, OpResult const& result, ByteVector const& payload) {
    std::optional<std::vector<unsigned>> const entries = entriesOf(payload, flt.length);
    check(result.success() == entries.has_value());
    if (!entries) {
        bool const tooShort = flt.length - Packet::headerSize < 8;
        check(result.getCode() ==
              (tooShort ? GxfOpSubsystem::badDecodeSize : GxfOpSubsystem::badDecodeData));
        check(!flt.isValid());
        return;
    }
    check(flt.fieldsPerEntry == number(payload, 0));
    check(flt.table.size() == entries->size());
    for (unsigned i = 0; i < flt.table.size(); ++i) {
        check(flt.table[i] == (*entries)[i]);
    }
    check(flt.checkTableValidity() == isOrdered(*entries));
    check(flt.packetValid == isOrdered(*entries));
}

bool isBoundOf(FieldLocTblPacket const& flt, OffsetBound const& bound) {
    return bound.index < flt.table.size() && bound.type == offsetEstimated &&
           bound.field == flt.fieldsPerEntry * bound.index + flt.firstField &&
           bound.offset == std::uint64_t{flt.table[bound.index]} * 1024;
}

bool operator==(OffsetBound const& a, OffsetBound const& b) {
    return a.field == b.field && a.offset == b.offset && a.type == b.type && a.index == b.index;
}

void checkBounds(FieldLocTblPacket& flt, unsigned field, unsigned margin) {
    OffsetBound const untouched(1, 2, static_cast<OffsetType>(3), 4);
    OffsetBracket bracket;
    bracket.lower = untouched;
    bracket.upper = untouched;
    unsigned const margins = flt.fieldsPerEntry <= margin ? 2 * margin : margin;
    bool const canTell = flt.table.size() >= 2 && field > flt.firstField && field >= margins &&
                         flt.fieldsPerEntry != 0 &&
                         (field - margins - flt.firstField) / flt.fieldsPerEntry < flt.table.size();
    check(flt.findBounds(field, margin, bracket) == canTell);
    if (!canTell) {
        check(bracket.lower == untouched && bracket.upper == untouched);
        return;
    }
    check(isBoundOf(flt, bracket.lower));
    // In the arithmetic of 32 bits, as everywhere here.
    check(field - margins - bracket.lower.field < flt.fieldsPerEntry);
    check(bracket.upper == untouched || isBoundOf(flt, bracket.upper));
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
    Input input(data, size);
    Surroundings const surroundings(input.u8());
    std::uint32_t const claimed = input.u32();
    unsigned const firstField = input.u32();
    unsigned const field = input.u32();
    unsigned const margin = input.u32();
    ByteVector payload = input.rest();
    ByteVector const original = payload;
    std::uint32_t const length =
        claimed != 0 ? claimed : static_cast<std::uint32_t>(payload.size() + Packet::headerSize);

    PacketPool pool;
    AutoRefPtr<Packet> packet = arrive(pool, packetTypeFieldLocTbl, length, position);
    auto& flt = static_cast<FieldLocTblPacket&>(*packet);
    InputBuffer buffer(payload, position + Packet::headerSize);
    check(flt.needsAllData(buffer));
    OpResult const result = flt.decode(buffer);
    check(payload == original);
    checkDecode(flt, result, payload);
    check(buffer.beginOffset() >= position + Packet::headerSize);
    if (result) {
        check(buffer.beginOffset() == position + Packet::headerSize + flt.getPayloadLength());
    }
    flt.firstField = firstField;
    checkBounds(flt, field, margin);
    std::string const text = printed(flt);
    check(flt.isEqual(flt));

    ByteVector room(Packet::headerSize);
    OutputBuffer out(room);
    check(flt.encode(out));
    check(room == GxfTesting::header(0xFC, length).vector());

    // The second packet is a new one, since the first is still in use.
    AutoRefPtr<Packet> const second = arrive(pool, packetTypeFieldLocTbl, length, position);
    InputBuffer again(payload, position + Packet::headerSize);
    check(second->decode(again).getCode() == result.getCode());
    check(second->isEqual(flt) && flt.isEqual(*second));

    // And the third is the first one, recycled.
    packet = nullptr;
    AutoRefPtr<Packet> const third = arrive(pool, packetTypeFieldLocTbl, length, position);
    InputBuffer onceMore(payload, position + Packet::headerSize);
    check(third->decode(onceMore).getCode() == result.getCode());
    static_cast<FieldLocTblPacket&>(*third).firstField = firstField;
    check(printed(*third) == text);
    return 0;
}

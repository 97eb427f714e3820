// A stream whose UMFs get another value of user data, or lose one.
//
//     channels 1 | options 1 | size of the value 2 | stream
//
// Options: 1 may throw the tail away, 2 removes instead, 4 takes the first pair there is instead of
// one of its own name.

#include <algorithm>
#include <optional>

#include <fuzz/fuzz_input.h>
#include <gxfstream/umf_rewriter.h>

using namespace GxfTypes;
using namespace GxfFuzz;
using namespace GxfStream;

namespace {

enum Option : unsigned { discards = 1, removes = 2, takesFirst = 4 };

char const* const ownName = "Fuzz";

struct Plan {
    unsigned options;
    ByteVector value;

    bool has(Option option) const { return (options & option) != 0; }
};

UmfPacket::UserDataPair* pairIn(UmfPacket& umf, Plan const& plan) {
    for (unsigned i = 0; i < umf.userData.pairs.size(); ++i) {
        UmfPacket::UserDataPair& pair = umf.userData.pairs[i];
        if (pair.isComplete() &&
            (plan.has(takesFirst) || std::strcmp(pair.getKey(), ownName) == 0)) {
            return &pair;
        }
    }
    return nullptr;
}

std::string change(UmfPacket& umf, Plan const& plan) {
    auto const size = static_cast<unsigned>(plan.value.size());
    UmfPacket::UserDataPair* const pair = pairIn(umf, plan);
    if (plan.has(removes)) {
        if (pair != nullptr) {
            std::string const name = pair->getKey();
            umf.userData.removeUserData(name.c_str());
        }
    } else if (pair != nullptr) {
        UmfTrackNum const track = pair->valueItem->trackNum;
        pair->keyItem->valueSize = size;
        pair->valueItem->init(UmfPacket::GxfKey(pair->valueItem->getKey()), track,
                              plan.value.data(), size);
    } else {
        umf.userData.addUserData(ownName, UmfTrackNum(), userDataBinary, plan.value.data(), size);
    }
    return umf.userData.nItems() > 60000 ? "too many" : "";
}

bool holdsValue(UmfPacket& umf, Plan const& plan) {
    UmfPacket::UserDataPair const* const pair = pairIn(umf, plan);
    return pair != nullptr && pair->valueItem->getNumDataBytes() == plan.value.size() + 2 &&
           std::equal(plan.value.begin(), plan.value.end(), pair->valueItem->getData());
}

ByteVector xmlOf(UmfPacket const& umf) {
    GxfPreservedData const& xml = umf.preservedData[0];
    return {xml.getData(), xml.getData() + xml.size()};
}

/// What a stream is made of, and of its UMFs what a change must not touch.
struct Seen {
    std::vector<std::uint64_t> packets; ///< offset, type and length of each
    std::vector<ByteVector> xml;
    bool hasValue = true; ///< in each UMF
    unsigned valid = 0;
};

Seen seen(ByteVector const& bytes, Plan const& plan) {
    Seen result;
    MemorySource source(bytes);
    PacketReader reader(source);
    while (StreamPacket const* const packet = reader.next()) {
        result.packets.insert(result.packets.end(), {packet->offset, packet->type, packet->length});
        if (packet->umf != nullptr && packet->umf->packet->isValid()) {
            ++result.valid;
            result.xml.push_back(xmlOf(*packet->umf->packet));
            result.hasValue = result.hasValue && holdsValue(*packet->umf->packet, plan);
        }
    }
    return result;
}

struct Rewrite {
    unsigned umfs = 0;
    bool losesTail = false;
    ByteVector stream;
    std::vector<Patch> patches;
};

/// Nothing when it is refused.
std::optional<Rewrite> rewrite(ByteVector const& bytes, Plan const& plan) {
    MemorySource source(bytes);
    PacketReader reader(source);
    UmfRewriter rewriter([&plan](UmfPacket& umf) { return change(umf, plan); },
                         plan.has(discards) ? UmfRewriter::discardTail : UmfRewriter::keepTail);
    bool good = true;
    while (StreamPacket const* const packet = good ? reader.next() : nullptr) {
        good = rewriter.take(*packet, source);
    }
    if (!good || !rewriter.finish(reader)) {
        check(!rewriter.refusal().text.empty());
        check(rewriter.refusal().offset < bytes.size());
        return std::nullopt;
    }
    Rewrite result{rewriter.umfs(), rewriter.loss().isAny(), {}, rewriter.patches()};
    check(plan.has(discards) || !result.losesTail);
    MemorySource again(bytes);
    check(copyPatched(again, result.patches, [&result](Span part) {
        result.stream.insert(result.stream.end(), part.begin(), part.end());
        return true;
    }));
    return result;
}

/// The patches lie inside UMF packets, and are what was there.
void checkPatches(ByteVector const& bytes, Rewrite const& result) {
    std::uint64_t end = 0;
    for (Patch const& patch : result.patches) {
        check(patch.offset >= end && patch.before.size() == patch.after.size());
        end = patch.offset + patch.before.size();
        check(end <= bytes.size() && bytes[patch.offset + 5] == 0xFD);
        check(std::equal(patch.before.begin(), patch.before.end(),
                         bytes.begin() + static_cast<std::ptrdiff_t>(patch.offset)));
        check(patch.before != patch.after);
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
    Input input(data, size);
    Surroundings const surroundings(input.u8());
    Plan plan{input.u8(), {}};
    plan.value.assign(1 + input.u16() % 4096U, 0x41);
    ByteVector const bytes = input.rest();

    std::optional<Rewrite> const result = rewrite(bytes, plan);
    if (!result) {
        return 0;
    }
    checkPatches(bytes, *result);
    check(result->stream.size() == bytes.size());
    Seen const before = seen(bytes, plan);
    Seen const after = seen(result->stream, plan);
    check(before.packets == after.packets);
    check(before.valid == result->umfs && after.valid == result->umfs);
    check(result->losesTail || before.xml == after.xml);
    if (!plan.has(removes)) {
        check(after.hasValue);
        std::optional<Rewrite> const again = rewrite(result->stream, plan);
        check(again && again->stream == result->stream);
    }
    return 0;
}

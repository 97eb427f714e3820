#include <gxfstream/header_search.h>

#include <algorithm>
#include <cstring>
#include <limits>

#include <gxftypes/packet/gxf.h>

namespace GxfStream {

namespace {

using GxfTypes::Packet;
using GxfTypes::PacketType;

constexpr std::size_t headerSize = Packet::headerSize;
constexpr std::size_t trailerOffset = 14;
constexpr std::size_t largestStep = std::size_t{256} << 10;

/// The index of the first plausible header that begins at one of the first `starts` bytes.
std::optional<std::size_t> firstHeader(Span bytes, std::size_t starts) {
    // The first byte of the trailer is the rarest of the fixed ones, in essence as in padding.
    unsigned char const* at = bytes.data() + trailerOffset;
    unsigned char const* const end = at + starts;
    while (auto const* const found = static_cast<unsigned char const*>(
               std::memchr(at, 0xE1, static_cast<std::size_t>(end - at)))) {
        unsigned char const* const header = found - trailerOffset;
        if (isPlausibleHeader(header)) {
            return static_cast<std::size_t>(header - bytes.data());
        }
        at = found + 1;
    }
    return std::nullopt;
}

} // namespace

bool isPlausibleHeader(unsigned char const* bytes) {
    static constexpr unsigned char leader[] = {0, 0, 0, 0, 1};
    static constexpr unsigned char trailer[] = {0, 0, 0, 0, 0xE1, 0xE2};
    return std::memcmp(bytes + 10, trailer, sizeof(trailer)) == 0 &&
           std::memcmp(bytes, leader, sizeof(leader)) == 0 &&
           Packet::isValid(static_cast<PacketType>(bytes[5])) &&
           lengthInHeader(bytes) >= headerSize;
}

std::uint32_t lengthInHeader(unsigned char const* bytes) {
    return (static_cast<std::uint32_t>(bytes[6]) << 24) |
           (static_cast<std::uint32_t>(bytes[7]) << 16) |
           (static_cast<std::uint32_t>(bytes[8]) << 8) | bytes[9];
}

std::optional<std::uint64_t> HeaderSearch::find(std::uint64_t from) {
    // Nothing in front is of interest any more, so that a pipe needs no memory for it.
    Stretch rest{from, std::numeric_limits<std::uint64_t>::max(), true};
    std::optional<Candidate> const first = nextPlausible(rest);
    if (!first) {
        return std::nullopt;
    }
    if (isConfirmed(*first)) {
        return first->offset;
    }
    std::optional<std::uint64_t> const inside =
        findConfirmed(first->offset + 1, first->offset + first->length);
    return inside ? inside : first->offset;
}

std::optional<std::uint64_t> HeaderSearch::findConfirmed(std::uint64_t from, std::uint64_t to) {
    Stretch stretch{from, to};
    while (std::optional<Candidate> const candidate = nextPlausible(stretch)) {
        if (isConfirmed(*candidate)) {
            return candidate->offset;
        }
    }
    return std::nullopt;
}

/// The first plausible header of the stretch, which goes on behind it. A chunk is asked for again,
/// from there on, for each of its headers: what a source keeps of it serves them all.
std::optional<HeaderSearch::Candidate> HeaderSearch::nextPlausible(Stretch& stretch) {
    while (stretch.from < stretch.to) {
        if (stretch.from >= stretch.chunkEnd) {
            if (stretch.releases) {
                m_source.release(stretch.from);
            }
            stretch.chunkEnd =
                stretch.from + std::min<std::uint64_t>(stretch.to - stretch.from, stretch.step);
            stretch.step = std::min(stretch.step * 2, largestStep);
        }
        auto const starts = static_cast<std::size_t>(stretch.chunkEnd - stretch.from);
        Span const bytes = m_source.read(stretch.from, starts + headerSize - 1);
        if (bytes.size() < headerSize) {
            return std::nullopt;
        }
        std::size_t const present = bytes.size() - headerSize + 1;
        if (std::optional<std::size_t> const found = firstHeader(bytes, present)) {
            Candidate const candidate{stretch.from + *found, lengthInHeader(bytes.data() + *found)};
            stretch.from = candidate.offset + 1;
            return candidate;
        }
        stretch.from += present;
    }
    return std::nullopt;
}

bool HeaderSearch::isConfirmed(Candidate const& candidate) {
    std::uint64_t const next = candidate.offset + candidate.length;
    if (!m_source.canReach(next, headerSize)) {
        return false;
    }
    unsigned char follower[headerSize];
    if (m_source.peek(next, follower)) {
        return isPlausibleHeader(follower);
    }
    return m_source.size() == next;
}

} // namespace GxfStream

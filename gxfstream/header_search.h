#pragma once

#include <optional>

#include <gxfstream/byte_source.h>

namespace GxfStream {

/// True when 16 bytes can be the header of a packet. REQUIRES: 16 bytes.
bool isPlausibleHeader(unsigned char const* bytes);

/// The length of the packet, from a plausible header.
std::uint32_t lengthInHeader(unsigned char const* bytes);

/// Finds where packets go on behind broken bytes.
///
/// A header in the middle of essence may be an accident or the remains of another stream. So a
/// plausible header counts when another one, or the end of the stream, follows where its packet
/// ends. One that nothing confirms counts too when no confirmed header lies inside its packet: then
/// what follows it is what's broken. Each byte is looked at a bounded number of times.
class HeaderSearch {
  public:
    explicit HeaderSearch(ByteSource& source) : m_source(source) {}

    /// The first header at or behind `from` that counts; nothing when the stream has none.
    std::optional<std::uint64_t> find(std::uint64_t from);

    /// The first confirmed header in [from, to); nothing when there is none.
    std::optional<std::uint64_t> findConfirmed(std::uint64_t from, std::uint64_t to);

  private:
    struct Candidate {
        std::uint64_t offset;
        std::uint32_t length;
    };

    /// What is still to be searched: headers that begin in [from, to).
    struct Stretch {
        std::uint64_t from;
        std::uint64_t to;
        bool releases = false;      ///< what was searched isn't needed any more
        std::uint64_t chunkEnd = 0; ///< up to where the source was asked
        std::size_t step = 4096;    ///< of the next chunk: a near header costs a short read
    };

    std::optional<Candidate> nextPlausible(Stretch& stretch);
    bool isConfirmed(Candidate const& candidate);

    ByteSource& m_source;
};

} // namespace GxfStream

#pragma once

#include <functional>
#include <string>
#include <vector>

#include <gxfstream/in_place_file.h>
#include <gxfstream/packet_reader.h>

namespace GxfStream {

/// What a rewrite throws away of a UMF's tail, in bytes, and what it lacks.
struct TailLoss {
    std::uint32_t missing = 0; ///< that the new content needs beyond the room there is
    std::uint32_t behind = 0;  ///< kept bytes behind the XML document
    std::uint32_t xml = 0;

    bool isAny() const { return behind + xml != 0; }
};

/// Why a stream's UMFs aren't rewritten.
struct RewriteRefusal {
    enum Kind {
        broken,  ///< a UMF that can't be read: it could not be changed like the others
        layout,  ///< packets that aren't cut as a rewrite cuts them
        inexact, ///< content that a rewrite wouldn't bring back as it was
        change,  ///< the change itself can't be made
        tail,    ///< needs room that only the tail has, see UmfRewriter::loss()
        room,    ///< needs more room than there is, without the tail too
        io,      ///< reading failed
    };

    Kind kind = broken;
    std::uint64_t offset = 0; ///< of the UMF
    std::string text;         ///< one line for people
};

/// Computes the new bytes of a stream's UMFs, all changed alike, and proves them: they are decoded
/// again and compared with what they shall be. Nothing is written here; see InPlaceFile and
/// copyPatched() for that.
///
/// A UMF keeps its packets, their places and their lengths, its XML byte for byte, and what stands
/// in front of the user data but for the words that tell the sizes of sections. In user data, what
/// stands in a text's field behind the end of the text is written as zeros. Zeros at a UMF's very
/// end are taken as filler: room for what grows.
class UmfRewriter {
  public:
    /// Changes a decoded UMF; a text for people when it can't.
    using Change = std::function<std::string(GxfTypes::UmfPacket&)>;

    enum TailRule {
        keepTail,    ///< refuse what would throw away sections of the tail
        discardTail, ///< throw away what is behind the XML, and the XML, in that order
    };

    UmfRewriter(Change change, TailRule rule) : m_change(std::move(change)), m_rule(rule) {}

    /// Takes in a packet as the reader gives it; all of the stream's packets, in order. The source
    /// is the reader's and seekable. False, with refusal(), when the stream can't be rewritten.
    bool take(StreamPacket const& packet, ByteSource& source);
    /// The stream is at its end. False, with refusal(), when a UMF is left that wasn't whole.
    bool finish(PacketReader const& reader);

    RewriteRefusal const& refusal() const { return m_refusal; }
    /// What the UMFs lose of their tails; behind a refusal, what that UMF would have to lose.
    TailLoss const& loss() const { return m_loss; }
    /// Number of UMFs taken in.
    unsigned umfs() const { return m_umfs; }
    /// What is new in the stream, in order of the offsets: nothing for packets that stay the same.
    std::vector<Patch> const& patches() const { return m_patches; }

  private:
    bool rewrite(StreamUmf const& umf, ByteSource& source);
    bool makeRoom(GxfTypes::UmfPacket& umf);
    bool refuse(RewriteRefusal::Kind kind, std::string const& what);

    Change m_change;
    TailRule m_rule;
    RewriteRefusal m_refusal;
    TailLoss m_loss;
    std::uint64_t m_offset = 0;            ///< of the UMF at hand
    StreamUmf::Place m_last{};             ///< the UMF packet seen last
    std::vector<StreamUmf::Place> m_loose; ///< UMF packets that no UMF has joined yet
    unsigned m_umfs = 0;
    std::vector<Patch> m_patches;
    std::uint64_t m_patched = 0; ///< bytes of them

    // They are held twice, and written to an undo file.
    static constexpr std::uint64_t mostPatched = std::uint64_t{4} * UmfJoiner::largestUmf;
};

/// Hands all bytes of a source to `sink`, front to back, with the patches in place. The sink gives
/// false to stop. False when it did, when reading failed (see the source's error()), or when the
/// source isn't what it was when the patches were made.
bool copyPatched(ByteSource& source, std::vector<Patch> const& patches,
                 std::function<bool(Span)> const& sink);

} // namespace GxfStream

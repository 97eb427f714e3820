#pragma once

#include <nlohmann/json_fwd.hpp>
#include <optional>
#include <string>

#include <gxfstream/packet_reader.h>

#include "input.h"

namespace Gxf {

/// Which of a stream's UMFs tells what the clip is: the last valid one; without one, the last
/// broken one.
class ClipUmf {
  public:
    ClipUmf() = default;
    /// Reads the stream to its end.
    explicit ClipUmf(Input& input);

    void note(GxfStream::StreamPacket const& packet);
    /// Null when there was none.
    GxfStream::StreamUmf const* get() const { return m_umf ? &*m_umf : nullptr; }

  private:
    std::optional<GxfStream::StreamUmf> m_umf;
};

/// What a UMF says, as info prints it.
nlohmann::ordered_json umfJson(GxfStream::StreamUmf const& umf);

/// The user data of a UMF: an array of name, type, track, size and value.
nlohmann::ordered_json userDataJson(GxfTypes::UmfPacket const& umf);
/// The same as a table for people; "" without any.
std::string userDataText(GxfTypes::UmfPacket const& umf);

/// The first complete pair whose name is stored so; without one, the first that info prints so;
/// null without either.
GxfTypes::UmfPacket::UserDataPair* findUserData(GxfTypes::UmfPacket& umf, std::string const& name);

/// The bytes of a pair's value, without the two zero bytes that end them.
std::string valueBytes(GxfTypes::UmfPacket::UserDataPair const& pair);

/// The UMF for people, in a few lines.
std::string umfText(GxfStream::StreamUmf const& umf);

} // namespace Gxf

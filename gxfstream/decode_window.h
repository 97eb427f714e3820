#pragma once

#include <gxfstream/byte_source.h>
#include <gxftypes/packet/gxf.h>

namespace GxfStream {

/// A buffer for a decoder over bytes at a stream position, which must outlive it. The decoders of
/// the library don't write into what they read from.
class DecodeWindow : public GxfTypes::GxfBuffer {
  public:
    DecodeWindow(Span bytes, std::uint64_t offset)
        : GxfBuffer(const_cast<unsigned char*>(bytes.data()), static_cast<unsigned>(bytes.size()),
                    DataState::filled, GxfTypes::MediaAgent(nullptr)) {
        reset(DataState::filled, offset);
    }
};

} // namespace GxfStream

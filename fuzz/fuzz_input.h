#pragma once

#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include <gxftypes/packet/gxf.h>
#include <testing/capture.h>

namespace GxfFuzz {

using ByteVector = std::vector<unsigned char>;

/// Ends the program when a promise of the library doesn't hold, so that the fuzzer keeps the input.
inline void check(bool holds, char const* file = __builtin_FILE(), int line = __builtin_LINE()) {
    if (!holds) {
        std::fprintf(stderr, "%s:%d: the check failed\n", file, line);
        std::abort();
    }
}

/// Takes an input apart from its front. What is missing reads as zero.
class Input {
  public:
    Input(std::uint8_t const* data, std::size_t size) : m_data(data), m_left(size) {}

    std::uint8_t u8() {
        if (m_left == 0) {
            return 0;
        }
        --m_left;
        return *m_data++;
    }
    std::uint16_t u16() {
        unsigned const high = u8();
        return static_cast<std::uint16_t>(high << 8 | u8());
    }
    std::uint32_t u32() {
        std::uint32_t const high = u16();
        return high << 16 | u16();
    }
    std::uint64_t u64() {
        std::uint64_t const high = u32();
        return high << 32 | u32();
    }
    double real() { return std::bit_cast<double>(u64()); }

    /// All that is left, in memory of exactly that size.
    ByteVector rest() const { return {m_data, m_data + m_left}; }

  private:
    std::uint8_t const* m_data;
    std::size_t m_left;
};

/// Debug channels as an input's byte says, and no messages on the terminal, for one input.
///
///     encode detail 3 | decode detail 3 | errors 1 | arrays 1
class Surroundings {
  public:
    explicit Surroundings(unsigned byte)
        : m_debug(GxfTypes::gxfDebug, byte & 3U),
          m_decode(GxfTypes::gxfDecodeDetail, byte >> 2 & 7),
          m_encode(GxfTypes::gxfEncodeDetail, byte >> 5),
          m_before(GxfTypes::setMessageSink(&take)) {}
    Surroundings(Surroundings const&) = delete;
    Surroundings& operator=(Surroundings const&) = delete;
    ~Surroundings() { GxfTypes::setMessageSink(m_before); }

  private:
    static void take(GxfTypes::MessageKind, char const* text) {
        check(text != nullptr && std::strlen(text) < std::size_t{1} << 30);
    }

    static_assert(GxfTypes::gxfDebugErrors == 0 && GxfTypes::gxfDebugArrays == 1);
    GxfTesting::ChannelSetting m_debug;
    GxfTesting::ChannelSetting m_decode;
    GxfTesting::ChannelSetting m_encode;
    GxfTypes::MessageSink m_before;
};

/// A buffer for a decoder over bytes that lie at a position of a stream.
class InputBuffer : public GxfTypes::GxfBuffer {
  public:
    InputBuffer(ByteVector& bytes, std::uint64_t position)
        : GxfBuffer(bytes.data(), static_cast<unsigned>(bytes.size()), DataState::filled,
                    GxfTypes::MediaAgent(nullptr)) {
        reset(DataState::filled, position);
    }
};

/// A buffer for an encoder over bytes.
class OutputBuffer : public GxfTypes::GxfBuffer {
  public:
    explicit OutputBuffer(ByteVector& bytes)
        : GxfBuffer(bytes.data(), static_cast<unsigned>(bytes.size()), DataState::empty,
                    GxfTypes::MediaAgent(nullptr)) {}

    ByteVector written() const { return {ptrBegin(), ptrEnd()}; }
};

inline bool isKnownCode(int code) {
    using GxfTypes::GxfOpSubsystem;
    switch (code) {
    case GxfOpSubsystem::umfPartial:
    case GxfOpSubsystem::umfFinal:
    case GxfOpSubsystem::internalError:
    case GxfOpSubsystem::internalWarning:
    case GxfOpSubsystem::badDecodeSize:
    case GxfOpSubsystem::badDecodeData:
    case GxfOpSubsystem::umfUserDataError:
    case GxfOpSubsystem::badEncodeSize:
    case GxfOpSubsystem::badEncodeData:
    case GxfOpSubsystem::unimplemented:
    case GxfOpSubsystem::noXmlData:
    case GxfOpSubsystem::xmlTreeTooLarge:
    case GxfOpSubsystem::xmlDataMayNotBeUsable:
    case GxfOpSubsystem::xmlDecodeFailed:
        return true;
    default:
        return false;
    }
}

/// What an object prints of itself.
template <typename Object> std::string printed(Object const& object) {
    GxfTypes::AutoPtr<char> const text = object.toString();
    check(text.get() != nullptr);
    return text.get();
}

/// The packet that a reader gets for a header of that type and length at a position.
inline GxfTypes::AutoRefPtr<GxfTypes::Packet> arrive(GxfTypes::PacketPool& pool,
                                                     GxfTypes::PacketType type,
                                                     std::uint32_t length, std::uint64_t position) {
    GxfTypes::AutoRefPtr<GxfTypes::Packet> const header = pool.alloc(GxfTypes::packetTypeHeader);
    header->type = type;
    header->length = length;
    header->fileOffset = position;
    return header->createActual();
}

} // namespace GxfFuzz

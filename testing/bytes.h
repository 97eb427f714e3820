#pragma once

#include <cstdint>
#include <initializer_list>
#include <string>
#include <string_view>
#include <vector>

#include <gxftypes/packet/gxf.h>

namespace GxfTesting {

/// Bytes composed one value at a time, without the library's own encoders.
class Bytes {
  public:
    Bytes() = default;
    Bytes(std::initializer_list<unsigned> values) {
        for (unsigned const value : values) {
            u8(value);
        }
    }

    Bytes& u8(unsigned value) {
        m_bytes.push_back(static_cast<unsigned char>(value));
        return *this;
    }
    Bytes& u16(unsigned value) { return u8(value >> 8).u8(value); }
    Bytes& u32(std::uint32_t value) { return u16(value >> 16).u16(value); }
    Bytes& u64(std::uint64_t value) {
        return u32(static_cast<std::uint32_t>(value >> 32)).u32(static_cast<std::uint32_t>(value));
    }
    Bytes& u32Lsbf(std::uint32_t value) {
        return u8(value).u8(value >> 8).u8(value >> 16).u8(value >> 24);
    }
    Bytes& text(std::string_view value);
    Bytes& fill(std::size_t count, unsigned value = 0);
    Bytes& add(Bytes const& other);

    std::size_t size() const { return m_bytes.size(); }
    unsigned char* data() { return m_bytes.data(); }
    unsigned char const* data() const { return m_bytes.data(); }
    unsigned char& operator[](std::size_t index) { return m_bytes[index]; }
    bool operator==(Bytes const&) const = default;

    /// A buffer over these bytes, which must outlive it, for a decoder.
    GxfTypes::GxfBuffer filledBuffer() {
        return {data(), static_cast<unsigned>(size()), GxfTypes::GxfBuffer::DataState::filled,
                GxfTypes::MediaAgent(nullptr)};
    }
    /// A buffer over these bytes, which must outlive it, for an encoder.
    GxfTypes::GxfBuffer emptyBuffer() {
        return {data(), static_cast<unsigned>(size()), GxfTypes::GxfBuffer::DataState::empty,
                GxfTypes::MediaAgent(nullptr)};
    }

    std::vector<unsigned char> const& vector() const { return m_bytes; }

    /// The occupied bytes of a buffer.
    static Bytes occupied(GxfTypes::GxfBuffer const& buffer) {
        Bytes bytes;
        bytes.m_bytes.assign(buffer.ptrBegin(), buffer.ptrEnd());
        return bytes;
    }

  private:
    std::vector<unsigned char> m_bytes;
};

/// "01 a0 ...": what a failed comparison prints.
std::ostream& operator<<(std::ostream& out, Bytes const& bytes);

} // namespace GxfTesting

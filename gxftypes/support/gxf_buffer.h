#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>

#include <gxftypes/support/auto_array_ptr.h>
#include <gxftypes/support/byte_order.h>
#include <gxftypes/support/media_agent.h>
#include <gxftypes/support/op_result.h>

namespace Zorvan {

/// The byte window through which every packet is read and written.
///
///     storage        ptrBegin()          ptrEnd()        storage + capacity
///        |  consumed     |    occupied      |    unoccupied   |
///        ^ baseOffset    ^ beginOffset()
///
/// Decoders consume from the front, encoders append behind the end. Positions count in the stream,
/// so that beginOffset() always tells where the next byte lies in the file.
///
/// A buffer is either a window over a caller's array, which stays the caller's and never grows, or
/// it has storage of its own, which grows on demand by allowFor(), addOccupied(),
/// addOutputZeros() and moveFrom(). One thread at a time.
///
/// REQUIRES of decoders: the caller has tested nOccupied(). A decoder that is asked for more than
/// is there stays inside memory: the missing bytes read as zero, and it consumes through
/// removeInput() as always.
class GxfBuffer {
  public:
    enum class DataState : std::uint32_t {
        noData = 0, ///< gives up its contents
        empty = 1,  ///< the storage is room for output
        filled = 2, ///< the storage is full of input
    };

    /// An empty buffer without storage, which grows.
    explicit GxfBuffer(MediaAgent agent) : m_agent(agent) {}
    /// A window over `size` bytes of the caller's at stream position 0.
    GxfBuffer(unsigned char* data, unsigned size, DataState state, MediaAgent agent)
        : m_agent(agent), m_storage(data), m_capacity(size),
          m_occupied(state == DataState::filled ? size : 0), m_isWindow(true) {}
    GxfBuffer(GxfBuffer const&) = delete;
    GxfBuffer& operator=(GxfBuffer const&) = delete;
    ~GxfBuffer() {
        if (!m_isWindow) {
            delete[] m_storage;
        }
    }

    /// Sets contents and stream position anew: nothing (a window lets go of the caller's array),
    /// empty storage, or storage full of input.
    void reset(DataState state, unsigned long long offset) {
        if (state == DataState::noData && m_isWindow) {
            m_storage = nullptr;
            m_capacity = 0;
            m_isWindow = false;
        }
        m_begin = 0;
        m_occupied = state == DataState::filled ? m_capacity : 0;
        m_baseOffset = offset;
    }

    /// Bytes that can be consumed.
    unsigned nOccupied() const { return m_occupied; }
    /// Room behind the end in bytes; 0 also when the positions overshoot the capacity.
    unsigned nUnoccupied() const {
        auto const room = static_cast<std::int32_t>(m_capacity - (m_occupied + m_begin));
        return room < 0 ? 0 : static_cast<unsigned>(room);
    }
    /// Stream position of the next byte to consume.
    unsigned long long beginOffset() const { return m_baseOffset + m_begin; }
    unsigned char* ptrBegin() { return m_storage + m_begin; }
    unsigned char const* ptrBegin() const { return m_storage + m_begin; }
    unsigned char* ptrEnd() { return ptrBegin() + m_occupied; }
    unsigned char const* ptrEnd() const { return ptrBegin() + m_occupied; }

    /// Consumes `n` bytes. Beyond the bytes present the buffer stands empty, at its storage's
    /// start, and its stream position moves to where the skip ends.
    void removeInput(unsigned long long n) {
        if (n <= m_occupied) {
            m_occupied -= static_cast<std::uint32_t>(n);
            m_begin += static_cast<std::uint32_t>(n);
            return;
        }
        m_baseOffset += m_begin + n;
        m_occupied = 0;
        m_begin = 0;
    }

    /// Counts `n` bytes behind the end as occupied; false when there is no room and none can be
    /// made.
    bool addOccupied(unsigned n) {
        if (n <= nUnoccupied()) {
            m_occupied += n;
            return true;
        }
        return addOccupiedSlow(n);
    }
    bool addOccupiedSlow(unsigned n);

    /// Appends `n` zero bytes; false when there is no room and none can be made.
    bool addOutputZeros(unsigned n);

    /// Room for `n` more bytes behind the end; false when a window has it not. The second argument
    /// changes nothing here: it belongs to agents that keep storage of several kinds.
    bool allowFor(unsigned n, bool);

    /// Moves `n` bytes from the front of `source` behind this buffer's end; an empty growing buffer
    /// takes over their stream position. Code 9 when the source holds fewer, code 12 when there is
    /// no room: nothing is moved then, nothing consumed.
    OpResult moveFrom(GxfBuffer& source, unsigned n);

    /// Takes over the other's contents, storage and position; the other is left without any.
    void replaceWith(GxfBuffer& other);

    unsigned char decodeUint8() { return decodeMsbf<std::uint8_t>(); }
    unsigned short decodeUint16() { return decodeMsbf<std::uint16_t>(); }
    unsigned int decodeUint32() { return decodeMsbf<std::uint32_t>(); }
    unsigned long long decodeUint64() { return decodeMsbf<std::uint64_t>(); }
    unsigned short decodeUint16Lsbf() { return decodeLsbf<std::uint16_t>(); }
    unsigned int decodeUint32Lsbf() { return decodeLsbf<std::uint32_t>(); }
    double decodeFloat64Lsbf() { return decodeLsbf<double>(); }
    /// Consumes N bytes and tells where they lie: in the buffer, good until its next change, or in
    /// `spare`, with zeros for those that are missing.
    template <std::size_t N> unsigned char const* takeBytes(unsigned char (&spare)[N]) {
        unsigned char const* bytes = ptrBegin();
        if (m_occupied < N) [[unlikely]] {
            copyPresent(spare, N, m_storage, m_begin, m_occupied);
            bytes = spare;
        }
        removeInput(N);
        return bytes;
    }
    /// A new array of `n` + 1 bytes: the bytes, zeros among them, and a terminating zero. Bytes
    /// that are missing are zero and take no memory beyond the terminator.
    AutoArrayPtr<char> decodeString(unsigned n);
    /// A new array of `n` bytes; zeros stand for what is missing.
    AutoArrayPtr<unsigned char> decodeBlob(unsigned n);

    /// Appends the value big-endian; false, with nothing written, when there is no room.
    template <typename T> bool encode(T value) {
        if (nUnoccupied() < sizeof(T)) {
            return false;
        }
        storeMsbf(ptrEnd(), value);
        m_occupied += static_cast<std::uint32_t>(sizeof(T));
        return true;
    }

    /// Appends the value little-endian; false, with nothing written, when there is no room.
    template <typename T> bool encodeLsbf(T value) {
        if (nUnoccupied() < sizeof(T)) {
            return false;
        }
        storeLsbf(ptrEnd(), value);
        m_occupied += static_cast<std::uint32_t>(sizeof(T));
        return true;
    }

    /// False, with nothing written, for null data or no room.
    bool encodeBlob(void const* data, unsigned n);
    /// Appends the text and its terminating zero; false for a null text or no room.
    bool encodeString(char const* text);
    /// Appends exactly `size` bytes: the text, its terminating zero, then `pad`. False for a null
    /// text, no room, or a text that leaves no place for its terminator.
    bool encodePaddedString(char const* text, unsigned size, char pad);

  private:
    template <typename T> T decodeMsbf() {
        if (m_occupied < sizeof(T)) [[unlikely]] {
            unsigned char spare[sizeof(T)];
            return loadMsbf<T>(takeBytes(spare));
        }
        T const value = loadMsbf<T>(ptrBegin());
        m_occupied -= static_cast<std::uint32_t>(sizeof(T));
        m_begin += static_cast<std::uint32_t>(sizeof(T));
        return value;
    }

    template <typename T> T decodeLsbf() {
        if (m_occupied < sizeof(T)) [[unlikely]] {
            unsigned char spare[sizeof(T)];
            return loadLsbf<T>(takeBytes(spare));
        }
        T const value = loadLsbf<T>(ptrBegin());
        m_occupied -= static_cast<std::uint32_t>(sizeof(T));
        m_begin += static_cast<std::uint32_t>(sizeof(T));
        return value;
    }

    // Static and by index, so that the compiler of a decoder can keep the buffer in registers.
    static void copyPresent(unsigned char* to, unsigned n, unsigned char const* storage,
                            std::uint32_t begin, std::uint32_t present);
    bool makeRoom(unsigned n);

    MediaAgent m_agent;
    unsigned char* m_storage = nullptr;
    std::uint32_t m_capacity = 0;
    std::uint32_t m_occupied = 0;
    bool m_isWindow = false; // between two that a compiler would else change at once, and slowly
    std::uint32_t m_begin = 0;
    std::uint64_t m_baseOffset = 0;
};

} // namespace Zorvan

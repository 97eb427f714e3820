#include <gxftypes/support/gxf_buffer.h>

#include <algorithm>
#include <limits>
#include <utility>

#include <gxftypes/support/gxf_op_subsystem.h>

namespace Zorvan {

MediaAgent::Properties const MediaAgent::s_nullAgent{};

bool GxfBuffer::addOccupiedSlow(unsigned n) {
    if (!makeRoom(n)) {
        return false;
    }
    m_occupied += n;
    return true;
}

bool GxfBuffer::addOutputZeros(unsigned n) {
    if (n == 0) {
        return true;
    }
    if (!addOccupied(n)) {
        return false;
    }
    std::memset(ptrEnd() - n, 0, n);
    return true;
}

bool GxfBuffer::allowFor(unsigned n, bool) { return makeRoom(n); }

OpResult GxfBuffer::moveFrom(GxfBuffer& source, unsigned n) {
    using GxfTypes::GxfOpSubsystem;
    if (n > source.nOccupied()) {
        return GxfTypes::gxfError(GxfOpSubsystem::badDecodeSize);
    }
    // Onto itself, the moved bytes would be consumed from where they were just put.
    if (&source == this) {
        return GxfTypes::gxfError(GxfOpSubsystem::internalError);
    }
    if (!makeRoom(n)) {
        return GxfTypes::gxfError(GxfOpSubsystem::badEncodeSize);
    }
    if (m_occupied == 0 && !m_isWindow) {
        m_baseOffset = source.beginOffset() - m_begin;
    }
    if (n != 0) {
        std::memcpy(ptrEnd(), source.ptrBegin(), n);
    }
    m_occupied += n;
    source.removeInput(n);
    return OpResult::Ok;
}

void GxfBuffer::replaceWith(GxfBuffer& other) {
    if (&other == this) {
        return;
    }
    if (!m_isWindow) {
        delete[] m_storage;
    }
    m_agent = other.m_agent;
    m_storage = std::exchange(other.m_storage, nullptr);
    m_capacity = std::exchange(other.m_capacity, 0);
    m_occupied = std::exchange(other.m_occupied, 0);
    m_begin = std::exchange(other.m_begin, 0);
    m_baseOffset = std::exchange(other.m_baseOffset, 0);
    m_isWindow = std::exchange(other.m_isWindow, false);
}

AutoArrayPtr<char> GxfBuffer::decodeString(unsigned n) {
    unsigned const present = std::min(n, m_occupied);
    AutoArrayPtr<char> text(new char[std::size_t{present} + 1]);
    if (present != 0) {
        std::memcpy(text.get(), ptrBegin(), present);
    }
    text[present] = '\0';
    removeInput(n);
    return text;
}

AutoArrayPtr<unsigned char> GxfBuffer::decodeBlob(unsigned n) {
    AutoArrayPtr<unsigned char> blob(new unsigned char[n]);
    copyPresent(blob.get(), n, m_storage, m_begin, m_occupied);
    removeInput(n);
    return blob;
}

bool GxfBuffer::encodeBlob(void const* data, unsigned n) {
    if (data == nullptr || nUnoccupied() < n) {
        return false;
    }
    if (n != 0) {
        std::memcpy(ptrEnd(), data, n);
    }
    m_occupied += n;
    return true;
}

bool GxfBuffer::encodeString(char const* text) {
    if (text == nullptr) {
        return false;
    }
    std::size_t const size = std::strlen(text) + 1;
    return size <= nUnoccupied() && encodeBlob(text, static_cast<unsigned>(size));
}

bool GxfBuffer::encodePaddedString(char const* text, unsigned size, char pad) {
    if (text == nullptr || nUnoccupied() < size) {
        return false;
    }
    std::size_t const textSize = std::strlen(text) + 1;
    if (textSize > size) {
        return false;
    }
    unsigned char* const to = ptrEnd();
    std::memcpy(to, text, textSize);
    std::memset(to + textSize, pad, size - textSize);
    m_occupied += size;
    return true;
}

/// Copies `n` bytes, of which `present` are there and the rest is zeros.
void GxfBuffer::copyPresent(unsigned char* to, unsigned n, unsigned char const* storage,
                            std::uint32_t begin, std::uint32_t present) {
    present = std::min(n, present);
    if (present != 0) {
        std::memcpy(to, storage + begin, present);
    }
    if (present != n) {
        std::memset(to + present, 0, n - present);
    }
}

/// Room for `n` more bytes behind the end: by moving the bytes to the storage's start when that
/// frees at least half of it, else by new storage of at least twice the size.
bool GxfBuffer::makeRoom(unsigned n) {
    if (n <= nUnoccupied()) {
        return true;
    }
    // The room is counted as a signed 32-bit number.
    constexpr std::uint64_t largest = std::numeric_limits<std::int32_t>::max();
    std::uint64_t const needed = std::uint64_t{m_occupied} + n;
    if (m_isWindow || needed > largest) {
        return false;
    }
    if (needed <= m_capacity && m_begin >= m_capacity / 2) {
        std::memmove(m_storage, ptrBegin(), m_occupied);
    } else {
        std::uint64_t const doubled = std::min(std::uint64_t{m_capacity} * 2, largest);
        auto const capacity = static_cast<std::uint32_t>(std::max(needed, doubled));
        auto* const grown = new unsigned char[capacity];
        if (m_occupied != 0) {
            std::memcpy(grown, ptrBegin(), m_occupied);
        }
        // addOccupied() counts bytes that nobody may have written.
        std::memset(grown + m_occupied, 0, capacity - m_occupied);
        delete[] m_storage;
        m_storage = grown;
        m_capacity = capacity;
    }
    m_baseOffset += m_begin;
    m_begin = 0;
    return true;
}

} // namespace Zorvan

#include <testing/bytes.h>

#include <iomanip>
#include <ostream>

namespace GxfTesting {

// Not inline: g++ 12 warns of its own vector where it sees through the bytes of a test.

Bytes& Bytes::text(std::string_view value) {
    m_bytes.insert(m_bytes.end(), value.begin(), value.end());
    return *this;
}

Bytes& Bytes::fill(std::size_t count, unsigned value) {
    m_bytes.insert(m_bytes.end(), count, static_cast<unsigned char>(value));
    return *this;
}

Bytes& Bytes::add(Bytes const& other) {
    m_bytes.insert(m_bytes.end(), other.m_bytes.begin(), other.m_bytes.end());
    return *this;
}

std::ostream& operator<<(std::ostream& out, Bytes const& bytes) {
    auto const flags = out.flags();
    char const* separator = "";
    for (unsigned char const byte : bytes.vector()) {
        out << separator << std::hex << std::setw(2) << std::setfill('0')
            << static_cast<unsigned>(byte);
        separator = " ";
    }
    out.flags(flags);
    return out;
}

} // namespace GxfTesting

#include <testing/bytes.h>

#include <iomanip>
#include <ostream>

namespace GxfTesting {

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

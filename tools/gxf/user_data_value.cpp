#include "user_data_value.h"

#include <bit>
#include <charconv>
#include <cstdint>
#include <limits>
#include <optional>

#include "command.h"

namespace Gxf {

using namespace GxfTypes;
using Type = UmfPacket::GxfUserDataType;

namespace {

constexpr unsigned typeCount = 15; // without "unknown"

[[noreturn]] void isNoValue(Type type, std::string const& text, std::string const& wanted) {
    throw NotDone("'" + text + "' is no " + getName(type) + "; give " + wanted);
}

/// Least significant byte first.
template <typename Number> std::string bytesOf(Number number) {
    auto bits = static_cast<std::uint64_t>(number);
    std::string bytes;
    for (std::size_t i = 0; i < sizeof(Number); ++i) {
        bytes += static_cast<char>(bits >> (8 * i));
    }
    return bytes;
}

template <typename Number> std::optional<Number> numberOf(std::string const& text) {
    Number number{};
    char const* const end = text.data() + text.size();
    auto const [stop, error] = std::from_chars(text.data(), end, number);
    return error == std::errc() && stop == end ? std::optional(number) : std::nullopt;
}

template <typename Number> std::string wholeNumber(Type type, std::string const& text) {
    using Limits = std::numeric_limits<Number>;
    std::optional<Number> const number = numberOf<Number>(text);
    if (!number) {
        isNoValue(type, text,
                  "a whole number from " + std::to_string(Limits::min()) + " to " +
                      std::to_string(Limits::max()));
    }
    return bytesOf(*number);
}

template <typename Number, typename Bits> std::string fraction(Type type, std::string const& text) {
    std::optional<Number> const number = numberOf<Number>(text);
    if (!number) {
        isNoValue(type, text, "a number such as 0.5");
    }
    return bytesOf(std::bit_cast<Bits>(*number));
}

std::string truth(Type type, std::string const& text) {
    if (text != "true" && text != "false") {
        isNoValue(type, text, "true or false");
    }
    return bytesOf(static_cast<std::uint8_t>(text == "true"));
}

} // namespace

Type userDataTypeOf(std::string const& name) {
    for (unsigned i = 0; i < typeCount; ++i) {
        auto const type = static_cast<Type>(i);
        if (striCmp(name.c_str(), getName(type)) == 0) {
            return type;
        }
    }
    throw NotDone("there is no type '" + name + "'; choose from " + userDataTypeNames());
}

std::string userDataTypeNames() {
    std::string names;
    for (unsigned i = 0; i < typeCount; ++i) {
        names += std::string(i != 0 ? ", " : "") + getName(static_cast<Type>(i));
    }
    return names;
}

std::string valueOf(Type type, std::string const& text) {
    switch (type) {
    case userDataInt8:
        return wholeNumber<std::int8_t>(type, text);
    case userDataInt16:
        return wholeNumber<std::int16_t>(type, text);
    case userDataInt32:
        return wholeNumber<std::int32_t>(type, text);
    case userDataInt64:
        return wholeNumber<std::int64_t>(type, text);
    case userDataByte:
        return wholeNumber<std::uint8_t>(type, text);
    case userDataUint16:
        return wholeNumber<std::uint16_t>(type, text);
    case userDataUint32:
        return wholeNumber<std::uint32_t>(type, text);
    case userDataUint64:
        return wholeNumber<std::uint64_t>(type, text);
    case userDataFloat:
        return fraction<float, std::uint32_t>(type, text);
    case userDataDouble:
        return fraction<double, std::uint64_t>(type, text);
    case userDataBool:
        return truth(type, text);
    default:
        return text;
    }
}

} // namespace Gxf

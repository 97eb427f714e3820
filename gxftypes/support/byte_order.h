#pragma once

#include <bit>
#include <cstddef>
#include <cstdint>
#include <type_traits>
#include <utility>

namespace Zorvan {

// Numbers from and to bytes: most significant byte first (Msbf), or least (Lsbf). Byte by byte, so
// that neither the order nor the alignment of the machine matters. They are folds instead of loops,
// of which g++ too makes one instruction each.

namespace ByteOrder {

template <typename T> inline constexpr auto indices = std::make_index_sequence<sizeof(T)>();

template <typename T, std::size_t... I>
constexpr T loadMsbf(unsigned char const* from, std::index_sequence<I...>) {
    return static_cast<T>((... | (std::uint64_t{from[I]} << (8 * (sizeof(T) - 1 - I)))));
}

template <typename T, std::size_t... I>
constexpr T loadLsbf(unsigned char const* from, std::index_sequence<I...>) {
    return static_cast<T>((... | (std::uint64_t{from[I]} << (8 * I))));
}

template <typename T, std::size_t... I>
constexpr void storeMsbf(unsigned char* to, T value, std::index_sequence<I...>) {
    ((to[I] = static_cast<unsigned char>(value >> (8 * (sizeof(T) - 1 - I)))), ...);
}

template <typename T, std::size_t... I>
constexpr void storeLsbf(unsigned char* to, T value, std::index_sequence<I...>) {
    ((to[I] = static_cast<unsigned char>(value >> (8 * I))), ...);
}

} // namespace ByteOrder

template <typename T> constexpr T loadMsbf(unsigned char const* from) {
    return ByteOrder::loadMsbf<T>(from, ByteOrder::indices<T>);
}

template <typename T> constexpr T loadLsbf(unsigned char const* from) {
    if constexpr (std::is_same_v<T, double>) {
        return std::bit_cast<double>(loadLsbf<std::uint64_t>(from));
    } else {
        return ByteOrder::loadLsbf<T>(from, ByteOrder::indices<T>);
    }
}

template <typename T> constexpr void storeMsbf(unsigned char* to, T value) {
    ByteOrder::storeMsbf(to, value, ByteOrder::indices<T>);
}

template <typename T> constexpr void storeLsbf(unsigned char* to, T value) {
    if constexpr (std::is_same_v<T, double>) {
        storeLsbf(to, std::bit_cast<std::uint64_t>(value));
    } else {
        ByteOrder::storeLsbf(to, value, ByteOrder::indices<T>);
    }
}

} // namespace Zorvan

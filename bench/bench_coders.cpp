// The integer coders of GxfBuffer, one value at a time, against coders by hand on a raw pointer.

#include <bit>
#include <cstdint>
#include <utility>
#include <vector>

#include <bench/comparison.h>
#include <gxftypes/support/gxf_buffer.h>

using namespace GxfBench;
using Zorvan::GxfBuffer;
using Zorvan::MediaAgent;

namespace {

constexpr unsigned values = 1000;

/// Makes each value come into being by itself, in a register, and tells nothing of it.
template <typename T> void keep(T& value) { asm volatile("" : "+r"(value)); }
void keep(double& value) { asm volatile("" : "+x"(value)); }

enum class Order { msbf, lsbf };

/// One of the loads as anybody writes them: bytes, shifts and ors.
template <typename T, Order order> T loadByHand(unsigned char const* at) {
    constexpr bool msbf = order == Order::msbf;
    if constexpr (sizeof(T) == 1) {
        return at[0];
    } else if constexpr (sizeof(T) == 2) {
        return static_cast<T>(msbf ? at[0] << 8 | at[1] : at[1] << 8 | at[0]);
    } else if constexpr (sizeof(T) == 4) {
        std::uint32_t const a = at[0], b = at[1], c = at[2], d = at[3];
        return msbf ? a << 24 | b << 16 | c << 8 | d : d << 24 | c << 16 | b << 8 | a;
    } else {
        std::uint64_t const a = at[0], b = at[1], c = at[2], d = at[3];
        std::uint64_t const e = at[4], f = at[5], g = at[6], h = at[7];
        return std::bit_cast<T>(
            msbf ? a << 56 | b << 48 | c << 40 | d << 32 | e << 24 | f << 16 | g << 8 | h
                 : h << 56 | g << 48 | f << 40 | e << 32 | d << 24 | c << 16 | b << 8 | a);
    }
}

/// And one of the stores.
template <typename T, Order order> void storeByHand(unsigned char* at, T value) {
    constexpr int last = sizeof(T) - 1;
    auto const put = [&](int place) {
        at[order == Order::msbf ? last - place : place] =
            static_cast<unsigned char>(value >> (8 * place));
    };
    put(0);
    if constexpr (sizeof(T) >= 2) {
        put(1);
    }
    if constexpr (sizeof(T) >= 4) {
        put(2);
        put(3);
    }
    if constexpr (sizeof(T) == 8) {
        put(4);
        put(5);
        put(6);
        put(7);
    }
}

template <typename T, Order order> void decodeByHand(benchmark::State& state) {
    std::vector<unsigned char> const bytes(values * sizeof(T), 0x5A);
    for (auto _ : state) {
        unsigned char const* at = bytes.data();
        unsigned char const* end = at + bytes.size();
        keep(end);
        for (unsigned i = 0; i < values; ++i) {
            if (static_cast<std::size_t>(end - at) < sizeof(T)) {
                state.SkipWithError("the bytes don't last");
                break;
            }
            T value = loadByHand<T, order>(at);
            at += sizeof(T);
            keep(value);
        }
    }
}

template <typename T, Order order> void encodeByHand(benchmark::State& state) {
    std::vector<unsigned char> bytes(values * sizeof(T));
    for (auto _ : state) {
        unsigned char* at = bytes.data();
        unsigned char const* end = at + bytes.size();
        keep(end);
        for (unsigned i = 0; i < values; ++i) {
            T value = static_cast<T>(i);
            keep(value);
            if (static_cast<std::size_t>(end - at) < sizeof(T)) {
                state.SkipWithError("the room doesn't last");
                break;
            }
            storeByHand<T, order>(at, value);
            at += sizeof(T);
        }
        benchmark::ClobberMemory();
    }
}

template <auto decode> void decodeByBuffer(benchmark::State& state) {
    using T = decltype((std::declval<GxfBuffer&>().*decode)());
    std::vector<unsigned char> bytes(values * sizeof(T), 0x5A);
    for (auto _ : state) {
        auto size = static_cast<unsigned>(bytes.size());
        keep(size);
        GxfBuffer buffer(bytes.data(), size, GxfBuffer::DataState::filled, MediaAgent(nullptr));
        for (unsigned i = 0; i < values; ++i) {
            T value = (buffer.*decode)();
            keep(value);
        }
    }
}

template <typename T, Order order> void encodeByBuffer(benchmark::State& state) {
    std::vector<unsigned char> bytes(values * sizeof(T));
    for (auto _ : state) {
        auto size = static_cast<unsigned>(bytes.size());
        keep(size);
        GxfBuffer buffer(bytes.data(), size, GxfBuffer::DataState::empty, MediaAgent(nullptr));
        for (unsigned i = 0; i < values; ++i) {
            T value = static_cast<T>(i);
            keep(value);
            if (!(order == Order::msbf ? buffer.encode(value) : buffer.encodeLsbf(value))) {
                state.SkipWithError("the room doesn't last");
                break;
            }
        }
        benchmark::ClobberMemory();
    }
}

std::vector<Comparison> comparisons;

/// One coder of the buffer beside the one by hand.
void compare(std::string const& name, void (*byBuffer)(benchmark::State&),
             void (*byHand)(benchmark::State&)) {
    benchmark::RegisterBenchmark((name + "ByBuffer").c_str(), byBuffer);
    benchmark::RegisterBenchmark((name + "ByHand").c_str(), byHand);
    comparisons.push_back({name + ": GxfBuffer / by hand, time", Comparison::timeRatio,
                           name + "ByBuffer", name + "ByHand", "", 1.3});
}

template <typename T, auto decode, Order order> void compareDecoders(std::string const& name) {
    compare(name, &decodeByBuffer<decode>, &decodeByHand<T, order>);
}

template <typename T, Order order> void compareEncoders(std::string const& name) {
    compare(name, &encodeByBuffer<T, order>, &encodeByHand<T, order>);
}

} // namespace

int main(int argc, char** argv) {
    compareDecoders<std::uint8_t, &GxfBuffer::decodeUint8, Order::msbf>("decodeUint8");
    compareDecoders<std::uint16_t, &GxfBuffer::decodeUint16, Order::msbf>("decodeUint16");
    compareDecoders<std::uint32_t, &GxfBuffer::decodeUint32, Order::msbf>("decodeUint32");
    compareDecoders<std::uint64_t, &GxfBuffer::decodeUint64, Order::msbf>("decodeUint64");
    compareDecoders<std::uint16_t, &GxfBuffer::decodeUint16Lsbf, Order::lsbf>("decodeUint16Lsbf");
    compareDecoders<std::uint32_t, &GxfBuffer::decodeUint32Lsbf, Order::lsbf>("decodeUint32Lsbf");
    compareDecoders<double, &GxfBuffer::decodeFloat64Lsbf, Order::lsbf>("decodeFloat64Lsbf");
    compareEncoders<std::uint8_t, Order::msbf>("encode8");
    compareEncoders<std::uint16_t, Order::msbf>("encode16");
    compareEncoders<std::uint32_t, Order::msbf>("encode32");
    compareEncoders<std::uint64_t, Order::msbf>("encode64");
    compareEncoders<std::uint8_t, Order::lsbf>("encodeLsbf8");
    compareEncoders<std::uint16_t, Order::lsbf>("encodeLsbf16");
    compareEncoders<std::uint32_t, Order::lsbf>("encodeLsbf32");
    compareEncoders<std::uint64_t, Order::lsbf>("encodeLsbf64");
    return runAndCompare(argc, argv, comparisons);
}

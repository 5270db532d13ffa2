#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <type_traits>
#include <vector>

/// The octets of one input, read from the start. Octets beyond the end count as 0, so that every input is usable, even
/// a truncated one.
class Bytes {
public:
    Bytes(const std::uint8_t* data, std::size_t size) : _rest(data), _left(size) {}

    bool IsEmpty() const { return _left == 0; }

    std::uint8_t Byte() {
        if (_left == 0) return 0;
        --_left;
        return *_rest++;
    }

    /// 0 to count - 1; count is at most 256.
    unsigned Below(unsigned count) { return Byte() % count; }

    template <class Number>
    Number Take() {
        static_assert(std::is_trivially_copyable_v<Number>);
        std::uint8_t octets[sizeof(Number)];
        for (auto& octet : octets) octet = Byte();
        Number number;
        std::memcpy(&number, octets, sizeof number);
        return number;
    }

    /// The next `count` octets, even beyond the input's end.
    std::vector<std::uint8_t> Octets(std::size_t count) {
        std::vector<std::uint8_t> octets(count);
        for (auto& octet : octets) octet = Byte();
        return octets;
    }

    /// Mostly short lengths, and some up to a datagram's: 0 to 15, or a multiple of 100 up to 1500.
    std::size_t Length() {
        const std::size_t size = Byte();
        return size < 0xF0 ? size % 16 : (size - 0xF0) * 100;
    }

    std::string Rest() {
        std::string text(reinterpret_cast<const char*>(_rest), _left);
        _left = 0;
        return text;
    }

private:
    const std::uint8_t* _rest;
    std::size_t _left;
};

/// Aborts the process when a condition does not hold, so that the fuzzer keeps the input.
#define MUST(condition, ...)                                                         \
    do {                                                                             \
        if (!(condition)) {                                                          \
            std::fprintf(stderr, "%s:%d: not %s: ", __FILE__, __LINE__, #condition); \
            std::fprintf(stderr, __VA_ARGS__);                                       \
            std::fputc('\n', stderr);                                                \
            std::abort();                                                            \
        }                                                                            \
    } while (false)

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

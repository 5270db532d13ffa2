#pragma once

#include <array>
#include <cstdint>
#include <cstdio>

namespace bench {

/// Counts times in nanoseconds, in buckets that are at most 1/64 of their time wide.
class Histogram {
public:
    void Add(std::uint64_t nanoseconds) { ++_counts[Bucket(nanoseconds)]; }

    /// A JSON array of [the bucket's lower bound in nanoseconds, count], empty buckets left out.
    void Print(std::FILE* to) const {
        const char* separator = "";
        std::fputc('[', to);
        for (std::size_t i = 0; i < _counts.size(); ++i) {
            if (_counts[i] == 0) continue;
            std::fprintf(to, "%s[%llu,%llu]", separator, static_cast<unsigned long long>(LowerBound(i)),
                         static_cast<unsigned long long>(_counts[i]));
            separator = ",";
        }
        std::fputc(']', to);
    }

private:
    static constexpr unsigned kBits = 6;
    static constexpr std::size_t kSteps = std::size_t{1} << kBits;

    static std::size_t Bucket(std::uint64_t value) {
        if (value < kSteps) return value;
        const unsigned shift = 63U - static_cast<unsigned>(__builtin_clzll(value)) - kBits;
        return (shift + 1) * kSteps + static_cast<std::size_t>((value >> shift) - kSteps);
    }

    static std::uint64_t LowerBound(std::size_t bucket) {
        if (bucket < kSteps) return bucket;
        return (kSteps + bucket % kSteps) << (bucket / kSteps - 1);
    }

    std::array<std::uint64_t, (64 - kBits + 1) * kSteps> _counts{};
};

}  // namespace bench

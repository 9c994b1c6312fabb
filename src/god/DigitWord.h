// Digits by the word, and the numbers that few of them make.
#ifndef SYLVORA_GOD_DIGITWORD_H
#define SYLVORA_GOD_DIGITWORD_H

#include <cstdint>
#include <cstring>

namespace sylvora {

constexpr std::uint64_t kEachByte = 0x0101010101010101;
constexpr int kWord = 8;  // bytes

// The next eight characters less '0' each, the first in the lowest byte.
inline std::uint64_t LoadDigits(const char* first) {
    std::uint64_t word = 0;
    std::memcpy(&word, first, kWord);
    return word ^ ('0' * kEachByte);
}

// How many of them are digits before the first that is none. Adding 0x76 sets the highest bit of
// what is above 9; what it carries into later bytes does not matter.
inline int LeadingDigits(std::uint64_t word) {
    const std::uint64_t others = (word | (word + 0x76 * kEachByte)) & (0x80 * kEachByte);
    return others == 0 ? kWord : __builtin_ctzll(others) / 8;
}

// The number that the first `count` of them are, 0 for none: neighbours are joined three times.
inline std::uint64_t Join(std::uint64_t word, int count) {
    const int half = 4 * (kWord - count);  // a shift by 64 bits is not defined
    word = word << half << half;
    word = (word * (10 << 8 | 1)) >> 8 & 0x00FF00FF00FF00FF;
    word = (word * (100 << 16 | 1)) >> 16 & 0x0000FFFF0000FFFF;
    return (word * (std::uint64_t{10000} << 32 | 1)) >> 32;
}

// The integers up to this are doubles.
constexpr std::uint64_t kExact = std::uint64_t{1} << 53;

// `digits`, at most kExact, with `numFraction` of them behind the point: the quotient of two
// doubles that are exact is the nearest double (Clinger, "How to read floating point numbers
// accurately", 1990).
inline double Scaled(std::uint64_t digits, int numFraction, int fMinus) {
    // Signs are as good as random: no branch.
    static constexpr double kScales[2][17] = {
        {1e0, 1e1, 1e2, 1e3, 1e4, 1e5, 1e6, 1e7, 1e8, 1e9, 1e10, 1e11, 1e12, 1e13, 1e14, 1e15,
         1e16},
        {-1e0, -1e1, -1e2, -1e3, -1e4, -1e5, -1e6, -1e7, -1e8, -1e9, -1e10, -1e11, -1e12, -1e13,
         -1e14, -1e15, -1e16}};
    return static_cast<double>(static_cast<std::int64_t>(digits)) / kScales[fMinus][numFraction];
}

}  // namespace sylvora

#endif  // SYLVORA_GOD_DIGITWORD_H

// Parsing of up to eight digits at a time in a 64-bit word, and exact scaling of the result.
#ifndef SYLVORA_GOD_DIGITWORD_H
#define SYLVORA_GOD_DIGITWORD_H

#include <cstdint>
#include <cstring>

namespace sylvora {

constexpr std::uint64_t kEachByte = 0x0101010101010101;
constexpr int kWordSize = 8;  // characters of a word

// Loads eight characters, the first into the lowest byte, with '0' XORed out of each: digits become
// 0 to 9, all other characters more than 9.
inline std::uint64_t LoadDigits(const char* first) {
    std::uint64_t word = 0;
    std::memcpy(&word, first, kWordSize);
    return word ^ ('0' * kEachByte);
}

// The number of digits before the first byte above 9. Adding 0x76 sets the highest bit of such a
// byte. A carry can only reach bytes after the first of them, which do not matter.
inline int CountLeadingDigits(std::uint64_t word) {
    const std::uint64_t others = (word | (word + 0x76 * kEachByte)) & (0x80 * kEachByte);
    return others == 0 ? kWordSize : __builtin_ctzll(others) / 8;
}

// The value of the first `count` digits; 0 if there are none. Three multiplications combine
// neighbours: into numbers of two digits, then four, then eight.
inline std::uint64_t ParseDigits(std::uint64_t word, int count) {
    const int half = 4 * (kWordSize - count);  // a shift by 64 bits is not defined
    word = word << half << half;
    word = (word * (10 << 8 | 1)) >> 8 & 0x00FF00FF00FF00FF;
    word = (word * (100 << 16 | 1)) >> 16 & 0x0000FFFF0000FFFF;
    return (word * (std::uint64_t{10000} << 32 | 1)) >> 32;
}

// All integers up to this are exact as doubles.
constexpr std::uint64_t kMaxExact = std::uint64_t{1} << 53;

// `digits`, at most kMaxExact, with `numFraction` of them behind the point: the quotient of two
// doubles that are exact is the nearest double (Clinger, "How to read floating point numbers
// accurately", 1990).
inline double ScaleDigits(std::uint64_t digits, int numFraction, int fMinus) {
    // The sign selects a row: it is unpredictable, so a branch would be slow.
    static constexpr double kScales[2][17] = {
        {1e0, 1e1, 1e2, 1e3, 1e4, 1e5, 1e6, 1e7, 1e8, 1e9, 1e10, 1e11, 1e12, 1e13, 1e14, 1e15,
         1e16},
        {-1e0, -1e1, -1e2, -1e3, -1e4, -1e5, -1e6, -1e7, -1e8, -1e9, -1e10, -1e11, -1e12, -1e13,
         -1e14, -1e15, -1e16}};
    return static_cast<double>(static_cast<std::int64_t>(digits)) / kScales[fMinus][numFraction];
}

}  // namespace sylvora

#endif  // SYLVORA_GOD_DIGITWORD_H

// SIMD parsing of short id:value pairs, without a branch per character. Nearly all pairs in data
// files are short; the caller parses the others.
#ifndef SYLVORA_GOD_SHORTPAIR_H
#define SYLVORA_GOD_SHORTPAIR_H

#include <emmintrin.h>

#include <cstddef>
#include <cstdint>

#include "DigitWord.h"
#include "NumberParsing.h"

namespace sylvora {

// Bytes that must be readable, because whole vectors are loaded.
constexpr ptrdiff_t kPairWindow = 32;  // from the first character of a pair on
constexpr ptrdiff_t kBeforePair = 16;  // before the first character of a pair
constexpr ptrdiff_t kRealWindow = 17;  // before the end of a real

namespace shortpair {

constexpr int kMaxDigits = 16;

inline __m128i Load(const void* from) {
    return _mm_loadu_si128(static_cast<const __m128i*>(from));
}

// The highest bit of each of 16 bytes, the first in the lowest bit.
inline unsigned Mask(__m128i bytes) {
    return static_cast<unsigned>(_mm_movemask_epi8(bytes));
}

// A mask of the last `count` of 16 bytes.
inline __m128i LastBytes(ptrdiff_t count) {
    alignas(32) static constexpr unsigned char kBytes[32] = {
        0,   0,   0,   0,   0,   0,   0,   0,   0,   0,   0,   0,   0,   0,   0,   0,
        255, 255, 255, 255, 255, 255, 255, 255, 255, 255, 255, 255, 255, 255, 255, 255};
    return Load(kBytes + count);
}

// The value of 16 digits, each already 0 to 9. Combines neighbours into numbers of two digits, then
// four, eight and sixteen.
inline std::uint64_t ParseDigits(__m128i digits) {
    const __m128i twos = _mm_srli_epi16(_mm_mullo_epi16(digits, _mm_set1_epi16(10 << 8 | 1)), 8);
    const __m128i fours = _mm_madd_epi16(twos, _mm_set1_epi32(1 << 16 | 100));
    const __m128i eights =
        _mm_madd_epi16(_mm_packs_epi32(fours, fours), _mm_set1_epi32(1 << 16 | 10000));
    const std::uint64_t both = static_cast<std::uint64_t>(_mm_cvtsi128_si64(eights));
    return (both & 0xFFFFFFFF) * 100000000 + (both >> 32);
}

// Parses the `numDigits` digits before `last`, skipping the point before the last `numFraction` of
// them if fPoint is 1. Returns false if they are not all digits.
inline bool ParseAroundPoint(const char* last, ptrdiff_t numDigits, ptrdiff_t numFraction,
                             int fPoint, std::uint64_t& number) {
    // Close the gap of the point: take the digits before it one byte later.
    const __m128i whole = Load(last - 16 - fPoint);
    const __m128i text = _mm_xor_si128(
        whole, _mm_and_si128(_mm_xor_si128(whole, Load(last - 16)), LastBytes(numFraction)));
    const __m128i digits =
        _mm_and_si128(_mm_xor_si128(text, _mm_set1_epi8('0')), LastBytes(numDigits));
    // Adding 0x76 sets the highest bit of a byte above 9.
    if (_mm_movemask_epi8(_mm_adds_epu8(digits, _mm_set1_epi8(0x76))) != 0) return false;
    number = ParseDigits(digits);
    return true;
}

}  // namespace shortpair

// Converts the number in [first, last) if it has no exponent and at most 16 digits whose value as
// an integer is exact as a double. `point` is its first decimal point, or null. Returns false for
// other texts. Reads up to kRealWindow bytes before `last`.
inline bool ConvertShortReal(const char* first, const char* last, const char* point,
                             double& value) {
    const int fMinus = *first == '-' ? 1 : 0;
    const int fPoint = point != nullptr ? 1 : 0;
    const ptrdiff_t numDigits = last - first - fMinus - fPoint;
    const ptrdiff_t numFraction = point != nullptr ? last - point - 1 : 0;
    std::uint64_t digits = 0;
    if (numDigits > shortpair::kMaxDigits || numFraction >= numDigits ||
        !shortpair::ParseAroundPoint(last, numDigits, numFraction, fPoint, digits) ||
        digits > kMaxExact) {
        return false;
    }
    value = ScaleDigits(digits, static_cast<int>(numFraction), fMinus);
    return true;
}

// Converts the pair at `first` if it is short: an id of at most eight digits, a value that
// ConvertShortReal accepts, and white space within kPairWindow bytes. Returns the end of the pair,
// or null if it is not short.
inline const char* ConvertShortPair(const char* first, int& id, double& value) {
    const __m128i low = shortpair::Load(first);
    const __m128i high = shortpair::Load(first + 16);
    // The signed comparison also finds control characters and bytes above 127. No short pair
    // contains them, and only white space is accepted as its end.
    const __m128i behindBlank = _mm_set1_epi8(' ' + 1);
    const unsigned blanks = shortpair::Mask(_mm_cmplt_epi8(low, behindBlank)) |
                            shortpair::Mask(_mm_cmplt_epi8(high, behindBlank)) << 16;
    if (blanks == 0) return nullptr;
    const char* const last = first + __builtin_ctz(blanks);
    const unsigned points =
        shortpair::Mask(_mm_cmpeq_epi8(low, _mm_set1_epi8('.'))) & (blanks ^ (blanks - 1));
    const char* const point = points != 0 ? first + __builtin_ctz(points) : nullptr;

    const std::uint64_t word = LoadDigits(first);
    const int idDigits = CountLeadingDigits(word);
    if (idDigits == 0 || first[idDigits] != ':' || !IsSpace(*last) ||
        !ConvertShortReal(first + idDigits + 1, last, point, value)) {
        return nullptr;
    }
    id = static_cast<int>(ParseDigits(word, idDigits));
    return last;
}

}  // namespace sylvora

#endif  // SYLVORA_GOD_SHORTPAIR_H

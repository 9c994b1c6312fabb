// The pairs id:value that nearly all data lines are made of, taken without a branch per character.
#ifndef SYLVORA_GOD_SHORTPAIR_H
#define SYLVORA_GOD_SHORTPAIR_H

#include <emmintrin.h>

#include <cstddef>
#include <cstdint>

#include "DigitWord.h"
#include "NumberParsing.h"

namespace sylvora {

// Bytes that must be readable from a pair on, before it, and from the end of a real back.
constexpr ptrdiff_t kPairWindow = 32;
constexpr ptrdiff_t kBeforePair = 16;
constexpr ptrdiff_t kRealWindow = 17;

namespace shortpair {

constexpr int kMostDigits = 16;

inline __m128i Load(const void* from) {
    return _mm_loadu_si128(static_cast<const __m128i*>(from));
}

// Of 16 bytes, one bit each.
inline unsigned Mask(__m128i bytes) {
    return static_cast<unsigned>(_mm_movemask_epi8(bytes));
}

// Selects the last `count` of 16 bytes.
inline __m128i LastBytes(ptrdiff_t count) {
    alignas(32) static constexpr unsigned char kBytes[32] = {
        0,   0,   0,   0,   0,   0,   0,   0,   0,   0,   0,   0,   0,   0,   0,   0,
        255, 255, 255, 255, 255, 255, 255, 255, 255, 255, 255, 255, 255, 255, 255, 255};
    return Load(kBytes + count);
}

// The number that 16 digits are, less '0' each: neighbours are joined four times.
inline std::uint64_t Join(__m128i digits) {
    const __m128i twos = _mm_srli_epi16(_mm_mullo_epi16(digits, _mm_set1_epi16(10 << 8 | 1)), 8);
    const __m128i fours = _mm_madd_epi16(twos, _mm_set1_epi32(1 << 16 | 100));
    const __m128i eights =
        _mm_madd_epi16(_mm_packs_epi32(fours, fours), _mm_set1_epi32(1 << 16 | 10000));
    const std::uint64_t both = static_cast<std::uint64_t>(_mm_cvtsi128_si64(eights));
    return (both & 0xFFFFFFFF) * 100000000 + (both >> 32);
}

// The digits before `last`, of which `numFraction` stand behind a point, if there is one; false
// when they are something else.
inline bool JoinAround(const char* last, ptrdiff_t numDigits, ptrdiff_t numFraction, int fPoint,
                       std::uint64_t& number) {
    // The digits before the point move up to those behind it.
    const __m128i whole = Load(last - 16 - fPoint);
    const __m128i text = _mm_xor_si128(
        whole, _mm_and_si128(_mm_xor_si128(whole, Load(last - 16)), LastBytes(numFraction)));
    const __m128i digits =
        _mm_and_si128(_mm_xor_si128(text, _mm_set1_epi8('0')), LastBytes(numDigits));
    // What is above 9 gets its highest bit.
    if (_mm_movemask_epi8(_mm_adds_epu8(digits, _mm_set1_epi8(0x76))) != 0) return false;
    number = Join(digits);
    return true;
}

}  // namespace shortpair

// Converts the number from `first` to `last`, with the first point in it or null, if it has no
// exponent and up to 16 digits, which a double holds as an integer. Reads before it.
inline bool ConvertShortReal(const char* first, const char* last, const char* point,
                             double& value) {
    const int fMinus = *first == '-' ? 1 : 0;
    const int fPoint = point != nullptr ? 1 : 0;
    const ptrdiff_t numDigits = last - first - fMinus - fPoint;
    const ptrdiff_t numFraction = point != nullptr ? last - point - 1 : 0;
    std::uint64_t digits = 0;
    if (numDigits > shortpair::kMostDigits || numFraction >= numDigits ||
        !shortpair::JoinAround(last, numDigits, numFraction, fPoint, digits) || digits > kExact) {
        return false;
    }
    value = Scaled(digits, static_cast<int>(numFraction), fMinus);
    return true;
}

// Takes a pair that begins at `first` and ends before a blank: an id of up to eight digits, and a
// short real. Returns its end; null for others.
inline const char* ConvertShortPair(const char* first, int& id, double& value) {
    const __m128i low = shortpair::Load(first);
    const __m128i high = shortpair::Load(first + 16);
    // And other strange bytes, which are in no short pair either.
    const __m128i behindBlank = _mm_set1_epi8(' ' + 1);
    const unsigned blanks = shortpair::Mask(_mm_cmplt_epi8(low, behindBlank)) |
                            shortpair::Mask(_mm_cmplt_epi8(high, behindBlank)) << 16;
    if (blanks == 0) return nullptr;
    const char* const last = first + __builtin_ctz(blanks);
    const unsigned points =
        shortpair::Mask(_mm_cmpeq_epi8(low, _mm_set1_epi8('.'))) & (blanks ^ (blanks - 1));
    const char* const point = points != 0 ? first + __builtin_ctz(points) : nullptr;

    const std::uint64_t word = LoadDigits(first);
    const int idDigits = LeadingDigits(word);
    if (idDigits == 0 || first[idDigits] != ':' || !IsSpace(*last) ||
        !ConvertShortReal(first + idDigits + 1, last, point, value)) {
        return nullptr;
    }
    id = static_cast<int>(Join(word, idDigits));
    return last;
}

}  // namespace sylvora

#endif  // SYLVORA_GOD_SHORTPAIR_H

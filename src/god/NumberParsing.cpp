// The number syntax of god.h, and the conversion of texts that have it.
#include "NumberParsing.h"

#include <locale.h>

#include <algorithm>
#include <charconv>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>

#include "../god.h"
#include "DigitWord.h"

namespace sylvora {
namespace {

// Like LoadDigits, but reads nothing from `last` on: zero bytes take the place of the rest.
std::uint64_t LoadCharacters(const char* p, const char* last) {
    if (last - p >= kWordSize) return LoadDigits(p);
    char characters[kWordSize] = {};
    std::memcpy(characters, p, static_cast<size_t>(last - p));
    return LoadDigits(characters);
}

constexpr std::uint64_t kPowers[] = {1, 10, 100, 1000, 10000, 100000, 1000000, 10000000, 100000000};
constexpr long kMaxDigits = 19;  // any number of so many digits fits in 64 bits

// Converts a number without an exponent whose digits form an integer that is exact as a double.
// Returns its end, or null for other numbers. The text must begin with a digit, or a minus and a
// digit.
const char* ConvertFewDigits(const char* first, const char* last, double& result) {
    const int fMinus = *first == '-' ? 1 : 0;
    const char* p = first + fMinus;
    std::uint64_t digits = 0;
    const char* const lastWhole = p + std::min(last - p, kMaxDigits);
    for (; p != lastWhole && IsDigit(*p); ++p) {
        digits = digits * 10 + static_cast<std::uint64_t>(*p - '0');
    }
    int numFraction = 0;
    const long numWhole = p - first - fMinus;
    if (p != last && *p == '.') {
        ++p;
        std::uint64_t word = LoadCharacters(p, last);
        int count = CountLeadingDigits(word);
        if (count == kWordSize) {
            digits = digits * kPowers[kWordSize] + ParseDigits(word, kWordSize);
            p += kWordSize;
            numFraction = kWordSize;
            word = LoadCharacters(p, last);
            count = CountLeadingDigits(word);
        }
        digits = digits * kPowers[count] + ParseDigits(word, count);
        p += count;
        numFraction += count;
    }
    const bool fMore = p != last && (IsDigit(*p) || *p == '.' || *p == 'e' || *p == 'E');
    if (fMore || numWhole + numFraction > kMaxDigits || digits > kMaxExact) return nullptr;
    result = ScaleDigits(digits, numFraction, fMinus);
    return p;
}

// Whether `text` has the syntax of god.h. `maxPoints` is 0 for integers, 1 for reals.
bool HasNumberSyntax(std::string_view text, int maxPoints) {
    int numExponents = 0;
    int numPoints = 0;
    size_t exponentAt = 0;
    for (size_t p = 0; p < text.size(); ++p) {
        const char c = text[p];
        if (c == '-' || c == '+') {
            if (p != 0 && (numExponents == 0 || p != exponentAt + 1)) return false;
        } else if (c == 'e' || c == 'E') {
            if (p == 0) return false;
            exponentAt = p;
            ++numExponents;
        } else if (c == '.') {
            if (p == 0 || numExponents > 0) return false;
            ++numPoints;
        } else if (!IsDigit(c)) {
            return false;
        }
    }
    return numExponents <= 1 && numPoints <= maxPoints;
}

// strtod in the classic locale. Used where from_chars reports an overflow or underflow, because
// from_chars then gives no value.
double ConvertOutOfRange(std::string_view text) {
    static const locale_t classic = newlocale(LC_ALL_MASK, "C", nullptr);
    const std::string terminated(text);
    return strtod_l(terminated.c_str(), nullptr, classic);
}

double ConvertReal(std::string_view text) {
    std::string_view digits = text;
    if (digits.front() == '+') digits.remove_prefix(1);
    double value = 0.0;
    const auto end = std::from_chars(digits.data(), digits.data() + digits.size(), value);
    return end.ec == std::errc::result_out_of_range ? ConvertOutOfRange(text) : value;
}

}  // namespace

// from_chars accepts more than the syntax of god.h: "inf", "nan", a leading point. None of that
// begins with a digit, so the check of the first character excludes it.
const char* ConvertPlainReal(const char* first, const char* last, double& result) {
    const char* digit = first != last && *first == '-' ? first + 1 : first;
    if (digit == last || !IsDigit(*digit)) return nullptr;
    if (const char* end = ConvertFewDigits(first, last, result)) return end;
    const auto end = std::from_chars(first, last, result);
    return end.ec == std::errc() ? end.ptr : nullptr;
}

bool ParseNumber(std::string_view text, double& result) {
    double value = 0.0;
    const char* const last = text.data() + text.size();
    if (ConvertPlainReal(text.data(), last, value) == last && !text.empty()) {
        result = value;
        return true;
    }
    if (text.empty() || !HasNumberSyntax(text, 1)) return false;
    result = ConvertReal(text);
    return true;
}

bool ParseNumber(std::string_view text, float& result) {
    double value = 0.0;
    if (!ParseNumber(text, value)) return false;
    result = static_cast<float>(value);
    return true;
}

bool ParseNumber(std::string_view text, int& result) {
    if (!HasNumberSyntax(text, 0)) return false;
    constexpr size_t kShort = 9;  // characters: no overflow of an int
    long value = 0;
    if (text.size() <= kShort) {
        const bool fSigned = !text.empty() && !IsDigit(text.front());
        for (size_t p = fSigned ? 1 : 0; p < text.size() && IsDigit(text[p]); ++p) {
            value = value * 10 + (text[p] - '0');
        }
        if (fSigned && text.front() == '-') value = -value;
    } else {
        value = std::strtol(std::string(text).c_str(), nullptr, 10);
    }
    result = static_cast<int>(value);
    return true;
}

}  // namespace sylvora

bool TryStrToDouble(const char* in, double& result) {
    return sylvora::ParseNumber(in, result);
}
bool TryStrToFloat(const char* in, float& result) {
    return sylvora::ParseNumber(in, result);
}
bool TryStrToInt(const char* in, int& result) {
    return sylvora::ParseNumber(in, result);
}

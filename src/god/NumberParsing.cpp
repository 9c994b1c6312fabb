// The strict number syntax (see god.h) and the conversion of what passes it.
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

// As LoadDigits; after the end, zero bytes.
std::uint64_t LoadCharacters(const char* p, const char* last) {
    if (last - p >= kWord) return LoadDigits(p);
    char characters[kWord] = {};
    std::memcpy(characters, p, static_cast<size_t>(last - p));
    return LoadDigits(characters);
}

constexpr std::uint64_t kPowers[] = {1, 10, 100, 1000, 10000, 100000, 1000000, 10000000, 100000000};
constexpr long kMostDigits = 19;  // no 64 bits are too few for them

// Converts a number without an exponent whose digits are few enough for a double to hold them as
// an integer. Returns its end; null for other numbers. The text begins with a digit, or with a
// minus and a digit.
const char* ConvertFewDigits(const char* first, const char* last, double& result) {
    const int fMinus = *first == '-' ? 1 : 0;
    const char* p = first + fMinus;
    std::uint64_t digits = 0;
    const char* const lastWhole = p + std::min(last - p, kMostDigits);
    for (; p != lastWhole && IsDigit(*p); ++p) {
        digits = digits * 10 + static_cast<std::uint64_t>(*p - '0');
    }
    int numFraction = 0;
    const long numWhole = p - first - fMinus;
    if (p != last && *p == '.') {
        ++p;
        std::uint64_t word = LoadCharacters(p, last);
        int count = LeadingDigits(word);
        if (count == kWord) {
            digits = digits * kPowers[kWord] + Join(word, kWord);
            p += kWord;
            numFraction = kWord;
            word = LoadCharacters(p, last);
            count = LeadingDigits(word);
        }
        digits = digits * kPowers[count] + Join(word, count);
        p += count;
        numFraction += count;
    }
    const bool fMore = p != last && (IsDigit(*p) || *p == '.' || *p == 'e' || *p == 'E');
    if (fMore || numWhole + numFraction > kMostDigits || digits > kExact) return nullptr;
    result = Scaled(digits, numFraction, fMinus);
    return p;
}

// One scan for all forms; `maxPoints` is 0 for integers, 1 for reals.
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

// strtod, but always with a decimal point; from_chars leaves out-of-range values to it.
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

// A digit in front keeps from_chars from all that the strict syntax forbids: names, a leading
// point, hexadecimal.
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
    constexpr size_t kShort = 9;  // digits that cannot leave the range
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

// The strict number syntax (see god.h) and the conversion of what passes it.
#include "NumberParsing.h"

#include <locale.h>

#include <charconv>
#include <cstdlib>
#include <string>

#include "../god.h"

namespace sylvora {
namespace {

bool IsDigit(char c) {
    return c >= '0' && c <= '9';
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

bool ParseNumber(std::string_view text, double& result) {
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

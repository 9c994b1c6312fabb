// Numbers rounded to the significant digits of a model file.
#ifndef SYLVORA_TREELEARNER_ROUNDEDNUMBER_H
#define SYLVORA_TREELEARNER_ROUNDEDNUMBER_H

#include <charconv>
#include <system_error>

#include "../god/Report.h"

namespace sylvora {

constexpr int kFewDigits = 6;
constexpr int kAllDigits = 17;

// Refuses a number of significant digits that model files do not have. Returns 0, or -1 after a
// message.
[[nodiscard]] inline int CheckDigits(int digits) {
    if (digits == kFewDigits || digits == kAllDigits) return 0;
    return Fail("ERROR: Illegal digits: ", digits, ", it must be 6 or 17!\n");
}

// The value that is read back after `value` was written with `digits` significant digits. With 17
// that is `value` itself, bit for bit. Infinities and NaN do not change.
inline double RoundToDigits(double value, int digits) {
    char text[64];
    const auto written =
        std::to_chars(text, text + sizeof text, value, std::chars_format::general, digits);
    double read = value;
    const auto parsed = std::from_chars(text, written.ptr, read);
    return parsed.ec == std::errc() ? read : value;
}

}  // namespace sylvora

#endif  // SYLVORA_TREELEARNER_ROUNDEDNUMBER_H

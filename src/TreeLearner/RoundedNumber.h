// Numbers as a text with few digits gives them back.
#ifndef SYLVORA_TREELEARNER_ROUNDEDNUMBER_H
#define SYLVORA_TREELEARNER_ROUNDEDNUMBER_H

#include <charconv>
#include <system_error>

namespace sylvora {

// The value that is read where `value` was written with so many significant digits; with 17, the
// value itself. Infinities and NaN stay what they are.
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

// Number parsing on parts of a longer text that need not end with a zero byte. Safe to call from
// any thread.
#ifndef SYLVORA_GOD_NUMBERPARSING_H
#define SYLVORA_GOD_NUMBERPARSING_H

#include <string_view>

namespace sylvora {

inline bool IsDigit(char c) {
    return c >= '0' && c <= '9';
}
inline bool IsSpace(char c) {
    return c == ' ' || (c >= '\t' && c <= '\r');
}

// Like TryStrToDouble, TryStrToFloat and TryStrToInt (god.h), on the whole of `text`. A text with
// an embedded zero byte is refused.
[[nodiscard]] bool ParseNumber(std::string_view text, double& result);
[[nodiscard]] bool ParseNumber(std::string_view text, float& result);
[[nodiscard]] bool ParseNumber(std::string_view text, int& result);

// The fast path of ParseNumber. Converts the number at the start of [first, last) and returns its
// end. Returns null for a number that does not begin with a digit, or a minus and a digit, and for
// one that is out of range. What it accepts has the syntax of god.h; any text may follow it.
[[nodiscard]] const char* ConvertPlainReal(const char* first, const char* last, double& result);

}  // namespace sylvora

#endif  // SYLVORA_GOD_NUMBERPARSING_H

// Number parsing on pieces of a longer text, for readers that do not own a terminated string.
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

// As TryStrToDouble, TryStrToFloat and TryStrToInt, on the whole of `text`; an embedded zero byte
// is no digit and rejects it.
[[nodiscard]] bool ParseNumber(std::string_view text, double& result);
[[nodiscard]] bool ParseNumber(std::string_view text, float& result);
[[nodiscard]] bool ParseNumber(std::string_view text, int& result);

// Converts the number at the start of the text from `first` to `last` and returns its end, or null
// if it is none of the usual: one that begins with a digit, or with a minus and a digit, and is in
// the range of a double. What it takes has the strict syntax, whatever follows.
[[nodiscard]] const char* ConvertPlainReal(const char* first, const char* last, double& result);

}  // namespace sylvora

#endif  // SYLVORA_GOD_NUMBERPARSING_H

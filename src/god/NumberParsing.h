// Number parsing on pieces of a longer text, for readers that do not own a terminated string.
#ifndef SYLVORA_GOD_NUMBERPARSING_H
#define SYLVORA_GOD_NUMBERPARSING_H

#include <string_view>

namespace sylvora {

// As TryStrToDouble, TryStrToFloat and TryStrToInt, on the whole of `text`; an embedded zero byte
// is no digit and rejects it.
[[nodiscard]] bool ParseNumber(std::string_view text, double& result);
[[nodiscard]] bool ParseNumber(std::string_view text, float& result);
[[nodiscard]] bool ParseNumber(std::string_view text, int& result);

}  // namespace sylvora

#endif  // SYLVORA_GOD_NUMBERPARSING_H

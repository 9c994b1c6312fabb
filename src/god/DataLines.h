// Data lines (see god.h for the grammar) for readers that go through large texts: views into the
// line instead of strings, and faults that are not reported where they are met.
#ifndef SYLVORA_GOD_DATALINES_H
#define SYLVORA_GOD_DATALINES_H

#include <string_view>

namespace sylvora {

// The value of an id that a line leaves out.
constexpr double kMissing = -2147483648.0;

// What a line says beside its values; the views point into the line.
struct LineHead {
    std::string_view label;  // unchecked
    std::string_view queryId;
    std::string_view rest;  // what is behind as many pairs as were wanted, unread
    int numPairs = 0;
    int largestId = 0;  // of the pairs; 0: there are none
};

// As read_sparse_line that stores its pairs, but silent: -1 says that it would have complained.
// `text` holds the line, which a line feed or the end of the text ends; it may be read anywhere,
// which is faster than to look for the end of the line all the time.
[[nodiscard]] int ParseSparseLine(std::string_view line, std::string_view text, int dim,
                                  double* row, LineHead& head);

// As ParseNumber on a token of a text.
[[nodiscard]] bool ParseNumberIn(std::string_view text, std::string_view token, double& result);

// False where a line surely has no feature id above `largest`: a quick look.
[[nodiscard]] bool MayHaveLargerId(std::string_view line, int largest);

// The largest feature id of a line, 0 where it has none. Looks at all tokens up to a short one,
// which ends the line, or a wrong one.
[[nodiscard]] int LargestFeatureId(std::string_view line);

}  // namespace sylvora

#endif  // SYLVORA_GOD_DATALINES_H

// Data lines (see god.h for the grammar) for readers that go through large texts: views into the
// line instead of strings, and faults that are not reported where they are met.
#ifndef SYLVORA_GOD_DATALINES_H
#define SYLVORA_GOD_DATALINES_H

#include <string_view>

namespace sylvora {

// What a line says beside its values; the views point into the line.
struct LineHead {
    std::string_view label;  // unchecked
    std::string_view queryId;
    int numPairs = 0;
};

// As read_sparse_line that stores its pairs, but silent: -1 says that it would have complained.
[[nodiscard]] int ParseSparseLine(std::string_view line, int dim, double* row, LineHead& head);

// False where a line surely has no feature id above `largest`: a quick look.
[[nodiscard]] bool MayHaveLargerId(std::string_view line, int largest);

// The largest feature id of a line, 0 where it has none. Looks at all tokens up to a short one,
// which ends the line, or a wrong one.
[[nodiscard]] int LargestFeatureId(std::string_view line);

}  // namespace sylvora

#endif  // SYLVORA_GOD_DATALINES_H

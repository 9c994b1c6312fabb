// Allocation and release of the learner's arrays. Its public members are plain C arrays, from
// malloc or calloc, so that programs can pass them on.
#ifndef SYLVORA_TREELEARNER_ARRAYS_H
#define SYLVORA_TREELEARNER_ARRAYS_H

#include <cstddef>
#include <cstdlib>
#include <new>

#include "../god/Report.h"
#include "base/LargeArray.h"

namespace sylvora {

// Frees `array` and replaces it by `count` elements of 0, at least one. The caller owns it. Returns
// 0, or -1 after a message with `name` in it; `array` is then null.
template <typename Element>
[[nodiscard]] int AllocateArray(Element*& array, int count, const char* name) {
    std::free(array);
    const size_t numElements = count > 0 ? static_cast<size_t>(count) : 1;
    array = static_cast<Element*>(std::calloc(numElements, sizeof(Element)));
    if (array != nullptr) {
        RequestLargePages(array, numElements * sizeof(Element));
        return 0;
    }
    return Fail("ERROR: Failed to allocate memory when ", name, "!\n");
}

// Frees `array`, which may be null, and makes it null.
template <typename Element>
void FreeArray(Element*& array) {
    std::free(array);
    array = nullptr;
}

// Frees a table of `count` rows and the rows, of which any may be null; the table may be, too.
inline void FreeRows(double**& rows, int count) {
    for (int i = 0; rows != nullptr && i < count; ++i) std::free(rows[i]);
    FreeArray(rows);
}

}  // namespace sylvora

#endif  // SYLVORA_TREELEARNER_ARRAYS_H

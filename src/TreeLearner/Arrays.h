// The learner's flat arrays: its public members are C arrays, so that they can be handed around as
// they are; allocation and release go through here.
#ifndef SYLVORA_TREELEARNER_ARRAYS_H
#define SYLVORA_TREELEARNER_ARRAYS_H

#include <cstddef>
#include <cstdlib>
#include <new>

#include "../god/Report.h"
#include "base/LargeArray.h"

namespace sylvora {

// Replaces `array` by `count` zeroed elements; 0, or -1 with a message that names the array.
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

template <typename Element>
void FreeArray(Element*& array) {
    std::free(array);
    array = nullptr;
}

// Frees a table of `count` rows.
inline void FreeRows(double**& rows, int count) {
    for (int i = 0; rows != nullptr && i < count; ++i) std::free(rows[i]);
    FreeArray(rows);
}

}  // namespace sylvora

#endif  // SYLVORA_TREELEARNER_ARRAYS_H

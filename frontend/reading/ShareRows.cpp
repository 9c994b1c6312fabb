// Reads and frees the rows of a share; see ShareRows.h.
#include "ShareRows.h"

#include <malloc.h>

#include <algorithm>
#include <cstdlib>

namespace sylvora::frontend {

void ShareRows::Read(int begin, int end, double* values) {
    const size_t width = static_cast<size_t>(set.dimFea);
    for (int row = begin; row < end; ++row, values += width) {
        std::copy_n(set.rowVV[static_cast<size_t>(row)], width, values);
    }
}

// Without malloc_trim the C library would keep freed rows, so that they and the columns that they
// become would be in memory at the same time.
void ShareRows::Release(int end) {
    constexpr size_t kTrimBytes = size_t{1} << 23;
    for (; numReleased < end; ++numReleased) {
        double*& row = set.rowVV[static_cast<size_t>(numReleased)];
        std::free(row);
        row = nullptr;
        numBytesFreed += static_cast<size_t>(set.dimFea) * sizeof(double);
    }
    if (numBytesFreed < kTrimBytes && end < NumRows()) return;
    malloc_trim(0);
    numBytesFreed = 0;
}

}  // namespace sylvora::frontend

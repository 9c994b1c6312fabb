// Transposes row-major codes to columns.
#ifndef SYLVORA_ENGINE_TRAIN_HISTOGRAM_CODETILE_H
#define SYLVORA_ENGINE_TRAIN_HISTOGRAM_CODETILE_H

#include <cstddef>
#include <cstdint>
#include <vector>

#include "BinnedColumns.h"

namespace sylvora {
namespace engine {

// The codes of a block of rows, column by column. Not thread-safe.
template <typename Code>
class CodeTile {
  public:
    // For at most `blockRows` rows, a multiple of eight, of `codes`, which must outlive the tile.
    CodeTile(const RowCodes<Code>& codes, int blockRows);

    // Takes over the codes of the rows rowV[0], rowV[1], ...
    void Load(const int* rowV, int count);
    // The codes of the loaded rows at a position of the row codes. Up to seven more may be read.
    const Code* At(int position) const {
        return tileV.data() + static_cast<size_t>(position) * tileStride;
    }

  private:
    const RowCodes<Code>& rows;
    // Codes from one column to the next; no power of two, which would map all columns to the same
    // cache sets.
    const size_t tileStride;
    std::vector<Code> tileV;
};

extern template class CodeTile<uint8_t>;
extern template class CodeTile<uint16_t>;

}  // namespace engine
}  // namespace sylvora

#endif  // SYLVORA_ENGINE_TRAIN_HISTOGRAM_CODETILE_H

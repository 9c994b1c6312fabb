// Views of a node's rows. They own nothing.
#ifndef SYLVORA_ENGINE_TRAIN_ROWSETS_H
#define SYLVORA_ENGINE_TRAIN_ROWSETS_H

#include <cstddef>

#include "FixedPoint.h"
#include "base/Gather.h"

namespace sylvora {
namespace engine {

// A node's rows in the reference implementation's order. Gradients and weights (null: all 1) run
// parallel to rowV.
struct RowSlice {
    const int* rowV;
    const double* gradV;
    const int* weightV;
    int count;
};

// A node's rows in any order, for histograms and searches. gradV and weightV (null: all 1) are
// indexed by row of the data. ownGradV and ownWeightV, where not null, hold the same values
// parallel to rowV, so that no gather is needed.
struct RowSet {
    const int* rowV;
    int count;
    const double* gradV;
    const int* weightV;
    const double* ownGradV = nullptr;
    const int* ownWeightV = nullptr;

    Cell CellOf(int row, const FixedPoint& fixed) const {
        const size_t at = static_cast<size_t>(row);
        return fixed.ToCell(gradV[at], weightV != nullptr ? weightV[at] : 1);
    }
    // Converts `num` rows of the data, which need not belong to this set.
    void CellsOf(const int* someRowV, int num, const FixedPoint& fixed, Cell* cells) const {
        constexpr int kBlock = 256;
        double blockGradV[kBlock];
        int blockWeightV[kBlock];
        for (int begin = 0, length; begin < num; begin += length) {
            length = num - begin < kBlock ? num - begin : kBlock;
            Gather(gradV, someRowV + begin, length, blockGradV);
            if (weightV != nullptr) Gather(weightV, someRowV + begin, length, blockWeightV);
            fixed.ToCells(blockGradV, weightV != nullptr ? blockWeightV : nullptr, length,
                          cells + begin);
        }
    }
};

}  // namespace engine
}  // namespace sylvora

#endif  // SYLVORA_ENGINE_TRAIN_ROWSETS_H

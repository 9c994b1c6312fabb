// The rows of a node, as those see them who look at them.
#ifndef SYLVORA_ENGINE_TRAIN_ROWSETS_H
#define SYLVORA_ENGINE_TRAIN_ROWSETS_H

#include <cstddef>

#include "FixedPoint.h"
#include "base/Gather.h"

namespace sylvora {
namespace engine {

// For the plain form: its own order, gradients and weights (null: all 1) alongside.
struct RowSlice {
    const int* rowV;
    const double* gradV;
    const int* weightV;
    int count;
};

// For histograms and searches: any order, gradients and weights (null: all 1) by row of the data;
// perhaps also the rows' own alongside (null: without).
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
    // Those of `num` rows that need not be the set's.
    void CellsOf(const int* someRowV, int num, const FixedPoint& fixed, Cell* cells) const {
        constexpr int kBlock = 256;
        double blockGradV[kBlock];
        int blockWeightV[kBlock];
        for (int begin = 0; begin < num; begin += kBlock) {
            const int length = num - begin < kBlock ? num - begin : kBlock;
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

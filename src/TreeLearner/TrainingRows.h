// The training rows of a learner, whether they were copied or are borrowed.
#ifndef SYLVORA_TREELEARNER_TRAININGROWS_H
#define SYLVORA_TREELEARNER_TRAININGROWS_H

#include <vector>

#include "../DataSet/CodedData.h"
#include "../TreeLearner.h"
#include "base/LargeArray.h"
#include "engine/train/Matrix.h"

namespace sylvora {

// Valid as long as the learner has its training data.
inline engine::Matrix TrainingRows(const TreeLearner& learner) {
    const DataSet* const borrowed = learner.BorrowedData();
    return borrowed != nullptr
               ? borrowed->Shared()->Values()
               : engine::Matrix(learner.featureVV, learner.sampleSize, learner.dimFea);
}

// A copy of borrowed rows, for code that needs an array of rows. Throws std::bad_alloc.
class RowCopy {
  public:
    explicit RowCopy(const engine::Matrix& matrix)
        : valueV(static_cast<size_t>(matrix.NumRows()) * static_cast<size_t>(matrix.NumColumns())) {
        for (int row = 0; row < matrix.NumRows(); ++row) {
            rowV.push_back(valueV.data() + rowV.size() * static_cast<size_t>(matrix.NumColumns()));
            matrix.ReadRow(row, rowV.back());
        }
    }

    double** Rows() { return rowV.data(); }

  private:
    LargeArray<double> valueV;
    std::vector<double*> rowV;
};

}  // namespace sylvora

#endif  // SYLVORA_TREELEARNER_TRAININGROWS_H

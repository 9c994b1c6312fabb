// What the engine makes of a data set, once for all trainings.
#ifndef SYLVORA_DATASET_CODEDDATA_H
#define SYLVORA_DATASET_CODEDDATA_H

#include <memory>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "base/WorkerPool.h"
#include "engine/train/Matrix.h"
#include "engine/train/Tuning.h"
#include "engine/train/histogram/BinnedColumns.h"
#include "engine/train/lists/ColumnOrders.h"

namespace sylvora {

// The "mean" of a column after one more of its `numRows` values. Deliberately divided after every
// value, not once at the end: existing models have it that way. The order of rows is part of the
// result.
inline double NextMean(double mean, double value, int numRows) {
    return (mean + value) / numRows;
}

// The means of all columns, or why there are none, as a sentence.
struct ColumnMeans {
    std::vector<double> meanV;
    std::string fault;
    // Columns with missing values and values below kMissingValue.
    std::vector<int> belowMissingV;
};

// Codes are made by the first training that asks for them, with the workers of its pool; others
// that need the same meanwhile wait. Thread-safe.
class CodedData {
  public:
    explicit CodedData(const engine::Matrix& matrix) : values(matrix) {}
    // Some rows of `whole`, whose codes are used: (*rowV)[0], (*rowV)[1], ... of it. `matrix` has
    // the same rows.
    CodedData(std::shared_ptr<const CodedData> wholeData,
              std::shared_ptr<const std::vector<int>> rowV, const engine::Matrix& matrix)
        : values(matrix), whole(std::move(wholeData)), rowsOfWholeV(std::move(rowV)) {}

    const engine::Matrix& Values() const { return values; }
    // The codes for histograms, and the orders in one of their forms. Throws std::bad_alloc.
    std::shared_ptr<const engine::BinnedColumns> Binned(const engine::Tuning& tuning,
                                                        WorkerPool& pool) const;
    std::shared_ptr<const engine::ColumnOrders> Orders(engine::ColumnOrders::Form form,
                                                       WorkerPool& pool) const;
    // A value that is infinite, or a mean that overflows, is a fault: no model could be written
    // with it. Throws std::bad_alloc.
    std::shared_ptr<const ColumnMeans> Means() const;

  private:
    static ColumnMeans MeansOf(const engine::Matrix& matrix);

    const engine::Matrix values;
    const std::shared_ptr<const CodedData> whole;  // null: this is no subset
    const std::shared_ptr<const std::vector<int>> rowsOfWholeV;
    mutable std::mutex mutex;  // guards what is made on demand
    mutable std::shared_ptr<const ColumnMeans> means;
    mutable std::shared_ptr<const engine::BinnedColumns> binned;
    mutable std::shared_ptr<const engine::ColumnOrders> lists, ranks;
};

}  // namespace sylvora

#endif  // SYLVORA_DATASET_CODEDDATA_H

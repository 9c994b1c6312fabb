// Training data that are coded once and used for many trainings.
#ifndef SYLVORA_DATASET_H
#define SYLVORA_DATASET_H

#include <memory>

#include "DataBlock.h"
#include "Libdef.h"

namespace sylvora {
class CodedData;

// A borrowed block and what the engine codes from it: about 5 bytes per cell for boosting, 4 for
// forests and classification. A code is made when the first training needs it and kept until the
// set is freed. The caller keeps the block's memory, which must stay valid and unchanged until
// then: thresholds are computed from the values themselves. If it is freed earlier, the behaviour
// is undefined.
//
// Thread safety: any number of trainings may use a set at the same time.
class SYLVORA_API DataSet {
  public:
    // Checks the block: null pointers, sizes (1 to 2^31 - 9 rows, at least one column), strides,
    // sparse indices, and refused values. Returns null after a message that names row and column,
    // counted from 0. Takes O(1) time for dense blocks and columns if no value is refused.
    [[nodiscard]] static std::shared_ptr<const DataSet> Make(const DataBlock& block);
    ~DataSet();
    DataSet(const DataSet&) = delete;
    DataSet& operator=(const DataSet&) = delete;

    // The rows rows[0, numRows) of `whole`, in this order, as a set of its own that shares the
    // values and takes its codes from those of `whole`, without sorting. Rows may occur more than
    // once. `rows` is copied. A training on it gives the bytes of a training on these rows alone.
    // Returns null after a message, also for a row that does not exist.
    [[nodiscard]] static std::shared_ptr<const DataSet> Subset(
        const std::shared_ptr<const DataSet>& whole, const int* rows, int numRows);

    int NumRows() const;
    int NumColumns() const;

    // For the library's own use.
    const std::shared_ptr<const CodedData>& Shared() const { return coded; }

  private:
    explicit DataSet(std::shared_ptr<const CodedData> data);

    std::shared_ptr<const CodedData> coded;
};

}  // namespace sylvora

#endif  // SYLVORA_DATASET_H

// The columns that a rank of a training owns, gathered from the rows that the ranks have. See
// docs/scale-out.md.
#ifndef SYLVORA_OWNCOLUMNS_H
#define SYLVORA_OWNCOLUMNS_H

#include <memory>
#include <string>
#include <vector>

#include "Communicator.h"
#include "DataBlock.h"
#include "Libdef.h"

namespace sylvora {
class RowSource;

// What a rank has for each row of its share beside the values. Null: nothing. A rank without rows
// may leave out anything; the others must agree about what they have.
struct RowTargets {
    const double* labels = nullptr;
    const int* queries = nullptr;
    const int* weights = nullptr;
};

// The rows of rank 0 come first, then those of rank 1, and so on. Each rank gets the values of the
// columns that it owns, of all rows, and what belongs to the rows at all ranks. No rank holds all
// values at any time: beside its share and its columns, it needs about 20 MB and 300 bytes per
// column.
//
// Immutable and thread-safe. Owns its memory: 4 bytes per cell of an own column if all values of
// the column are floats, else 8.
class SYLVORA_API OwnColumns {
  public:
    // Collective. `share` has the rows of this rank, of which there may be none; it is only read
    // during the call. Its values are read by the rules of the block: a missing value is
    // kMissingValue afterwards. The columns are dealt out by what a training with them costs.
    //
    // Returns null at all ranks after the same message at each: if the block of a rank cannot be
    // used, if the ranks have unlike numbers of columns, or no rows, or more than a data set may
    // have, if a value is refused or infinite (the message has its row in the whole), or if a rank
    // has no memory. A rank whose exchange fails returns null, too, after a message of its own.
    [[nodiscard]] static std::unique_ptr<OwnColumns> Gather(const DataBlock& share,
                                                            const RowTargets& targets,
                                                            Communicator& communicator);
    // The same with rows that are no block, for Sylvora's own use. Writes no message: returns null
    // and sets `complaint`, the same at all ranks. Throws RanksLost and std::bad_alloc.
    [[nodiscard]] static std::unique_ptr<OwnColumns> Gather(RowSource& share,
                                                            const RowTargets& targets,
                                                            Communicator& communicator,
                                                            std::string& complaint);
    ~OwnColumns();
    OwnColumns(const OwnColumns&) = delete;
    OwnColumns& operator=(const OwnColumns&) = delete;

    // The rows of all ranks.
    int NumRows() const { return numRows; }
    // The rank that owns each column; the same at all ranks.
    const std::vector<int>& Owners() const { return ownerV; }
    // All rows and columns; a column of another rank has only zeros. Valid as long as this object.
    DataBlock Block() const;
    // Of all rows; empty if the ranks had none.
    const std::vector<double>& Labels() const { return labelV; }
    const std::vector<int>& Queries() const { return queryV; }
    const std::vector<int>& Weights() const { return weightV; }

  private:
    class Gathering;
    OwnColumns() = default;

    int numRows = 0;
    std::vector<int> ownerV;
    void* memory = nullptr;  // the own columns, then a column of zeros
    std::vector<DataColumn> columnV;
    std::vector<double> labelV;
    std::vector<int> queryV, weightV;
};

}  // namespace sylvora

#endif  // SYLVORA_OWNCOLUMNS_H

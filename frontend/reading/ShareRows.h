// The rows that a rank has read, on their way to the owners of their columns.
#ifndef SYLVORA_FRONTEND_READING_SHAREROWS_H
#define SYLVORA_FRONTEND_READING_SHAREROWS_H

#include "DataSet.h"
#include "OwnColumns/RowSource.h"

namespace sylvora::frontend {

// Frees the rows of a set as they are released.
class ShareRows : public RowSource {
  public:
    explicit ShareRows(DataSet& dataSet) : set(dataSet) {}

    int NumRows() const override { return static_cast<int>(set.NumRows()); }
    int NumColumns() const override { return set.dimFea; }
    void Read(int begin, int end, double* values) override;
    void Release(int end) override;

  private:
    DataSet& set;
    int numReleased = 0;       // rows
    size_t numBytesFreed = 0;  // since memory was given back to the system
};

}  // namespace sylvora::frontend

#endif  // SYLVORA_FRONTEND_READING_SHAREROWS_H

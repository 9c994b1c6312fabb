// The rows of a borrowed block.
#ifndef SYLVORA_OWNCOLUMNS_BLOCKSOURCE_H
#define SYLVORA_OWNCOLUMNS_BLOCKSOURCE_H

#include "RowSource.h"
#include "base/BlockReader.h"

namespace sylvora {

// The block must have no fault.
class BlockSource : public RowSource {
  public:
    explicit BlockSource(const DataBlock& block)
        : reader(block),
          fNanRefused(!block.fNanMissing),
          fInfiniteRefused(block.fInfiniteRefused) {}

    int NumRows() const override { return reader.NumRows(); }
    int NumColumns() const override { return reader.NumColumns(); }
    void Read(int begin, int end, double* values) override {
        reader.ReadRows(begin, end, NumColumns(), values);
    }
    bool IsNanRefused() const override { return fNanRefused; }
    bool IsInfiniteRefused() const override { return fInfiniteRefused; }

  private:
    const BlockReader reader;
    const bool fNanRefused, fInfiniteRefused;
};

}  // namespace sylvora

#endif  // SYLVORA_OWNCOLUMNS_BLOCKSOURCE_H

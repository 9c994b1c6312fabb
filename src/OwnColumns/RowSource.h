// Where the rows of a rank come from.
#ifndef SYLVORA_OWNCOLUMNS_ROWSOURCE_H
#define SYLVORA_OWNCOLUMNS_ROWSOURCE_H

namespace sylvora {

// The share of a rank. Rows are read twice in ascending order: once to look at the values, once to
// send them. Used by one thread.
class RowSource {
  public:
    virtual ~RowSource() = default;

    virtual int NumRows() const = 0;
    virtual int NumColumns() const = 0;
    // Writes the rows [begin, end) to `values`, row by row. Must not throw.
    virtual void Read(int begin, int end, double* values) = 0;
    // The rows before `end` will not be read again.
    virtual void Release(int /*end*/) {}
    // Whether a NaN or an infinite value is refused like a DataBlock does. Training needs finite
    // values in any case; this only chooses between two messages.
    virtual bool IsNanRefused() const { return true; }
    virtual bool IsInfiniteRefused() const { return false; }
};

}  // namespace sylvora

#endif  // SYLVORA_OWNCOLUMNS_ROWSOURCE_H

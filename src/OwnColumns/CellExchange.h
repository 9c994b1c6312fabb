// Sends the values of each rank's rows to the owners of their columns.
#ifndef SYLVORA_OWNCOLUMNS_CELLEXCHANGE_H
#define SYLVORA_OWNCOLUMNS_CELLEXCHANGE_H

#include <cstddef>
#include <vector>

#include "Communicator.h"
#include "RowSource.h"

namespace sylvora {

// What all ranks know before the exchange.
struct CellPlan {
    std::vector<int> numRowsV;  // the rows of each rank
    std::vector<int> ownerV;    // the owner of each column
    std::vector<char> fWideV;   // of each column: its values are sent as doubles, else as floats

    size_t SizeOf(int column) const {
        return fWideV[static_cast<size_t>(column)] != 0 ? sizeof(double) : sizeof(float);
    }
};

// Every rank sends a few of its rows at a time, one message to each rank: for each column of the
// receiver, in ascending order, the values of these rows. Messages have the same size, that of the
// rank with the widest columns; what a shorter one has left is not used.
class CellExchange {
  public:
    // Throws std::bad_alloc; allocates what Run needs, up to about 16 MB and a few rows.
    CellExchange(const CellPlan& cells, RowSource& source, int rank);

    // Collective; throws RanksLost. `storedV` has the address of each column of this rank, for the
    // values of all rows in rank order; those of other columns are not used. Releases the rows of
    // the source on the way.
    void Run(Communicator& communicator, const std::vector<char*>& storedV);

  private:
    int RowsAt(size_t from, int begin) const;
    void Pack(int begin, int count);
    void Unpack(size_t from, int count, size_t row, const std::vector<char*>& storedV) const;

    const CellPlan& plan;
    RowSource& share;
    std::vector<std::vector<int>> columnVV;  // the columns of each rank
    const size_t mine;
    int numAtOnce = 1;    // rows
    size_t numBytes = 0;  // of a message
    std::vector<double> rowV;
    std::vector<char> sentV, receivedV;
};

}  // namespace sylvora

#endif  // SYLVORA_OWNCOLUMNS_CELLEXCHANGE_H

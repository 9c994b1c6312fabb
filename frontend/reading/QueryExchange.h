// The queries of a file of which each rank has read a part.
#ifndef SYLVORA_FRONTEND_READING_QUERYEXCHANGE_H
#define SYLVORA_FRONTEND_READING_QUERYEXCHANGE_H

#include <string>
#include <vector>

#include "DataSet.h"
#include "Ranks.h"
#include "RowReading.h"

namespace sylvora::frontend {

// Collective; throws RanksLost. Numbers the queries of the runs of the ranks 0 to `numRanks` - 1,
// in this order, at all ranks: a query may go on in the next part. Sets queryIdV and
// lineWithoutQuery of `set`. Returns the complaint of a query whose rows are not together; empty:
// there is none.
std::string NumberAllQueries(Ranks& ranks, int numRanks, const DataFile& file,
                             const std::vector<QueryRun>& mineV, DataSet& set);

}  // namespace sylvora::frontend

#endif  // SYLVORA_FRONTEND_READING_QUERYEXCHANGE_H

// The data sets of a training run by several ranks. See docs/scale-out.md.
#ifndef SYLVORA_FRONTEND_READING_RANKEDSETS_H
#define SYLVORA_FRONTEND_READING_RANKEDSETS_H

#include <memory>
#include <vector>

#include "CheckIn.h"
#include "Communicator.h"
#include "Libdef.h"
#include "OwnColumns.h"
#include "Ranks.h"
#include "ReadingThreads.h"
#include "RunSets.h"
#include "TreeLearner.h"

namespace sylvora::frontend {

// The training set of a rank. It must live until the learner that it was handed over to is done.
struct RankedSet {
    std::unique_ptr<OwnColumns> columns;  // with the labels; null: no rows, or no features
    std::unique_ptr<Ranks> ranks;         // with the owners of the columns; null as `columns`
    VecInt queryIdV;                      // of all rows; only for GBRank
    long lineWithoutQuery = 0;            // as in DataSet; only for GBRank
};

// ReadSets for a rank. Collective: all ranks give the same settings and see the same files. Of the
// training set, each rank reads a part of the lines and gets the columns that it owns; the other
// sets are read in full by all ranks. `threads` has the threads of this rank.
//
// Rows, queries and messages do not depend on the number of ranks. Rank 0 writes the messages; that
// of a failure at other ranks only names the first of them. Returns 0 or, at all ranks, -1. A rank
// that has lost another one returns -1 after a message of its own.
[[nodiscard]] int ReadSets(std::vector<RunSet>& setV, const CheckCfgCLS& cfg,
                           ReadingThreads& threads, Communicator& peers, RankedSet& training);

// Lends the training set to the learner, with the messages of the other HandOver. Not collective.
[[nodiscard]] int HandOver(const RankedSet& training, const DataFile& file, TreeLearner& learner);

}  // namespace sylvora::frontend

#endif  // SYLVORA_FRONTEND_READING_RANKEDSETS_H

// Sizes at which the engine switches between algorithms. They affect speed, never results. Tests
// change them so that small data reach every code path.
#ifndef SYLVORA_ENGINE_TRAIN_TUNING_H
#define SYLVORA_ENGINE_TRAIN_TUNING_H

namespace sylvora {
namespace engine {

// All sizes in rows or bins, unless stated otherwise. Read once per run.
struct Tuning {
    // A node with at most so many rows sorts its wide columns.
    int smallNode = 128;
    // A small node with at most so many rows sorts its narrow columns, too.
    int tinyNode = 31;
    // The most bins of a column with many distinct values. CurrentTuning chooses it by the L1
    // cache.
    int mostBins = 1500;
    // Low bits of a rank's offset (RowRanks.h) that are stored in the first array, at most 16; any
    // further bits go to a second one.
    int rankBits = 16;
    // Sort directly if the candidate bins hold at most so many rows, or less than an eighth of it
    // each.
    int fewKeys = 256;
    // What a cell costs when a histogram is shared between children, in additions of a row to a
    // cell. If that is more than sharing saves, nodes count their own histograms.
    int cellCost = 3;
    // Rows per chunk of shared work; smaller nodes are not shared.
    int chunkRows = 16384;
    // Workers partition the lists of a node together from so many rows on.
    int teamRows = 4096;
    // Keep the sorted lists of all columns if a node samples at least this percentage of them;
    // below it, make the sampled columns' lists per node, and grow regression forests on
    // histograms.
    int listPercent = 10;
    // Gradients become integers as coarse as those of a tree of at least so many rows.
    int leastRows = 0;
};

// The defaults above, adapted to this machine's caches, and overridden for tests by the
// environment, as in SYLVORA_TUNING="smallNode=0 mostBins=16".
Tuning CurrentTuning();

}  // namespace engine
}  // namespace sylvora

#endif  // SYLVORA_ENGINE_TRAIN_TUNING_H

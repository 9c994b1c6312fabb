// Scores many rows, block by block.
#ifndef SYLVORA_ENGINE_SCORE_BATCHSCORING_H
#define SYLVORA_ENGINE_SCORE_BATCHSCORING_H

#include <cstddef>

#include "CompiledEnsemble.h"
#include "GroupRange.h"
#include "base/BlockReader.h"

namespace sylvora {
namespace engine {

// Rows with a value for every column of the ensemble: row i begins at values + i * stride or, if
// `block` is not null, is row firstRow + i of the block. The caller owns the values.
struct RowTable {
    const double* values;
    size_t numRows;
    size_t stride;
    const BlockReader* block = nullptr;
    size_t firstRow = 0;

    const double* Row(size_t row) const { return values + row * stride; }
    RowTable Part(size_t first, size_t count) const {
        if (block != nullptr) return {nullptr, count, stride, block, firstRow + first};
        return {Row(first), count, stride};
    }
};

// Scores all rows and writes results[0, numRows). In a regression a score is the sum over groups of
// shrink times mean. In a classification every tree of a group votes, vote counts carry over from
// group to group, and a score is the sum of shrink times the class that wins in each group.
//
// Uses at most `numThread` threads, the calling one included; 0 or less means all usable
// processors. Results do not depend on the number. Any number of threads may score with the same
// ensemble. Throws std::bad_alloc, with `results` untouched, when memory runs out.
void ScoreRows(const CompiledEnsemble& ensemble, const RowTable& rows, double* results,
               int numThread);

// Adds the outputs of some groups of a regression to scores[0, numRows), in order, as ScoreRows
// adds them up; otherwise like it.
void AddRows(const CompiledEnsemble& ensemble, const GroupRange& range, const RowTable& rows,
             double* scores, int numThread);

// How many threads are worth starting for that many rows and trees, at most `numThread`; 0 or less:
// at most the usable processors.
int NumScoringThreads(size_t numRows, size_t numTrees, int numThread);

}  // namespace engine
}  // namespace sylvora

#endif  // SYLVORA_ENGINE_SCORE_BATCHSCORING_H

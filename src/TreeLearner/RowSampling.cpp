// Drawing the rows that a tree is grown on: single rows or whole queries, without replacement.
#include <algorithm>
#include <memory>
#include <new>
#include <numeric>
#include <set>
#include <utility>
#include <vector>

#include "../TreeLearner.h"
#include "../god/RandomGenerator.h"
#include "../god/Report.h"
#include "../god/Truncation.h"
#include "CallScope.h"
#include "EngineRun.h"
#include "RowDraw.h"

using sylvora::Fail;
using sylvora::RowArray;
using sylvora::ShareOf;

int TreeLearner::RandomSelectURL(int*& selected, int& count, long* seed) {
    const CallScope scope(*this);
    return DrawRows(sylvora::WeightsOf(*this), selected, count, seed);
}

// RandomSelectURL with the given weights, by row; null if all are 1. The caller owns `selected`
// (new[]); it is null after a failure.
int TreeLearner::DrawRows(const int* weightV, int*& selected, int& count, long* seed) {
    return sylvora::Guarded([&] {
        selected = nullptr;
        count = 0;
        std::unique_ptr<int[]> drawnV;
        const sylvora::RowDraw draw = sylvora::RowDraw::PerTree(*this);
        if (!engineRun || !engineRun->TakeRowsAhead(draw, seed, drawnV)) {
            drawnV = RowArray(draw.target);
            const std::unique_ptr<int[]> pool = RowArray(draw.numRows);
            if (!drawnV || !pool) {
                return Fail("ERROR: Failed to allocate memory when random select url!\n");
            }
            sylvora::Draws draws(seed);
            draw.Run(draws, pool.get(), drawnV.get());
        }
        count = draw.target;
        if (weightV != nullptr) count = sylvora::KeepWeighted(weightV, drawnV.get(), count);
        int numQueries = 1;
        if (fDebug && CfgInfo.modelType == "GBRank") {
            std::set<int> queries;
            for (int i = 0; i < count; ++i) {
                queries.insert(queryIdV[drawnV[static_cast<size_t>(i)]]);
            }
            numQueries = static_cast<int>(queries.size());
        }
        ReportRows("Random doc, #docs:", count, numQueries);
        selected = drawnV.release();
        return 0;
    });
}

int TreeLearner::RandomSelectQuery(int*& selected, int& count, long* seed) {
    const CallScope scope(*this);
    return sylvora::Guarded([&] {
        selected = nullptr;
        count = 0;
        const int maxQid = queryIdV != nullptr ? queryIdV[sampleSize - 1] : 0;
        if (maxQid == 0) return Fail("ERROR: qid not found in training data!\n");
        std::unique_ptr<int[]> drawnV = RowArray(sampleSize);
        if (!drawnV) {
            // The misspelling is deliberate: the text of messages is fixed.
            return Fail("ERROR: Faied to allocate memory, too large sample size!\n");
        }
        const int numQueries = sylvora::NumQueries(maxQid);
        const int target = ShareOf(numQueries, valSmpRt);
        const int* const weightV = sylvora::WeightsOf(*this);
        std::vector<bool> fChosenV(static_cast<size_t>(numQueries), false);
        {
            // Holds the generator's lock, so it is kept to this block. Ends because target is at
            // most numQueries.
            sylvora::Draws draws(seed);
            for (int numChosen = 0; numChosen < target;) {
                const size_t query = static_cast<size_t>(draws.Index(numQueries));
                if (!fChosenV[query]) ++numChosen;
                fChosenV[query] = true;
            }
        }
        for (int row = 0; row < sampleSize; ++row) {
            const size_t query = static_cast<size_t>(queryIdV[row]);
            const bool fChosen = query < fChosenV.size() && fChosenV[query];
            if (!fChosen || (weightV != nullptr && weightV[row] <= 0)) continue;
            drawnV[static_cast<size_t>(count++)] = row;
        }
        ReportRows("Random query, #docs:", count, target);
        selected = drawnV.release();
        return 0;
    });
}

// Writes the numbers of rows and queries drawn to the debug report, and `notice` with the number of
// rows to the output.
void TreeLearner::ReportRows(const char* notice, int count, int numQueries) {
    if (fDebug) {
        of_debug << count << ' ' << numQueries << ' ' << static_cast<double>(count) / numQueries
                 << ' ';
    }
    if (CfgInfo.fPrint) sylvora::Print(notice, count, "\n");
}

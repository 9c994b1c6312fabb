// The rows that a tree is grown on.
#include <algorithm>
#include <new>
#include <numeric>
#include <set>
#include <utility>
#include <vector>

#include "../TreeLearner.h"
#include "../god/RandomGenerator.h"
#include "../god/Report.h"
#include "../god/Truncation.h"

using sylvora::Fail;

namespace {

// trunc(count * share), kept inside [0, count] for shares that no validation has seen.
int ShareOf(int count, double share) {
    return std::clamp(sylvora::Truncate<int>(count * share), 0, std::max(count, 0));
}

}  // namespace

// A partial Fisher-Yates draw: rows of weight 0 are drawn like any other and then left out, so that
// weights do not change which rows the draws hit.
int TreeLearner::RandomSelectURL(int*& selected, int& count, long* seed) {
    const int target = ShareOf(sampleSize, valSmpRt);
    selected = new (std::nothrow) int[static_cast<size_t>(target)];
    int* pool = new (std::nothrow) int[static_cast<size_t>(sampleSize)];
    if (selected == nullptr || pool == nullptr) {
        delete[] selected;
        delete[] pool;
        selected = nullptr;
        return Fail("ERROR: Failed to allocate memory when random select url!\n");
    }
    std::iota(pool, pool + sampleSize, 0);
    count = 0;
    {
        sylvora::Draws draws(seed);
        for (int i = 0; i < target; ++i) {
            const int n = sampleSize - i;
            int& drawn = pool[draws.Index(n)];
            if (numPairDistinctQueV[drawn] > 0) selected[count++] = drawn;
            std::swap(drawn, pool[n - 1]);
        }
    }
    delete[] pool;
    double numQueries = 1;
    if (fDebug && CfgInfo.modelType == "GBRank") {
        std::set<int> queries;
        for (int i = 0; i < count; ++i) queries.insert(queryIdV[selected[i]]);
        numQueries = static_cast<double>(queries.size());
    }
    ReportRows("Random doc, #docs:", count, numQueries);
    return 0;
}

int TreeLearner::RandomSelectQuery(int*& selected, int& count, long* seed) {
    const int maxQid = queryIdV != nullptr ? queryIdV[sampleSize - 1] : 0;
    if (maxQid == 0) return Fail("ERROR: qid not found in training data!\n");
    selected = new (std::nothrow) int[static_cast<size_t>(sampleSize)];
    if (selected == nullptr) {
        return Fail("ERROR: Faied to allocate memory, too large sample size!\n");
    }
    const int numQueries = std::max(maxQid, -1) + 1;
    const int target = ShareOf(numQueries, valSmpRt);
    std::vector<bool> fChosenV(static_cast<size_t>(numQueries), false);
    {
        sylvora::Draws draws(seed);
        for (int numChosen = 0; numChosen < target;) {
            const size_t query = static_cast<size_t>(draws.Index(numQueries));
            if (!fChosenV[query]) ++numChosen;
            fChosenV[query] = true;
        }
    }
    count = 0;
    for (int row = 0; row < sampleSize; ++row) {
        const size_t query = static_cast<size_t>(queryIdV[row]);
        const bool fChosen = query < fChosenV.size() && fChosenV[query];
        if (fChosen && numPairDistinctQueV[row] > 0) selected[count++] = row;
    }
    ReportRows("Random query, #docs:", count, target);
    return 0;
}

void TreeLearner::ReportRows(const char* notice, int count, double numQueries) {
    if (fDebug) of_debug << count << ' ' << numQueries << ' ' << count / numQueries << ' ';
    if (CfgInfo.fPrint) sylvora::Print(notice, count, "\n");
}

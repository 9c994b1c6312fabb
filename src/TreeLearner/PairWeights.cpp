// The initial weights of training rows: 1, or, for ranking, the number of rows of the same query
// with another label.
#include <algorithm>
#include <climits>
#include <cmath>
#include <cstddef>
#include <functional>
#include <numeric>
#include <vector>

#include "../TreeLearner.h"
#include "../god/Report.h"
#include "Arrays.h"
#include "CallScope.h"
#include "LossRun.h"
#include "RowDraw.h"

using sylvora::Fail;

namespace {

// Sets countV[i], for each of the `numRows` rows of one query, to the number of rows with another
// label. A NaN differs from every label, NaN included. Takes O(n log n) time.
void CountPartners(const double* labelV, int numRows, int* countV) {
    const auto isNan = [](double label) { return std::isnan(label); };
    VecDle sortedV(labelV, labelV + numRows);
    sortedV.erase(std::remove_if(sortedV.begin(), sortedV.end(), isNan), sortedV.end());
    std::sort(sortedV.begin(), sortedV.end());
    for (int i = 0; i < numRows; ++i) {
        const auto equal = std::equal_range(sortedV.begin(), sortedV.end(), labelV[i]);
        const auto numEqual = isNan(labelV[i]) ? 1 : equal.second - equal.first;
        countV[i] = numRows - static_cast<int>(numEqual);
    }
}

// The sum of the `count` largest values. Reorders valueV.
template <typename Value>
long long SumOfLargest(std::vector<Value>& valueV, int count) {
    const size_t numSummed = std::min(static_cast<size_t>(count), valueV.size());
    const auto end = valueV.begin() + static_cast<std::ptrdiff_t>(numSummed);
    std::partial_sort(valueV.begin(), end, valueV.end(), std::greater<Value>());
    return std::accumulate(valueV.begin(), end, 0LL);
}

// The largest possible sum of the weights of the rows, or whole queries, drawn for one tree.
long long LargestTreeWeight(const TreeLearner& learner) {
    if (learner.CfgInfo.randomMode != "QUERY") {
        VecInt weightV(learner.numPairDistinctQueV,
                       learner.numPairDistinctQueV + learner.sampleSize);
        return SumOfLargest(weightV, sylvora::ShareOf(learner.sampleSize, learner.valSmpRt));
    }
    std::vector<long long> queryWeightV;
    for (int i = 0; i < learner.sampleSize; ++i) {
        if (i == 0 || learner.queryIdV[i] != learner.queryIdV[i - 1]) queryWeightV.push_back(0);
        queryWeightV.back() += learner.numPairDistinctQueV[i];
    }
    const int numQueries = sylvora::NumQueries(learner.queryIdV[learner.sampleSize - 1]);
    return SumOfLargest(queryWeightV, sylvora::ShareOf(numQueries, learner.valSmpRt));
}

}  // namespace

int TreeLearner::ComputeDistinctPair() {
    const CallScope scope(*this);
    if (RefuseAtWork("ComputeDistinctPair") != 0) return -1;
    return sylvora::Guarded([&] {
        if (sylvora::AllocateArray(numPairDistinctQueV, sampleSize, "numPairDistinctQueV") != 0) {
            return -1;
        }
        if (lossRun != nullptr) lossRun->fWeighted = false;
        if (fHomoWgt == 1) {
            std::fill_n(numPairDistinctQueV, sampleSize, 1);
            return 0;
        }
        if (queryIdV == nullptr) return Fail("ERROR: Size of qid does not match the data!\n");
        for (int begin = 0, end = 0; begin < sampleSize; begin = end) {
            while (end < sampleSize && queryIdV[end] == queryIdV[begin]) ++end;
            CountPartners(labelV + begin, end - begin, numPairDistinctQueV + begin);
        }
        const long long total =
            std::accumulate(numPairDistinctQueV, numPairDistinctQueV + sampleSize, 0LL);
        // Nodes add up weights in an int. The exact bound is only computed if the simple one fails.
        const long long largest = total > INT_MAX ? LargestTreeWeight(*this) : total;
        if (largest <= INT_MAX) return 0;
        return Fail("ERROR: The pair weights of the rows of one tree can add up to ", largest,
                    ", more than ", INT_MAX, ": split large queries or lower valSmpRt!\n");
    });
}

// The feature-analysis report.
//
//   report  = "Average Accumulated Absolute Difference: " figure LF
//             "Average Square Root Difference: " figure LF
//             { column TAB weight TAB uses LF }      per test row; the largest weight first
#include <algorithm>
#include <cmath>
#include <cstdint>
#include <fstream>
#include <numeric>
#include <vector>

#include "../Output/WholeFile.h"
#include "../TreeLearner.h"
#include "../god/Report.h"
#include "CallScope.h"
#include "EnsembleView.h"

using sylvora::Fail;

namespace {

// Columns by descending weight; columns of equal weight stay in order. NaNs have no order, so each
// stays where it is, and the ranges between NaNs are sorted separately.
VecInt OrderByWeight(const VecFt& feaWeightV) {
    const auto weight = [&feaWeightV](int f) { return feaWeightV[static_cast<size_t>(f)]; };
    VecInt order(feaWeightV.size());
    std::iota(order.begin(), order.end(), 0);
    const auto isNan = [&](int f) { return std::isnan(weight(f)); };
    // Invariant: order[0..begin) is done.
    for (auto begin = order.begin(); begin != order.end();) {
        const auto end = std::find_if(begin, order.end(), isNan);
        std::stable_sort(begin, end, [&](int a, int b) { return weight(a) > weight(b); });
        begin = end == order.end() ? end : end + 1;
    }
    return order;
}

}  // namespace

// The sums run over rows, groups and trees, in this order. A label passes through a float, which is
// deliberate: the figures depend on it.
int TreeLearner::FeatureAnalysis(std::string file) {
    const CallScope scope(*this);
    return sylvora::Guarded([&] {
        if (CfgInfo.fPrint) sylvora::Print("Feature analysis\n");
        if (!walkFault.empty()) return Fail("ERROR: Wrong model format!\n", walkFault, "\n");
        if (modelDim > std::min(dimFea, testDim > 0 ? testDim : dimFea)) {
            return Fail("ERROR: Input data dimension does not match the model!\n");
        }
        sylvora::WholeFile report(file, [this] { return AskUser() != 0; });
        if (!report.IsOpen()) {
            return Fail("ERROR: Can not open feature analysis output file!\n",
                        report.ErrorMessage());
        }
        std::ofstream& out = report.Stream();
        VecFt feaWeightV(static_cast<size_t>(dimFea), 0.0f);
        std::vector<int64_t> feaFreqV(static_cast<size_t>(dimFea), 0);
        const sylvora::EnsembleView trees(*this);
        double absDiff = 0.0;
        double sqrtDiff = 0.0;
        for (int r = 0; r < testSize; ++r) {
            const auto mapped = tranMap.find(labelTestV[r]);
            const float label =
                static_cast<float>(mapped != tranMap.end() ? mapped->second : labelTestV[r]);
            double pred = 0.0;
            for (size_t g = 0; g < trees.NumGroups(); ++g) {
                const size_t numTrees = trees.GroupSize(g);
                double sum = 0.0;
                for (size_t t = 0; t < numTrees; ++t) {
                    sum += trees.Tree(g, t).FeatureAnalPredict(
                        featureTestVV[r], {feaWeightV, feaFreqV}, label - pred, StepLengthV[g]);
                }
                pred += StepLengthV[g] * sum / static_cast<double>(numTrees);
            }
            const double diff = label - pred;
            absDiff += std::fabs(diff);
            sqrtDiff += diff * diff;
        }
        const double numRows = testSize;
        out << "Average Accumulated Absolute Difference: " << absDiff / numRows << '\n'
            << "Average Square Root Difference: " << std::sqrt(sqrtDiff / numRows) << '\n';
        for (const int f : OrderByWeight(feaWeightV)) {
            const size_t at = static_cast<size_t>(f);
            out << f << '\t' << feaWeightV[at] / numRows << '\t'
                << static_cast<double>(feaFreqV[at]) / numRows << '\n';
        }
        if (report.Commit()) return 0;
        return Fail(report.ErrorMessage());
    });
}

// A small training set in the form that NodeCR and TreeCR expect, and a root node over it. Tests
// use small integers, so that sums are exact in any order.
#ifndef SYLVORA_TESTS_NODE_FIXTURE_H
#define SYLVORA_TESTS_NODE_FIXTURE_H

#include <numeric>
#include <utility>
#include <vector>

#include "Node.h"

namespace sylvora::tests {

constexpr int kCallingThread = 0;  // as a thread count: search in the calling thread
constexpr int kNumClass = 3;

struct Table {
    VecVecDle valueVV;
    VecDle gradV;  // gradients or classes, by row
    VecInt weightV;
    VecInt indexV;  // the tree's row index: all rows in order
    std::vector<double*> rowV;

    Table(VecVecDle rows, VecDle gradients, VecInt weights)
        : valueVV(std::move(rows)), gradV(std::move(gradients)), weightV(std::move(weights)) {
        for (VecDle& row : valueVV) rowV.push_back(row.data());
        indexV.resize(valueVV.size());
        std::iota(indexV.begin(), indexV.end(), 0);
    }

    // One column; all weights are 1.
    Table(const VecDle& column, VecDle gradients)
        : Table(VecVecDle(column.size(), VecDle(1)), std::move(gradients),
                VecInt(column.size(), 1)) {
        for (size_t i = 0; i < column.size(); ++i) valueVV[i][0] = column[i];
    }
};

// A root node over indexV[begin, end) of the table, which must outlive it.
struct Root : NodeCR {
    explicit Root(Table& t, bool fClasses = false, double r = 1.0, int begin = 0)
        : NodeCR(static_cast<int>(t.valueVV[0].size()), r, 1, 9),
          table(t),
          drawnV(static_cast<size_t>(numSelFea)) {
        Init(begin, static_cast<int>(t.indexV.size()) - begin, -1, 0, true, "GBDT",
             fClasses ? "CLS" : "REG");
    }

    int ComputeOutput() {
        return fRegCls ? GetGradSumCls(gradients, rows, kNumClass)
                       : GetGradSum(gradients, rows, weights);
    }
    int Sample(SamplingFeatureType sampler, long seed) {
        return SamplingFeature(sampler, drawnV.data(), &seed);
    }
    int Search(int numThread, double& score) {
        const double** features = const_cast<const double**>(table.rowV.data());
        pthread_t tids[8];
        if (numThread == kCallingThread) {
            return fRegCls ? GetSplitPointClsOne(features, rows, kNumClass, gradients, score)
                           : GetSplitPointOne(features, rows, weights, gradients, score);
        }
        return fRegCls
                   ? GetSplitPointCls(features, rows, kNumClass, gradients, score, numThread, tids)
                   : GetSplitPoint(features, rows, weights, gradients, score, numThread, tids);
    }

    Table& table;
    VecInt drawnV;  // the sampled columns
    const double* gradients = table.gradV.data();
    const int* rows = table.indexV.data();
    const int* weights = table.weightV.data();
};

}  // namespace sylvora::tests

#endif  // SYLVORA_TESTS_NODE_FIXTURE_H

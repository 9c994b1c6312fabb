// Setting the values of a tree's nodes from their rows, by the loss; see LossRun.h.
//
// Both the engine and the reference implementation end here, with the same row order. A node's sums
// add its rows in the order of its slice of the tree's row index after growth. A node is computed
// by one worker, so the results do not depend on the number of threads.
#include <algorithm>
#include <cstddef>
#include <numeric>
#include <vector>

#include "../LossFunctions/Residuals.h"
#include "LossRun.h"
#include "base/Chunks.h"
#include "base/Gather.h"

namespace {

constexpr int kChunkRows = 16384;

// sum of gradients / sum of second derivatives; 0 if the latter is too small to divide by.
double Ratio(const double* gradientV, const double* secondV, int count) {
    constexpr double kLeast = 1e-150;
    double gradients = 0.0;
    double seconds = 0.0;
    for (int i = 0; i < count; ++i) {
        gradients += gradientV[i];
        seconds += secondV[i];
    }
    return seconds < kLeast ? 0.0 : gradients / seconds;
}

}  // namespace

// What the rule reads of a tree's rows, in the order of its row index.
struct TreeLearner::LossRun::NodeRows {
    sylvora::LargeArray<double> firstV;   // gradients, or residuals
    sylvora::LargeArray<double> secondV;  // second derivatives, if the rule reads any
    sylvora::LargeArray<int> weightV;     // for rules of residuals; empty: all are 1

    NodeRows(const LossRun& loss, const int* rowV, int numRows, const int* weights,
             sylvora::WorkerPool& pool) {
        const TreeLearner& owner = loss.learner;
        const bool fRatio = loss.rule == Rule::kRatio;
        const size_t size = static_cast<size_t>(numRows);
        firstV.resize(size);
        secondV.resize(fRatio ? size : 0);
        weightV.resize(fRatio || weights == nullptr ? 0 : size);
        const sylvora::Chunks chunks = {numRows, kChunkRows};
        pool.For(chunks.Num(), [&](int chunk, int) {
            const int begin = chunks.Begin(chunk);
            const int count = chunks.End(chunk) - begin;
            const int* const rows = rowV + begin;
            double* const first = firstV.data() + begin;
            if (fRatio) {
                sylvora::Gather(owner.gradientV, rows, count, first);
                sylvora::Gather(loss.hessianV.data(), rows, count, secondV.data() + begin);
                return;
            }
            for (int i = 0; i < count; ++i) {
                first[i] = owner.labelTrV[rows[i]] - owner.predictV[rows[i]];
            }
            if (!weightV.empty()) sylvora::Gather(weights, rows, count, weightV.data() + begin);
        });
    }

    double ValueOf(const NodeCR& node, const LossRun& loss,
                   sylvora::QuantileBuffers& buffers) const {
        const CheckCfgCLS& c = loss.learner.CfgInfo;
        const double* const first = firstV.data() + node.startDoc;
        if (loss.rule == Rule::kRatio) {
            return Ratio(first, secondV.data() + node.startDoc, node.countDoc);
        }
        const sylvora::WeightedValues residuals = {
            first, weightV.empty() ? nullptr : weightV.data() + node.startDoc, node.countDoc};
        if (loss.rule == Rule::kHuber) {
            return sylvora::HuberCentre(residuals, c.huberDelta, buffers);
        }
        return sylvora::QuantileOf(residuals, loss.IsLoss("Quantile") ? c.quantile : 0.5, buffers);
    }
};

// Nodes are shared among the workers, the largest first.
void TreeLearner::LossRun::SetNodeValues(TreeCR& tree, const int* rowV, const int* weightV,
                                         sylvora::WorkerPool& pool) const {
    const NodeRows rows(*this, rowV, tree.NodeV[0]->countDoc, weightV, pool);
    std::vector<NodeCR*> orderV = tree.NodeV;
    std::stable_sort(orderV.begin(), orderV.end(),
                     [](const NodeCR* a, const NodeCR* b) { return a->countDoc > b->countDoc; });
    std::vector<sylvora::QuantileBuffers> bufferV(static_cast<size_t>(pool.NumWorkers()));
    pool.For(static_cast<int>(orderV.size()), [&](int k, int worker) {
        NodeCR& node = *orderV[static_cast<size_t>(k)];
        node.avgPredict = rows.ValueOf(node, *this, bufferV[static_cast<size_t>(worker)]);
    });
}

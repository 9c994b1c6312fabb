// Measures what rounding the thresholds to six digits does to the training rows.
//
// Only a row with a value between some threshold and its rounded form can reach another leaf; any
// other row is on the same side of every threshold as before. The few rows that may move are walked
// down the trees that have such thresholds, once with exact and once with rounded thresholds.
//
// In a large forest most thresholds are deep in the trees, between values that are far apart
// compared with the rounding error. There only narrow splits (engine/train/NarrowSplit.h) are
// examined. If every tree was grown on all rows, no other split can move a row. Otherwise a row
// that was not sampled may lie inside a wider gap, so the numbers found are lower bounds
// (fAtLeast).
#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <utility>
#include <vector>

#include "../TreeLearner.h"
#include "../god/Report.h"
#include "CallScope.h"
#include "EnsembleView.h"
#include "RoundedNumber.h"
#include "TrainingRows.h"
#include "Voting.h"
#include "base/UsableCpus.h"
#include "base/WorkerPool.h"

namespace sylvora {
namespace {

// The set of values of a column that lie between some threshold and its rounded form: greater than
// the lower of the two, at most the higher one. Those are the values that change sides. Add all
// pairs, call Finish once, then query; queries are thread-safe.
class MovedValues {
  public:
    void Add(double a, double b) { spanV.push_back({std::min(a, b), std::max(a, b)}); }

    // Sorts the spans and merges those that overlap or touch.
    void Finish() {
        std::sort(spanV.begin(), spanV.end());
        // Invariant: spanV[0..last] are merged, ascending and disjoint.
        size_t last = 0;
        for (size_t i = 1; i < spanV.size(); ++i) {
            if (spanV[i].first > spanV[last].second) {
                spanV[++last] = spanV[i];
            } else {
                spanV[last].second = std::max(spanV[last].second, spanV[i].second);
            }
        }
        spanV.resize(std::min(spanV.size(), last + 1));
        if (spanV.empty()) return;
        filterV.assign((kFilterKeys + 63) / 64, 0);
        for (const Span& span : spanV) Mark(span);
    }

    bool IsEmpty() const { return spanV.empty(); }
    // The filter rejects most values with one look-up; it has false positives, no false negatives.
    bool Has(double value) const {
        const std::uint64_t key = Key(value) % kFilterKeys;
        if ((filterV[key / 64] >> key % 64 & 1) == 0) return false;
        // The first span that does not end below the value.
        const auto span = std::partition_point(spanV.begin(), spanV.end(),
                                               [value](const Span& s) { return s.second < value; });
        return span != spanV.end() && span->first < value;
    }

  private:
    typedef std::pair<double, double> Span;
    static constexpr std::uint64_t kFilterKeys = 1 << 16;

    // The leading bits of a double: sign, exponent and 16 bits of the fraction. Rounding to six
    // digits moves a value by less than the last of these bits, so a span has few keys.
    static std::uint64_t Key(double value) {
        constexpr int kTrailing = 36;
        std::uint64_t bits = 0;
        std::memcpy(&bits, &value, sizeof bits);
        return bits >> kTrailing;
    }
    // Keys ascend with the magnitude of a double, so those of a span are contiguous.
    void Mark(const Span& span) {
        const std::uint64_t a = Key(span.first);
        const std::uint64_t b = Key(span.second);
        for (std::uint64_t key = std::min(a, b); key <= std::max(a, b); ++key) {
            filterV[key % kFilterKeys / 64] |= std::uint64_t{1} << key % kFilterKeys % 64;
        }
    }

    std::vector<Span> spanV;             // after Finish: ascending, disjoint
    std::vector<std::uint64_t> filterV;  // one bit per key modulo kFilterKeys
};

// A tree and those of its thresholds that rounding moves. Borrows the nodes; immutable.
class RoundedTree {
  public:
    RoundedTree(const TreeView& exact, size_t group, bool fNarrowOnly)
        : tree(exact), groupOf(group) {
        for (size_t k = 0; k < tree.NumNodes(); ++k) {
            const engine::PackedNode node = tree.Node(k);
            if (node.IsLeaf() || (fNarrowOnly && !node.fNarrow)) continue;
            const double rounded = RoundToDigits(node.splitElemFea, kFewDigits);
            // A threshold of NaN sends every row right, rounded or not.
            const bool fMoved = rounded < node.splitElemFea || rounded > node.splitElemFea;
            if (fMoved) movedV.push_back({static_cast<int>(k), rounded});
        }
    }

    bool IsMoved() const { return !movedV.empty(); }
    size_t Group() const { return groupOf; }
    // Adds each moved threshold to the set of its column.
    void AddSpans(std::vector<MovedValues>& columnV) const {
        for (const auto& [k, rounded] : movedV) {
            const engine::PackedNode node = tree.Node(static_cast<size_t>(k));
            columnV[static_cast<size_t>(node.splitFea)].Add(node.splitElemFea, rounded);
        }
    }
    // The leaf that a row reaches from node `k`, with rounded thresholds or with those in memory.
    int Leaf(const double* row, bool fRounded, int k = 0) const {
        for (;;) {
            const engine::PackedNode node = tree.Node(static_cast<size_t>(k));
            if (node.IsLeaf()) return k;
            k = Child(node, row, fRounded ? Threshold(k, node.splitElemFea) : node.splitElemFea);
        }
    }
    // Whether exact and rounded thresholds lead to the same leaf. If not, `node` becomes the node
    // at which the two paths diverge.
    bool LeadsToOneLeaf(const double* row, int& node) const {
        for (node = 0;;) {
            const engine::PackedNode here = tree.Node(static_cast<size_t>(node));
            if (here.IsLeaf()) return true;
            const int exact = Child(here, row, here.splitElemFea);
            if (exact != Child(here, row, Threshold(node, here.splitElemFea))) return false;
            node = exact;
        }
    }
    bool IsNarrow(int node) const { return tree.Node(static_cast<size_t>(node)).fNarrow; }
    double Value(int leaf) const { return tree.Node(static_cast<size_t>(leaf)).avgPredict; }

  private:
    // The rule of every walk: equal values go left, a NaN goes right.
    static int Child(const engine::PackedNode& node, const double* row, double threshold) {
        return row[node.splitFea] <= threshold ? node.lson : node.rson;
    }
    // The rounded threshold of node `k`, by binary search; `exact` if rounding does not move it.
    double Threshold(int k, double exact) const {
        const auto moved = std::partition_point(movedV.begin(), movedV.end(),
                                                [k](const auto& m) { return m.first < k; });
        return moved != movedV.end() && moved->first == k ? moved->second : exact;
    }

    const TreeView tree;
    const size_t groupOf;
    std::vector<std::pair<int, double>> movedV;  // node and rounded threshold, nodes ascending
};

// The outputs of the trees for a row, with rounded thresholds; a `Leaves` of Voting.h. Borrows all.
class RoundedLeaves {
  public:
    RoundedLeaves(const EnsembleView& ensemble, const std::vector<RoundedTree>& trees,
                  const std::vector<int>& roundedOfTreeV, const double* line)
        : exact(ensemble, line), roundedV(trees), atV(roundedOfTreeV), row(line) {}

    double Value(size_t tree) {
        if (atV[tree] < 0) return exact.Value(tree);
        const RoundedTree& rounded = roundedV[static_cast<size_t>(atV[tree])];
        return rounded.Value(rounded.Leaf(row, true));
    }

  private:
    WalkedLeaves exact;
    const std::vector<RoundedTree>& roundedV;
    const std::vector<int>& atV;
    const double* row;
};

// The measurement of one learner, which it borrows and only reads.
class RoundingMeasurement {
  public:
    explicit RoundingMeasurement(const TreeLearner& trained)
        : learner(trained), trees(trained), columnV(static_cast<size_t>(trained.dimFea)) {
        const bool fNarrowOnly = HasManyNodes();
        fAtLeast = fNarrowOnly && !WereAllDrawn();
        for (size_t g = 0; g < trees.NumGroups(); ++g) {
            for (size_t t = 0; t < trees.GroupSize(g); ++t) {
                RoundedTree rounded(trees.Tree(g, t), g, fNarrowOnly);
                atV.push_back(rounded.IsMoved() ? static_cast<int>(roundedV.size()) : -1);
                if (rounded.IsMoved()) roundedV.push_back(std::move(rounded));
            }
        }
        for (const RoundedTree& tree : roundedV) tree.AddSpans(columnV);
        for (size_t j = 0; j < columnV.size(); ++j) {
            columnV[j].Finish();
            if (!columnV[j].IsEmpty()) movedColumnV.push_back(j);
        }
    }

    // Each worker adds up its own effect. Sums and maxima of these do not depend on which worker
    // had which rows.
    rounding_effect_t Run(WorkerPool& pool) const {
        constexpr int kChunk = 4096;  // rows
        std::vector<rounding_effect_t> effectV(static_cast<size_t>(pool.NumWorkers()));
        const int numRows = movedColumnV.empty() ? 0 : learner.sampleSize;
        pool.For((numRows + kChunk - 1) / kChunk, [&](int chunk, int worker) {
            const int end = std::min((chunk + 1) * kChunk, numRows);
            const engine::Matrix rows = TrainingRows(learner);
            VecDle readV(learner.featureVV == nullptr ? columnV.size() : 0);
            for (int i = chunk * kChunk; i < end; ++i) {
                if (!readV.empty()) rows.ReadRow(i, readV.data());
                const double* const row = readV.empty() ? learner.featureVV[i] : readV.data();
                MeasureRow(row, effectV[static_cast<size_t>(worker)]);
            }
        });
        rounding_effect_t all;
        all.fAtLeast = fAtLeast;
        for (const rounding_effect_t& effect : effectV) {
            all.numRows += effect.numRows;
            all.fCrossed |= effect.fCrossed;
            all.largestChange = std::max(all.largestChange, effect.largestChange);
        }
        return all;
    }

  private:
    // Whether examining every threshold would take too long.
    bool HasManyNodes() const {
        constexpr size_t kMany = size_t{1} << 18;
        size_t numNodes = 0;
        for (size_t g = 0; g < trees.NumGroups(); ++g) {
            for (size_t t = 0; t < trees.GroupSize(g); ++t) numNodes += trees.Tree(g, t).NumNodes();
        }
        return numNodes > kMany;
    }
    // Whether every tree was grown on all rows.
    bool WereAllDrawn() const {
        const int* const weights = learner.numPairDistinctQueV;
        return learner.valSmpRt >= 1.0 &&
               std::all_of(weights, weights + learner.sampleSize, [](int w) { return w > 0; });
    }

    // Adds the effect on one row to `effect`.
    void MeasureRow(const double* row, rounding_effect_t& effect) const {
        const bool fMoved =
            std::any_of(movedColumnV.begin(), movedColumnV.end(),
                        [&](size_t column) { return columnV[column].Has(row[column]); });
        if (!fMoved) return;
        double change = 0.0;
        bool fOtherLeaf = false;
        for (const RoundedTree& tree : roundedV) {
            int node = 0;
            if (tree.LeadsToOneLeaf(row, node)) continue;
            const int exact = tree.Leaf(row, false, node);
            const int rounded = tree.Leaf(row, true, node);
            effect.fCrossed |= tree.IsNarrow(node);
            fOtherLeaf = true;
            change += learner.StepLengthV[tree.Group()] *
                      (tree.Value(rounded) - tree.Value(exact)) /
                      static_cast<double>(trees.GroupSize(tree.Group()));
        }
        if (!fOtherLeaf) return;
        ++effect.numRows;
        if (learner.CfgInfo.fRegCls == "CLS") change = ChangeOfVote(row);
        effect.largestChange = std::max(effect.largestChange, std::fabs(change));
    }

    // The change of a classification's score, or 0 if a vote fails.
    double ChangeOfVote(const double* row) const {
        RowScore exact = {0.0, nullptr, false};
        RowScore rounded = exact;
        const bool fVoted = Vote(learner, WalkedLeaves(trees, row), exact) == 0 &&
                            Vote(learner, RoundedLeaves(trees, roundedV, atV, row), rounded) == 0;
        return fVoted ? rounded.result - exact.result : 0.0;
    }

    const TreeLearner& learner;
    const EnsembleView trees;
    std::vector<RoundedTree> roundedV;
    std::vector<int> atV;              // by tree: its index in roundedV, or -1
    std::vector<MovedValues> columnV;  // by column
    std::vector<size_t> movedColumnV;  // those with moved values
    bool fAtLeast = false;
};

}  // namespace
}  // namespace sylvora

int TreeLearner::MeasureRounding(rounding_effect_t& effect, int maxThreads) const {
    const CallScope scope(*this);
    return sylvora::Guarded([&] {
        effect = {};
        // The rows and the trees must both be those of the last run.
        const bool fWhole = sylvora::EnsembleView(*this).NumGroups() == StepLengthV.size() &&
                            (packedTrees == nullptr || TreeVV.empty());
        if ((featureVV == nullptr && borrowed == nullptr) || trainDim != dimFea ||
            modelDim != dimFea || !fWhole) {
            return sylvora::Fail(
                "ERROR: There are no training rows of the ensemble to measure with!\n");
        }
        const sylvora::RoundingMeasurement measurement(*this);
        sylvora::WorkerPool pool;
        const int numAsked = maxThreads > 0 ? maxThreads : sylvora::NumUsableCpus();
        static_cast<void>(pool.Start(numAsked));  // with fewer it only takes longer
        effect = measurement.Run(pool);
        return 0;
    });
}

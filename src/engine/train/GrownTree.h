// A tree as the engine grows it, and the limits on its growth.
#ifndef SYLVORA_ENGINE_TRAIN_GROWNTREE_H
#define SYLVORA_ENGINE_TRAIN_GROWNTREE_H

#include <algorithm>
#include <climits>
#include <cstddef>
#include <stdexcept>

#include "NarrowSplit.h"

namespace sylvora {
namespace engine {

struct GrownNode;

// The limits that the configuration sets. Immutable during a run.
struct GrowthLimits {
    // The most leaves of a tree, and its greatest depth; the root has depth 0.
    int maxLeaf;
    int maxDepth;
    // Nodes with at most this many rows stay leaves.
    int numBound;
    // Columns sampled per node.
    int numSelFea;
    // A forest ignores maxLeaf and maxDepth.
    bool fForest;

    // How many of the `numOpen` nodes of a level to process at once in a tree of `numLeaf` leaves:
    // as many as the leaf limit may still allow to be split. A larger batch would sample columns
    // for nodes that the limit closes, and the random stream would differ from the reference
    // implementation's.
    size_t BatchSize(size_t numOpen, int numLeaf) const {
        if (fForest) return numOpen;
        return std::min(numOpen, static_cast<size_t>(std::max(maxLeaf - numLeaf, 1)));
    }
    // Whether a tree of `numLeaf` leaves is complete. All nodes that still wait, on this level and
    // the next, then stay leaves.
    bool IsFull(int numLeaf) const { return !fForest && numLeaf >= maxLeaf; }
    // Whether nodes at this depth are leaves.
    bool IsTooDeep(int depth) const { return !fForest && depth >= maxDepth; }
    // Whether a node has enough rows to be searched, and is not too deep.
    bool MaySplit(const GrownNode& node) const;
};

// A node of a grown tree. The members are named as in NodeCR and have the same meaning.
struct GrownNode {
    // The node's slice of the tree's rows.
    int startDoc = 0;
    int countDoc = 0;
    // The parent's number in the tree; -1 for the root.
    int parent = -1;
    int depth = 0;
    // The split: column, threshold and children; -1 for a leaf.
    int splitFea = -1;
    double splitElemFea = -1.0;
    int lson = -1;
    int rson = -1;
    // Rows in the left child, and sums over the node's own rows.
    int countL = 0;
    double gradAll = 0.0;
    int wgtAll = 0;
    // Classification: the class of the most rows.
    int majority = -1;
    // Whether the split is narrow; see NarrowSplit.h.
    bool fNarrow = false;

    // The class of most rows or, in a regression, the mean gradient.
    double Output() const { return majority >= 0 ? majority : gradAll / wgtAll; }
};

inline bool GrowthLimits::MaySplit(const GrownNode& node) const {
    return node.countDoc > numBound && !IsTooDeep(node.depth);
}

// A split and its threshold, as the reference implementation records them.
struct SplitPoint {
    // Column -1: there is no split.
    int column = -1;
    double threshold = -1.0;
    // Rows of the left slice. A row goes left if its value is at or below the threshold.
    int countL = 0;
    bool fNarrow = false;  // see NarrowSplit.h
    // Whether the left slice holds exactly the rows at or below the threshold.
    bool fSlicesMatchThreshold = true;
    // The score, if the reference search found the split; it sets no other.
    double score = -1.0;

    // Sets the threshold to the midpoint of the neighbouring values `low` and `high`. Returns false
    // if it does not separate them: the midpoint of adjacent doubles may round up to the higher
    // one, the sum of huge ones may overflow, and opposite infinities give NaN.
    bool SetThreshold(double low, double high) {
        threshold = (low + high) * 0.5;
        fNarrow = IsNarrow(low, high);
        return low <= threshold && threshold < high;
    }

    // Whether a row belongs left, given the part it now lies in. The two comparisons differ
    // deliberately: the reference implementation's left cursor stops at !(value <= threshold), its
    // right cursor at !(value > threshold). They disagree only for a threshold of NaN, for which
    // both cursors stop at every row.
    bool BelongsLeft(double value, bool fInLeftPart) const {
        return fInLeftPart ? value <= threshold : !(value > threshold);
    }
};

// Sets the slices of a node's children. The left child's rows come first.
inline void SplitSlice(const GrownNode& node, int countL, GrownNode (&children)[2]) {
    children[0].startDoc = node.startDoc;
    children[0].countDoc = countL;
    children[1].startDoc = node.startDoc + countL;
    children[1].countDoc = node.countDoc - countL;
}

// Turns a leaf into an inner node of a tree that has `numNodes` nodes. Its children get the next
// two numbers. Throws std::length_error if these are no ints.
inline void RecordSplit(const SplitPoint& split, size_t numNodes, GrownNode& node) {
    if (numNodes > size_t{INT_MAX} - 1) throw std::length_error("a tree has too many nodes");
    const int firstChild = static_cast<int>(numNodes);
    node.splitFea = split.column;
    node.splitElemFea = split.threshold;
    node.fNarrow = split.fNarrow;
    node.countL = split.countL;
    node.lson = firstChild;
    node.rson = firstChild + 1;
}

}  // namespace engine
}  // namespace sylvora

#endif  // SYLVORA_ENGINE_TRAIN_GROWNTREE_H

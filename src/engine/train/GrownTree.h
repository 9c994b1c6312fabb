// A tree as the engine grows it, and the limits that it grows within.
#ifndef SYLVORA_ENGINE_TRAIN_GROWNTREE_H
#define SYLVORA_ENGINE_TRAIN_GROWNTREE_H

#include <algorithm>
#include <cstddef>

#include "NarrowSplit.h"

namespace sylvora {
namespace engine {

struct GrowthLimits {
    int maxLeaf;
    int maxDepth;
    int numBound;
    int numSelFea;  // columns drawn per node
    bool fForest;   // neither maxLeaf nor maxDepth counts

    // How many of `numOpen` nodes of a level are taken at once by a tree of `numLeaf` leaves: as
    // many as the leaf limit may still allow to be split, so that no column is drawn for a node
    // that the limit closes.
    size_t BatchSize(size_t numOpen, int numLeaf) const {
        if (fForest) return numOpen;
        return std::min(numOpen, static_cast<size_t>(std::max(maxLeaf - numLeaf, 1)));
    }
};

// One node as grown; the words are those of NodeCR.
struct GrownNode {
    int startDoc = 0;
    int countDoc = 0;
    int parent = -1;
    int depth = 0;
    int splitFea = -1;
    double splitElemFea = -1.0;
    int lson = -1;
    int rson = -1;
    int countL = 0;
    double gradAll = 0.0;
    int wgtAll = 0;
    int majority = -1;     // classification: the class of the most rows
    bool fNarrow = false;  // of the split; see NarrowSplit.h
};

// A cut with its threshold, as the plain form records it.
struct SplitPoint {
    int column = -1;
    double threshold = -1.0;
    int countL = 0;
    bool fNarrow = false;     // see NarrowSplit.h
    bool fSlicesTrue = true;  // rows at or below the threshold are exactly those of the left part

    // Puts the threshold between the neighbouring values `low` and `high`; false where it is not:
    // the midpoint of neighbouring doubles can round up to the higher one, or overflow.
    bool SetThreshold(double low, double high) {
        threshold = (low + high) * 0.5;
        fNarrow = IsNarrow(low, high);
        return low <= threshold && threshold < high;
    }

    // Whether a row that now stands in the left part, or in the right one, belongs left. The plain
    // form's cursors ask two questions: is a row of the left part not at or below the threshold,
    // and is one of the right part not above it? For a threshold of NaN (between infinities) both
    // are so.
    bool BelongsLeft(double value, bool fInLeftPart) const {
        return fInLeftPart ? value <= threshold : !(value > threshold);
    }
};

// The slices of a node's sons.
inline void CutSlice(const GrownNode& node, int countL, GrownNode (&sons)[2]) {
    sons[0].startDoc = node.startDoc;
    sons[0].countDoc = countL;
    sons[1].startDoc = node.startDoc + countL;
    sons[1].countDoc = node.countDoc - countL;
}

// Makes a leaf an inner node, whose sons come next as numbers `firstSon` and firstSon + 1.
inline void RecordSplit(const SplitPoint& split, int firstSon, GrownNode& node) {
    node.splitFea = split.column;
    node.splitElemFea = split.threshold;
    node.fNarrow = split.fNarrow;
    node.countL = split.countL;
    node.lson = firstSon;
    node.rson = firstSon + 1;
}

}  // namespace engine
}  // namespace sylvora

#endif  // SYLVORA_ENGINE_TRAIN_GROWNTREE_H

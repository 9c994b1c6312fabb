// A shallow tree, padded so that all its leaves have the same depth.
//
// Positions are numbered as in a heap: the root is 1, and the children of i are 2 * i and 2 * i
// + 1. A leaf above the lowest level is extended by tests that send every row left.
#ifndef SYLVORA_ENGINE_SCORE_PADDEDTREE_H
#define SYLVORA_ENGINE_SCORE_PADDEDTREE_H

#include <vector>

#include "BlockKernel.h"
#include "EnsembleSource.h"
#include "RowQuantiser.h"
#include "base/CacheLines.h"

namespace sylvora {
namespace engine {

// A view of `nodes`, which must outlive it. Used only while an ensemble is compiled.
class PaddedTree {
  public:
    // `depth` is at least that of the tree. A test against NaN sends every row right; it is
    // replaced by its right child.
    PaddedTree(const PackedNode* nodes, int depth);

    int Depth() const { return depth; }
    // Calls visit(splitFea, threshold) for each test, padding excluded.
    template <typename Visitor>
    void ForEachTest(const Visitor& visit) const {
        for (size_t i = 1; i < End(); ++i) {
            if (IsTest(i)) visit(nodeV[i]->splitFea, nodeV[i]->splitElemFea);
        }
    }
    // Writes the tree's tests into one lane of testsV, which is indexed by position and filled with
    // kAlwaysLeft tests before. `quantiser` has the thresholds of all tests.
    void FillRowTests(const RowQuantiser& quantiser, int lane, RowTests* testsV) const;
    // Appends the 2^depth leaf values from left to right; 0 where no row arrives.
    void AppendValues(LineVector<double>& valueV) const;
    // Appends the subtrees that the block kernel evaluates, in its order. The depth is at least
    // three.
    void AppendSubtrees(const RowQuantiser& quantiser, std::vector<LeafSubtree>& leafSubtreeV,
                        std::vector<InnerSubtree>& innerSubtreeV) const;

  private:
    size_t End() const { return nodeV.size() / 2; }
    bool IsTest(size_t i) const { return nodeV[i] != nullptr && !nodeV[i]->IsLeaf(); }
    SubtreeTests Tests(const RowQuantiser& quantiser, size_t top, int numLevels) const;

    int depth;
    std::vector<const PackedNode*> nodeV;  // by position; null if no row arrives
};

}  // namespace engine
}  // namespace sylvora

#endif  // SYLVORA_ENGINE_SCORE_PADDEDTREE_H

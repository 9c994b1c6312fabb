// A shallow tree, padded until all its leaves lie at one depth.
//
// Positions are numbered as in a heap: the root is 1 and the sons of i are 2 * i and 2 * i + 1. A
// leaf that lies higher is continued to the left, by tests that nothing passes to the right.
#ifndef SYLVORA_ENGINE_SCORE_PADDEDTREE_H
#define SYLVORA_ENGINE_SCORE_PADDEDTREE_H

#include <vector>

#include "BlockKernel.h"
#include "EnsembleSource.h"
#include "ThresholdCodes.h"
#include "base/CacheLines.h"

namespace sylvora {
namespace engine {

class PaddedTree {
  public:
    // `depth` is at least that of the tree.
    PaddedTree(const PackedNode* nodes, int depth);

    int Depth() const { return depth; }
    // Calls visit(splitFea, threshold) for each test.
    template <typename Visitor>
    void ForEachTest(const Visitor& visit) const {
        for (size_t i = 1; i < End(); ++i) {
            if (IsTest(i)) visit(nodeV[i]->splitFea, nodeV[i]->splitElemFea);
        }
    }
    // Writes the tree's tests into a lane of those of many trees.
    void FillRowTests(const ThresholdCodes& codes, int lane, RowTests* testsV) const;
    // The leaves' values from left to right, 2^depth of them; 0 where no row arrives.
    void AppendValues(LineVector<double>& valueV) const;
    // The chunks of the tree's program, which must be at least three levels deep.
    void AppendChunks(const ThresholdCodes& codes, std::vector<LeafChunk>& leafChunkV,
                      std::vector<JoinChunk>& joinV) const;

  private:
    size_t End() const { return nodeV.size() / 2; }
    bool IsTest(size_t i) const { return nodeV[i] != nullptr && !nodeV[i]->IsLeaf(); }
    ChunkTests Tests(const ThresholdCodes& codes, size_t top, int numLevels) const;

    int depth;
    std::vector<const PackedNode*> nodeV;  // by position; null where no row arrives
};

}  // namespace engine
}  // namespace sylvora

#endif  // SYLVORA_ENGINE_SCORE_PADDEDTREE_H

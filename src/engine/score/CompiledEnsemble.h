// An ensemble in the forms that it is scored with. Made once, when a model is loaded or trained;
// only read afterwards, by any number of threads.
//
// Trees of up to eight levels are coded: a row is first turned into ranks among the thresholds of a
// section (a run of trees), then all tests are comparisons of small integers. One row takes the
// tests of many trees side by side (RowLeaves.h); many rows take the chunks of the block kernel
// (BatchScoring.h). Other trees, and those of a section with more features to look up than trees to
// gain by it, are walked (NodeWalk.h).
#ifndef SYLVORA_ENGINE_SCORE_COMPILEDENSEMBLE_H
#define SYLVORA_ENGINE_SCORE_COMPILEDENSEMBLE_H

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

#include "BlockKernel.h"
#include "EnsembleSource.h"
#include "NodeWalk.h"
#include "ThresholdCodes.h"
#include "base/CacheLines.h"

namespace sylvora {
namespace engine {

// Consecutive trees of one form that are evaluated together.
struct Bundle {
    size_t firstTree;
    int numTrees;
    int section;        // -1: walked
    int depth;          // coded: of all its trees, padded
    size_t firstTests;  // coded: 2^depth of rowTestsV
    int firstLane;      // coded: in them; 0, or kBundleTrees: the bundle before has the others
    size_t firstLeaf;   // coded: 2^depth for each tree of leafValueV
    size_t firstPiece;
    size_t endPiece;

    bool IsCoded() const { return section >= 0; }
    // Whether one row can go through both at once.
    bool PairsWith(const Bundle& next) const {
        return numTrees == kBundleTrees && section == next.section && depth == next.depth;
    }
    size_t EndTree() const { return firstTree + static_cast<size_t>(numTrees); }
};

// What a bundle has of a group, or several whole groups of one tree each.
struct GroupPiece {
    int firstTree;  // counted from the bundle's first
    int numTrees;
    bool fSingles;  // each tree is a group
    bool fEnd;      // the group ends here
    double shrink;  // of a group that ends, as is numGroupTrees
    double numGroupTrees;
};

struct CompiledEnsemble {
    // Null where the ensemble has to be scored in the plain form: a tree that no walk gets through,
    // a class that does not exist, or a NaN other than the one that arithmetic makes, for which
    // the order of operands would show in the result.
    static std::unique_ptr<const CompiledEnsemble> Compile(const EnsembleSource& source,
                                                           const BlockKernel& kernel);

    const BlockKernel* kernel = nullptr;
    int numClass = 0;
    std::vector<double> shrinkV;  // by tree: its group's
    std::vector<Bundle> bundleV;  // in the order of the trees
    std::vector<GroupPiece> pieceV;
    // Coded trees.
    std::vector<ThresholdCodes> sectionV;
    LineVector<RowTests> rowTestsV;
    LineVector<double> leafValueV;
    std::vector<LeafChunk> leafChunkV;
    std::vector<JoinChunk> joinV;
    std::vector<BlockTree> blockTreeV;  // by tree
    // Walked trees.
    WalkedTrees walked;
    std::vector<uint32_t> rootV;  // by tree
};

}  // namespace engine
}  // namespace sylvora

#endif  // SYLVORA_ENGINE_SCORE_COMPILEDENSEMBLE_H

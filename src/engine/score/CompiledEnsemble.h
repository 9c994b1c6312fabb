// An ensemble, compiled for scoring. Compiled once, when a model is loaded or trained; constant
// afterwards, so any number of threads may score with it.
//
// A tree of up to eight levels is coded: rows are quantised to threshold ranks (RowQuantiser.h),
// and each test is a comparison of bytes (BlockKernel.h). Coded trees share quantisers: each serves
// a run of coded trees, as many as its limits on thresholds and bands allow. One row goes through
// many trees at once (RowLeaves.h); many rows go through one tree at once (BatchScoring.h).
//
// All other trees are walked, node by node (NodeWalk.h): deeper ones, those whose quantiser would
// have more features than trees, and those whose padding would take too much memory.
#ifndef SYLVORA_ENGINE_SCORE_COMPILEDENSEMBLE_H
#define SYLVORA_ENGINE_SCORE_COMPILEDENSEMBLE_H

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

#include "BlockKernel.h"
#include "EnsembleSource.h"
#include "NodeWalk.h"
#include "RowQuantiser.h"
#include "base/CacheLines.h"

namespace sylvora {
namespace engine {

// Up to kBundleTrees consecutive trees that are evaluated together: all walked, or all coded with
// the same quantiser. Bundles come in the order of the trees and cover them all. Two coded bundles
// can share the lanes of a row test (see PairsWith).
struct Bundle {
    size_t firstTree;
    int numTrees;
    int quantiser;      // index into quantiserV; -1: walked
    int depth;          // coded: of all its trees, after padding
    size_t firstTests;  // coded: of 2^depth in rowTestsV
    int firstLane;      // coded: 0, or kBundleTrees for the second bundle of a pair
    size_t firstLeaf;   // coded: of 2^depth per tree in leafValueV
    size_t firstPiece;  // of pieceV, up to endPiece
    size_t endPiece;

    bool IsCoded() const { return quantiser >= 0; }
    // Whether the row kernel can evaluate this bundle and the next one in one call.
    bool PairsWith(const Bundle& next) const {
        return numTrees == kBundleTrees && quantiser == next.quantiser && depth == next.depth;
    }
    size_t EndTree() const { return firstTree + static_cast<size_t>(numTrees); }
};

// The trees of one group that lie in one bundle; or several consecutive groups of one tree each,
// which are scored without a sum. A group without trees has a piece without trees.
struct GroupPiece {
    int firstTree;  // index within the bundle
    int numTrees;
    bool fSingles;  // each tree is a group
    bool fEnd;      // the group ends here
    double shrink;  // of the group; unused with fSingles, as is numGroupTrees
    double numGroupTrees;
};

struct CompiledEnsemble {
    // Compiles an ensemble; `source` is not needed afterwards, `kernel` is. Returns null if only
    // the reference implementation may score it: a tree with invalid links, features or classes, or
    // a NaN other than the default one of the processor (the sum of two different NaNs depends on
    // the order of the operands).
    static std::unique_ptr<const CompiledEnsemble> Compile(const EnsembleSource& source,
                                                           const BlockKernel& kernel);

    const BlockKernel* kernel = nullptr;
    int numClass = 0;
    std::vector<double> shrinkV;  // by tree: its group's
    std::vector<Bundle> bundleV;  // in the order of the trees; at least one
    std::vector<GroupPiece> pieceV;
    // Coded trees. The last three serve the block kernel, rowTestsV the row kernel.
    std::vector<RowQuantiser> quantiserV;
    LineVector<RowTests> rowTestsV;
    LineVector<double> leafValueV;
    std::vector<LeafSubtree> leafSubtreeV;
    std::vector<InnerSubtree> innerSubtreeV;
    std::vector<BlockTree> blockTreeV;  // by tree; empty programs for walked ones
    // Walked trees.
    WalkedTrees walked;
    std::vector<uint32_t> rootV;  // by tree; 0 for coded ones
};

}  // namespace engine
}  // namespace sylvora

#endif  // SYLVORA_ENGINE_SCORE_COMPILEDENSEMBLE_H

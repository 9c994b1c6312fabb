// Cutting bundles to some groups; see GroupRange.h.
#include "GroupRange.h"

#include <algorithm>

namespace sylvora {
namespace engine {
namespace {

// Cuts a piece that begins with the group `group` to the groups [first, end). Returns false if
// nothing is left, and sets `group` to the one that follows the piece.
bool CutPiece(GroupPiece& piece, size_t first, size_t end, size_t& group) {
    const size_t begin = group;
    if (!piece.fSingles) {
        group += piece.fEnd;
        return first <= begin && begin < end;
    }
    group += static_cast<size_t>(piece.numTrees);
    const size_t from = std::clamp(first, begin, group);
    const size_t to = std::clamp(end, from, group);
    piece.firstTree += static_cast<int>(from - begin);
    piece.numTrees = static_cast<int>(to - from);
    return from < to;
}

}  // namespace

GroupRange::GroupRange(const CompiledEnsemble& ensemble, size_t first, size_t end) {
    size_t group = 0;
    int quantiser = -1;
    for (const Bundle& whole : ensemble.bundleV) {
        if (group >= end) break;
        Bundle bundle = whole;
        bundle.firstPiece = pieceV.size();
        for (size_t k = whole.firstPiece; k < whole.endPiece; ++k) {
            GroupPiece piece = ensemble.pieceV[k];
            if (CutPiece(piece, first, end, group)) pieceV.push_back(piece);
        }
        bundle.endPiece = pieceV.size();
        if (bundle.firstPiece == bundle.endPiece) continue;
        // The pieces of a bundle have consecutive trees.
        const int skipped = pieceV[bundle.firstPiece].firstTree;
        bundle.numTrees = pieceV.back().firstTree + pieceV.back().numTrees - skipped;
        bundle.firstTree += static_cast<size_t>(skipped);
        if (bundle.IsCoded()) bundle.firstLeaf += static_cast<size_t>(skipped) << bundle.depth;
        for (size_t k = bundle.firstPiece; k < bundle.endPiece; ++k) pieceV[k].firstTree -= skipped;
        numTrees += static_cast<size_t>(bundle.numTrees);
        if (bundle.IsCoded() && bundle.quantiser != quantiser) {
            quantiser = bundle.quantiser;
            const RowQuantiser& used = ensemble.quantiserV[static_cast<size_t>(quantiser)];
            numFeatures += static_cast<size_t>(used.NumFeatures());
        }
        bundleV.push_back(bundle);
    }
}

}  // namespace engine
}  // namespace sylvora

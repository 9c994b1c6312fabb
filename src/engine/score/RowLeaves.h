// Finds the leaves that one row reaches, a few trees at a time.
#ifndef SYLVORA_ENGINE_SCORE_ROWLEAVES_H
#define SYLVORA_ENGINE_SCORE_ROWLEAVES_H

#include <cstddef>
#include <cstdint>

#include "CompiledEnsemble.h"

namespace sylvora {
namespace engine {

// The leaves that a row reaches in consecutive trees, and the values of all leaves of those trees.
// A view: RowLeaves and CompiledEnsemble own the arrays, and RowLeaves::Next() overwrites them.
template <typename Leaf>
struct TreeLeaves {
    const Leaf* leafV;     // by tree; leaf numbers or, in walked trees, node indices
    const double* valueV;  // of the first tree
    size_t numApart;       // values per tree; 0 if all trees share one numbering

    double Value(size_t t) const { return valueV[t * numApart + leafV[t]]; }
    TreeLeaves From(size_t t) const { return {leafV + t, valueV + t * numApart, numApart}; }
};
using CodedLeaves = TreeLeaves<uint8_t>;
using WalkedLeaves = TreeLeaves<uint32_t>;

// Evaluates one or two bundles at a time, on demand, so that a vote that ends early does not pay
// for all trees. Coded bundles are evaluated one step ahead: while the caller fetches and adds up
// the values of one step, the processor already works on the leaves of the next.
//
// Use either Next() with the accessors below it, or Value(); not both on one object. For one
// thread; create one per row, on the stack. Allocates nothing.
class RowLeaves {
  public:
    // `row` has a value for every column of the ensemble; both must outlive this object.
    RowLeaves(const CompiledEnsemble& compiled, const double* values)
        : ensemble(compiled), row(values) {
        LookAhead(0);
    }

    // Moves on to the next bundles, [FirstBundle(), EndBundle()); they are one walked bundle, or
    // one or two coded ones. Returns false at the end.
    bool Next();
    const Bundle* FirstBundle() const { return ensemble.bundleV.data() + Current().firstBundle; }
    const Bundle* EndBundle() const { return ensemble.bundleV.data() + Current().endBundle; }
    // The leaves reached in the trees of these bundles.
    CodedLeaves Coded() const {
        const Bundle& first = *FirstBundle();
        // The first of two bundles is full and has the same depth, so the leaf numbers and the
        // values of the second one follow directly.
        return {Current().leafV, ensemble.leafValueV.data() + first.firstLeaf,
                size_t{1} << first.depth};
    }
    WalkedLeaves Walked() const { return {walkedV, ensemble.walked.Values().data(), 0}; }

    // The value of the leaf that the row reaches in `tree`. Call with ascending trees; bundles in
    // between that are not needed are skipped.
    double Value(size_t tree) {
        while (tree >= endTree) SkipTo(tree);
        return valueV[tree - FirstBundle()->firstTree];
    }

  private:
    // One or two bundles that are evaluated together.
    struct BundlePair {
        size_t firstBundle;
        size_t endBundle;
        uint8_t leafV[kRowTrees];  // of coded bundles
    };

    const BundlePair& Current() const { return pairV[current]; }
    void SkipTo(size_t tree);
    void LookAhead(size_t bundle);
    void FindLeaves(const Bundle& bundle, uint8_t* leafV);
    void Walk(const Bundle& bundle);

    const CompiledEnsemble& ensemble;
    const double* row;
    BundlePair pairV[2];
    int current = 0;                 // the pair at hand; the other is the one ahead
    size_t endTree = 0;              // of the pair at hand
    int quantiser = -1;              // of codeV
    uint32_t walkedV[kBundleTrees];  // leaves of the walked bundle at hand
    double valueV[kRowTrees];        // of the pair at hand; only for Value()
    alignas(kTableBands) int8_t codeV[RowQuantiser::kMaxRowBytes];
};

}  // namespace engine
}  // namespace sylvora

#endif  // SYLVORA_ENGINE_SCORE_ROWLEAVES_H

// The leaves that one row reaches, tree by tree.
#ifndef SYLVORA_ENGINE_SCORE_ROWLEAVES_H
#define SYLVORA_ENGINE_SCORE_ROWLEAVES_H

#include <cstddef>
#include <cstdint>

#include "CompiledEnsemble.h"

namespace sylvora {
namespace engine {

// Which leaves a row reaches in some trees, and all values of the leaves of those trees.
template <typename Leaf>
struct TreeLeaves {
    const Leaf* leafV;     // by tree
    const double* valueV;  // the leaves of the first tree
    size_t numApart;       // from one tree's to the next one's; 0: numbers are counted through

    double Value(size_t t) const { return valueV[t * numApart + leafV[t]]; }
    TreeLeaves From(size_t t) const { return {leafV + t, valueV + t * numApart, numApart}; }
};
using CodedLeaves = TreeLeaves<uint8_t>;
using WalkedLeaves = TreeLeaves<uint32_t>;

// Bundles are evaluated one or two at a time, when it comes to them, so that a vote that ends early
// does not pay for all trees. Coded ones are one step ahead: while the values of some
// leaves are fetched and added up, the processor is at work on the next leaves. Lives on the stack
// and allocates nothing.
class RowLeaves {
  public:
    // `row` has a value for every column of the ensemble; both must outlive this object.
    RowLeaves(const CompiledEnsemble& compiled, const double* values)
        : ensemble(compiled), row(values) {
        LookAhead(0);
    }

    // Goes on to the bundles that come next, [FirstBundle(), EndBundle()), which are all coded or
    // all walked; false when there are none.
    bool Next();
    const Bundle* FirstBundle() const { return ensemble.bundleV.data() + Now().firstBundle; }
    const Bundle* EndBundle() const { return ensemble.bundleV.data() + Now().endBundle; }
    // The leaves reached in the trees of these bundles.
    CodedLeaves Coded() const {
        const Bundle& first = *FirstBundle();
        // The first of two bundles is full, so that the second one's leaves follow.
        return {Now().leafV, ensemble.leafValueV.data() + first.firstLeaf,
                size_t{1} << first.depth};
    }
    WalkedLeaves Walked() const { return {walkedV, ensemble.walked.Values().data(), 0}; }

    // The value of the leaf reached in `tree`. Trees are asked for in rising order; some may be
    // left out.
    double Value(size_t tree) {
        while (tree >= endTree) SkipTo(tree);
        return valueV[tree - FirstBundle()->firstTree];
    }

  private:
    // Bundles that are evaluated together.
    struct Stretch {
        size_t firstBundle;
        size_t endBundle;
        uint8_t leafV[kRowTrees];  // coded
    };

    const Stretch& Now() const { return stretchV[now]; }
    void SkipTo(size_t tree);
    void LookAhead(size_t bundle);
    void FindLeaves(const Bundle& bundle, uint8_t* leafV);
    void Walk(const Bundle& bundle);

    const CompiledEnsemble& ensemble;
    const double* row;
    Stretch stretchV[2];
    int now = 0;  // the other one is the next
    size_t endTree = 0;
    int section = -1;  // that codeV belongs to
    uint32_t walkedV[kBundleTrees];
    double valueV[kRowTrees];  // what Value() gives
    alignas(kTableBands) int8_t codeV[ThresholdCodes::kMostRowBytes];
};

}  // namespace engine
}  // namespace sylvora

#endif  // SYLVORA_ENGINE_SCORE_ROWLEAVES_H

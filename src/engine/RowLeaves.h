// The leaves that one row reaches, tree by tree.
#ifndef SYLVORA_ENGINE_ROWLEAVES_H
#define SYLVORA_ENGINE_ROWLEAVES_H

#include <cstddef>
#include <cstdint>

#include "CompiledEnsemble.h"

namespace sylvora {
namespace engine {

// Bundles are evaluated one or two at a time, when it comes to them: a vote that ends early costs
// no more than what is left of them. Lives on the stack and allocates nothing.
class RowLeaves {
  public:
    // `row` has a value for every column of the ensemble; both must outlive this object.
    RowLeaves(const CompiledEnsemble& compiled, const double* values)
        : ensemble(compiled), row(values) {}

    // Evaluates the bundles that come next, [FirstBundle(), EndBundle()); false when there are
    // none.
    bool Next();
    const Bundle* FirstBundle() const { return ensemble.bundleV.data() + firstBundle; }
    const Bundle* EndBundle() const { return ensemble.bundleV.data() + endBundle; }
    // The values of the leaves reached in the trees of one of these bundles.
    const double* Values(const Bundle& bundle) const {
        return valueV + (bundle.firstTree - FirstBundle()->firstTree);
    }

    // The value of the leaf reached in `tree`. Trees are asked for in rising order; some may be
    // left out.
    double Value(size_t tree) {
        while (tree >= endTree) SkipTo(tree);
        return valueV[tree - FirstBundle()->firstTree];
    }

  private:
    void SkipTo(size_t tree);
    void EvaluateCoded();
    void EvaluateWalked();

    const CompiledEnsemble& ensemble;
    const double* row;
    size_t firstBundle = 0;
    size_t endBundle = 0;
    size_t endTree = 0;
    int section = -1;  // that codeV belongs to
    double valueV[2 * kBundleTrees];
    alignas(kTableBands) uint8_t codeV[kMaxBands];
};

}  // namespace engine
}  // namespace sylvora

#endif  // SYLVORA_ENGINE_ROWLEAVES_H

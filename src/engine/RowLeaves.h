// The leaves that one row reaches, tree by tree.
#ifndef SYLVORA_ENGINE_ROWLEAVES_H
#define SYLVORA_ENGINE_ROWLEAVES_H

#include <cstddef>
#include <cstdint>

#include "CompiledEnsemble.h"

namespace sylvora {
namespace engine {

// Evaluates a bundle when its first tree is asked for, so that a vote that ends early costs no more
// than the rest of a bundle. Lives on the stack and allocates nothing.
class RowLeaves {
  public:
    // `row` has a value for every column of the ensemble; both must outlive this object.
    RowLeaves(const CompiledEnsemble& compiled, const double* values)
        : ensemble(compiled), row(values) {}

    // The value of the leaf reached in `tree`. Trees are asked for in rising order; some may be
    // left out.
    double Value(size_t tree) {
        if (tree >= endTree) Evaluate(tree);
        return valueV[tree - firstTree];
    }

  private:
    void Evaluate(size_t tree);
    void EvaluateCoded(const Bundle& bundle);
    void EvaluateWalked(const Bundle& bundle);

    const CompiledEnsemble& ensemble;
    const double* row;
    size_t nextBundle = 0;
    size_t firstTree = 0;  // of the bundle whose values are at hand
    size_t endTree = 0;
    int section = -1;  // that codeV belongs to
    double valueV[kBundleTrees];
    uint32_t codeV[kMaxSectionFeatures];
};

}  // namespace engine
}  // namespace sylvora

#endif  // SYLVORA_ENGINE_ROWLEAVES_H

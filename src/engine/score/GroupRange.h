// Consecutive groups of a compiled ensemble.
#ifndef SYLVORA_ENGINE_SCORE_GROUPRANGE_H
#define SYLVORA_ENGINE_SCORE_GROUPRANGE_H

#include <cstddef>
#include <vector>

#include "CompiledEnsemble.h"

namespace sylvora {
namespace engine {

// The bundles and pieces of these groups, as CompiledEnsemble has those of all groups, for the
// block kernel: the members of a bundle that serve the row kernel are not set.
struct GroupRange {
    // The groups [first, end), which must exist.
    GroupRange(const CompiledEnsemble& ensemble, size_t first, size_t end);

    std::vector<Bundle> bundleV;
    std::vector<GroupPiece> pieceV;
    size_t numTrees = 0;
    size_t numFeatures = 0;  // of the quantisers of its trees, all together
};

}  // namespace engine
}  // namespace sylvora

#endif  // SYLVORA_ENGINE_SCORE_GROUPRANGE_H

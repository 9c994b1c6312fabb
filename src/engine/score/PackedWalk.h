// Walks packed trees as they are, for what is not worth compiling.
#ifndef SYLVORA_ENGINE_SCORE_PACKEDWALK_H
#define SYLVORA_ENGINE_SCORE_PACKEDWALK_H

#include "PackedTrees.h"

namespace sylvora {
namespace engine {

// Sets atV[i] to the number of the leaf that row rowV[i] reaches, for `numRows` rows. The links of
// the tree must be valid. Rows have a value for each column that the tree tests, and at least one.
void FindLeaves(const PackedTree& tree, const double* const* rowV, int numRows, int* atV);

}  // namespace engine
}  // namespace sylvora

#endif  // SYLVORA_ENGINE_SCORE_PACKEDWALK_H

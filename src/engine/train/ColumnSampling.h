// The columns that nodes try, drawn as the plain form's built-in sampler draws them.
#ifndef SYLVORA_ENGINE_TRAIN_COLUMNSAMPLING_H
#define SYLVORA_ENGINE_TRAIN_COLUMNSAMPLING_H

#include <cstddef>
#include <vector>

namespace sylvora {
namespace engine {

// The draws of `numNodes` nodes, one node after the other: numDrawn columns each, or all numColumns
// where that is fewer. `seed` is the state word of the draws.
std::vector<int> DrawColumns(int numColumns, int numDrawn, size_t numNodes, long* seed);

}  // namespace engine
}  // namespace sylvora

#endif  // SYLVORA_ENGINE_TRAIN_COLUMNSAMPLING_H

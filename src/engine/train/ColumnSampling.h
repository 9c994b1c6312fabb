// Sampling of the columns that a node tries, with the draws of the reference implementation's
// built-in sampler.
#ifndef SYLVORA_ENGINE_TRAIN_COLUMNSAMPLING_H
#define SYLVORA_ENGINE_TRAIN_COLUMNSAMPLING_H

#include <cstddef>
#include <vector>

namespace sylvora {
namespace engine {

// Draws numDrawn distinct columns for each of `numNodes` nodes, one node after the other; all
// numColumns where that is fewer. Returns the columns, node by node. `seed` is the state of the
// random generator; it moves on.
std::vector<int> DrawColumns(int numColumns, int numDrawn, size_t numNodes, long* seed);

}  // namespace engine
}  // namespace sylvora

#endif  // SYLVORA_ENGINE_TRAIN_COLUMNSAMPLING_H

// The order of the reference implementation's sort, of as many rows as a sum needs.
#ifndef SYLVORA_ENGINE_TRAIN_REFERENCEORDER_H
#define SYLVORA_ENGINE_TRAIN_REFERENCEORDER_H

#include <cstdint>

namespace sylvora {
namespace engine {

// Keys past the last one that SortFirst may read.
constexpr int kReferenceOrderSlack = 64;

// Sorts (rank, item) keys (KeySort.h) by rank, keys of a rank in the order in which R_tsort_I
// (Sort.h) leaves them, but only as far as the first `numFirst`: the other keys end up behind
// these in any order. Ranks are below 2^31. Allocates nothing.
void SortFirst(uint64_t* keyV, int count, int numFirst);

}  // namespace engine
}  // namespace sylvora

#endif  // SYLVORA_ENGINE_TRAIN_REFERENCEORDER_H

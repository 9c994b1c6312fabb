// Sorting of (rank, item) keys; an item is a row or a place.
#ifndef SYLVORA_ENGINE_TRAIN_KEYSORT_H
#define SYLVORA_ENGINE_TRAIN_KEYSORT_H

#include <cstdint>
#include <vector>

namespace sylvora {
namespace engine {

inline uint64_t KeyOf(uint32_t rank, int item) {
    return (static_cast<uint64_t>(rank) << 32) | static_cast<uint32_t>(item);
}
inline uint32_t RankOf(uint64_t key) {
    return static_cast<uint32_t>(key >> 32);
}
inline int ItemOf(uint64_t key) {
    return static_cast<int>(static_cast<uint32_t>(key));
}

// Sorts by rank; keys of one rank keep their order if their items rise. `other` is room to work in.
// For vectors and large arrays of keys.
template <typename Keys>
void SortKeys(Keys& keyV, Keys& other);

}  // namespace engine
}  // namespace sylvora

#endif  // SYLVORA_ENGINE_TRAIN_KEYSORT_H

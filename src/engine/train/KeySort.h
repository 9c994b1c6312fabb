// Sorting by (rank, item) keys. An item is a row, or a row's position in its node.
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

// Sorts distinct keys by rank. The sort is stable if the items ascend. `other` is a buffer; its
// contents are lost. For std::vector and LargeArray.
template <typename Keys>
void SortKeys(Keys& keyV, Keys& other);

}  // namespace engine
}  // namespace sylvora

#endif  // SYLVORA_ENGINE_TRAIN_KEYSORT_H

// The reference split search, as the engine calls it to resolve near-ties.
#ifndef SYLVORA_ENGINE_TRAIN_REFERENCESEARCH_H
#define SYLVORA_ENGINE_TRAIN_REFERENCESEARCH_H

#include <vector>

#include "GrownTree.h"
#include "RowSets.h"

namespace sylvora {
namespace engine {

// Searches some slots of a regression node as the reference implementation does. `rows` are in its
// row order. `columnV` is indexed by slot; `slotV` lists the slots to search, ascending. Returns
// column -1 if there is no split. Thread-safe.
class ReferenceSearch {
  public:
    virtual ~ReferenceSearch() = default;
    virtual SplitPoint Search(const GrownNode& node, const RowSlice& rows, const int* columnV,
                              const std::vector<int>& slotV) const = 0;
};

}  // namespace engine
}  // namespace sylvora

#endif  // SYLVORA_ENGINE_TRAIN_REFERENCESEARCH_H

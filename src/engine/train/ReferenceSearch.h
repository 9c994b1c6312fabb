// The plain form as the engine sees it: a judge for what fast sums cannot decide.
#ifndef SYLVORA_ENGINE_TRAIN_REFERENCESEARCH_H
#define SYLVORA_ENGINE_TRAIN_REFERENCESEARCH_H

#include <vector>

#include "GrownTree.h"
#include "RowSets.h"

namespace sylvora {
namespace engine {

// The plain search of a regression node over some of its slots. The arrays hold the node's rows,
// weights null where all are 1. May be called by several workers at once.
class ReferenceSearch {
  public:
    virtual ~ReferenceSearch() = default;
    virtual SplitPoint Search(const GrownNode& node, const RowSlice& rows, const int* columnV,
                              const std::vector<int>& slotV) const = 0;
};

}  // namespace engine
}  // namespace sylvora

#endif  // SYLVORA_ENGINE_TRAIN_REFERENCESEARCH_H

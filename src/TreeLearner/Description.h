// What a model's description must have in common with the model.
#ifndef SYLVORA_TREELEARNER_DESCRIPTION_H
#define SYLVORA_TREELEARNER_DESCRIPTION_H

#include <cstddef>
#include <string>
#include <vector>

#include "../ModelText.h"
#include "ModelSource.h"

class TreeLearner;

namespace sylvora {

// In what the description does not fit the learner's ensemble, as the end of a sentence that begins
// with "The description"; empty if it fits. Throws std::bad_alloc.
std::string FindMisfit(const TreeLearner& learner, const ModelDescription& description);

// Reads what follows the model that `learner` has just read from `source`. Without a block the
// description is empty. Returns 0, or -1 after a message; `description` is then unchanged. Throws
// std::bad_alloc.
[[nodiscard]] int ReadDescription(ModelSource& source, const TreeLearner& learner,
                                  ModelDescription& description);

// The number of nodes of each tree, in order. Throws std::bad_alloc.
std::vector<size_t> TreeSizes(const TreeLearner& learner);

}  // namespace sylvora

#endif  // SYLVORA_TREELEARNER_DESCRIPTION_H

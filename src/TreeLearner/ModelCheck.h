// Whether a model file holds the ensemble in memory.
#ifndef SYLVORA_TREELEARNER_MODELCHECK_H
#define SYLVORA_TREELEARNER_MODELCHECK_H

#include <string>

#include "../TreeLearner.h"

namespace sylvora {

// Reads `file` and compares all that a model holds with the learner's, as far as `digits`
// significant digits tell. Returns 0, or -1 after a message that names the first difference. Holds
// one tree at a time. Throws std::bad_alloc.
[[nodiscard]] int CheckModelFile(const std::string& file, const TreeLearner& learner, int digits);

}  // namespace sylvora

#endif  // SYLVORA_TREELEARNER_MODELCHECK_H

// Verifies a model file against the ensemble in memory.
#ifndef SYLVORA_TREELEARNER_MODELCHECK_H
#define SYLVORA_TREELEARNER_MODELCHECK_H

#include <string>

#include "../TreeLearner.h"

namespace sylvora {

// Reads `file` and compares everything that a model stores with the learner's values, rounded to
// `digits` significant digits (6 or 17). Returns 0, or -1 after a message that names the first
// difference. Keeps only one tree in memory at a time. Throws std::bad_alloc.
[[nodiscard]] int CheckModelFile(const std::string& file, const TreeLearner& learner, int digits);

}  // namespace sylvora

#endif  // SYLVORA_TREELEARNER_MODELCHECK_H

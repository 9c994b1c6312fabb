// Models as texts in memory, and what a model may tell about itself beside its trees.
#ifndef SYLVORA_MODELTEXT_H
#define SYLVORA_MODELTEXT_H

#include <cstddef>
#include <string>
#include <utility>
#include <vector>

#include "Libdef.h"

namespace sylvora {

// The block behind a model; TreeLearner/ModelDescription.cpp has its grammar. All members are
// optional. Texts are UTF-8 by convention; any byte is kept.
struct ModelDescription {
    std::vector<std::string> columnV;  // names, one per column of the model, or empty
    std::vector<std::string> classV;   // names of the classes, in the order of their numbers
    std::string link;     // from score to prediction: "identity", "sigmoid", ..., or empty
    std::string missing;  // what was read as missing: "nan", "absent", a number, or empty
    int bestRound = 0;    // of early stopping, counted from 1; 0: none
    std::vector<std::pair<std::string, std::string>> settingV;  // parameter and value, in order
    // The rows of the training data that each node had: for each tree of the model, in order, for
    // each of its nodes. Empty, or complete.
    std::vector<int> coverV;
};

// Functions on a learner's model. All return 0, or -1 after a message. They change nothing that
// they were given after a failure, except that a learner whose load failed is unusable.
class SYLVORA_API ModelText {
  public:
    // The text that SaveModelFull writes, with 6 or 17 digits, and behind it, unless `description`
    // is null, its block.
    [[nodiscard]] static int Save(TreeLearner& learner, int digits,
                                  const ModelDescription* description, std::string& text);
    // The same, to `file`, which is replaced as a whole or left as it was.
    [[nodiscard]] static int SaveFile(TreeLearner& learner, int digits,
                                      const ModelDescription& description, const std::string& file);
    // LoadModelFull, which ignores descriptions, from memory or a file. Unless `description` is
    // null, a block that is cut, damaged or of another model is refused; without a block the result
    // is empty.
    [[nodiscard]] static int Load(const char* text, size_t size, TreeLearner& learner,
                                  ModelDescription* description);
    [[nodiscard]] static int LoadFile(const std::string& file, TreeLearner& learner,
                                      ModelDescription& description);
    // The rows per node of the trees that `learner` has trained, as coverV has them; empty for a
    // loaded model, and for packed trees without TrainingOptions::fCovers.
    [[nodiscard]] static int Covers(const TreeLearner& learner, std::vector<int>& coverV);
};

}  // namespace sylvora

#endif  // SYLVORA_MODELTEXT_H

// Models as texts in memory, and what a model may tell about itself beside its trees.
#ifndef SYLVORA_MODELTEXT_H
#define SYLVORA_MODELTEXT_H

#include <cstddef>
#include <string>
#include <utility>
#include <vector>

#include "Libdef.h"

namespace sylvora {

struct ModelOrigin;

// What the block behind a model says; ModelText/BlockWriter.cpp has the grammar of the block. All
// members are optional. Texts are UTF-8 by convention, and may have any bytes.
struct ModelDescription {
    std::vector<std::string> columnV;  // names, one per column of the model, or empty
    // Names of the classes: empty, or in a classification one per class, in the order of their
    // numbers; in a regression any, for example two for a loss that separates two classes.
    std::vector<std::string> classV;
    std::string link;     // from score to probability: "logit", ... (Links.h), or empty
    std::string missing;  // what was read as missing: "nan", "absent", a number, or empty
    int bestRound = 0;    // of early stopping, counted from 1; 0: none
    std::vector<std::pair<std::string, std::string>> settingV;  // parameter and value, in order
    // How many of the rows that a tree was grown on reach each node: for each tree of the model, in
    // order, for each of its nodes. Empty, or complete; that of a node is the sum of its
    // children's.
    std::vector<int> coverV;
};

// Functions on a learner's model. All return 0, or -1 after a message. After a failure the result
// argument is as it was, but a learner whose load failed is unusable. Save, SaveFile and Covers
// only read the learner; nobody may change it meanwhile.
class SYLVORA_API ModelText {
  public:
    // The text that SaveModelFull writes with 6 or 17 `digits` and, unless `description` is null,
    // its block. A description that does not fit the model is refused.
    [[nodiscard]] static int Save(TreeLearner& learner, int digits,
                                  const ModelDescription* description, std::string& text);
    // The same, to `file`, which is replaced as a whole or left as it was.
    [[nodiscard]] static int SaveFile(TreeLearner& learner, int digits,
                                      const ModelDescription& description, const std::string& file);
    // LoadModelFull from `size` bytes of memory, which are only read and only during the call.
    // `learner` must be fresh. Unless `description` is null, it receives what the block says, or
    // becomes empty if there is no block; a block that is cut off or damaged, or that belongs to
    // another model, is refused. With null, a block is ignored, as LoadModelFull ignores it.
    [[nodiscard]] static int Load(const char* text, size_t size, TreeLearner& learner,
                                  ModelDescription* description);
    // The same from a file, which is read once and from front to back, so it may be a pipe.
    [[nodiscard]] static int LoadFile(const std::string& file, TreeLearner& learner,
                                      ModelDescription& description);
    // The coverV of the trees that `learner` has trained; empty for a loaded model, and for packed
    // trees without TrainingOptions::fCovers.
    [[nodiscard]] static int Covers(const TreeLearner& learner, std::vector<int>& coverV);
};

}  // namespace sylvora

#endif  // SYLVORA_MODELTEXT_H

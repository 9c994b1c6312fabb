// The model file, read: its grammar is in ModelWriter.cpp. Line breaks do not matter here, and what
// follows the last node (the debug report) is never looked at.
#ifndef SYLVORA_TREELEARNER_MODELPARSER_H
#define SYLVORA_TREELEARNER_MODELPARSER_H

#include <cstddef>
#include <vector>

#include "../TreeLearner.h"
#include "ModelSource.h"
#include "engine/score/PackedTrees.h"

namespace sylvora {

// Where the trees of a model go, in the order of the file. The functions return 0, or -1 after a
// message, which ends the reading.
class ModelSink {
  public:
    virtual ~ModelSink() = default;
    // A group begins; its shrink is in the learner's StepLengthV.
    [[nodiscard]] virtual int BeginGroup() = 0;
    // Before memory is taken for so many nodes of the next tree.
    [[nodiscard]] virtual int TakeRoom(size_t numNodes) = 0;
    // The next tree of the group. Where reading ends inside a tree, `numClaimed` is more than
    // the nodes that were read: those for which room was made.
    [[nodiscard]] virtual int TakeTree(const std::vector<engine::PackedNode>& nodeV,
                                       size_t numClaimed) = 0;
};

// Read the first lines of a model into `learner`; then its shrinks, and the trees into `sink`.
// Return 0, or -1 after a message; what was read until then has been handed on. Throw
// std::bad_alloc.
[[nodiscard]] int ParseHead(ModelSource& source, TreeLearner& learner);
[[nodiscard]] int ParseGroups(ModelSource& source, TreeLearner& learner, ModelSink& sink);

}  // namespace sylvora

#endif  // SYLVORA_TREELEARNER_MODELPARSER_H

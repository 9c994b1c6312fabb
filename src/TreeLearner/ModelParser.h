// Parsing the model file; its grammar is in ModelWriter.cpp. Line breaks count as any other white
// space, and what follows the last node (the debug report) is never read.
#ifndef SYLVORA_TREELEARNER_MODELPARSER_H
#define SYLVORA_TREELEARNER_MODELPARSER_H

#include <cstddef>
#include <vector>

#include "../TreeLearner.h"
#include "ModelSource.h"
#include "engine/score/PackedTrees.h"

namespace sylvora {

// Receives the trees of a model, in the order of the file. The functions return 0, or -1 after a
// message, which ends the parsing.
class ModelSink {
  public:
    virtual ~ModelSink() = default;
    // A group begins; its shrink is in the learner's StepLengthV.
    [[nodiscard]] virtual int BeginGroup() = 0;
    // Called before memory for `numNodes` nodes of the next tree is allocated.
    [[nodiscard]] virtual int ReserveNodes(size_t numNodes) = 0;
    // The next tree of the group; `nodeV` is only lent. If the file ends or fails inside the tree,
    // `numClaimed` is the number of nodes that memory was reserved for, which may be more than were
    // read.
    [[nodiscard]] virtual int TakeTree(const std::vector<engine::PackedNode>& nodeV,
                                       size_t numClaimed) = 0;
};

// ParseHead reads the first three lines of a model into `learner`. ParseGroups, called next, reads
// the shrinks into `learner` and hands the trees to `sink`. Both return 0, or -1 after a message;
// what was read before the failure stays where it went. Both throw std::bad_alloc.
[[nodiscard]] int ParseHead(ModelSource& source, TreeLearner& learner);
[[nodiscard]] int ParseGroups(ModelSource& source, TreeLearner& learner, ModelSink& sink);

}  // namespace sylvora

#endif  // SYLVORA_TREELEARNER_MODELPARSER_H

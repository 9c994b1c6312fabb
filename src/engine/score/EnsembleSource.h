// The input of the compiler: an ensemble as it was loaded or trained.
#ifndef SYLVORA_ENGINE_SCORE_ENSEMBLESOURCE_H
#define SYLVORA_ENGINE_SCORE_ENSEMBLESOURCE_H

#include <cstddef>
#include <memory>
#include <vector>

#include "PackedTrees.h"

namespace sylvora {
namespace engine {

// Shares the trees with the learner. They must not change while they are shared.
struct EnsembleSource {
    std::shared_ptr<const PackedTrees> trees;
    std::vector<float> shrinkV;  // by group
    int numClass = 0;            // 0 for regression
    int dimFea = 0;              // columns of a row; valid splitFea are in [0, dimFea)

    size_t NumTrees() const { return trees->treeV.size(); }
    const PackedNode* Tree(size_t tree) const { return trees->treeV[tree].nodeV.get(); }
    size_t NumNodes(size_t tree) const { return trees->treeV[tree].numNodes; }
};

}  // namespace engine
}  // namespace sylvora

#endif  // SYLVORA_ENGINE_SCORE_ENSEMBLESOURCE_H

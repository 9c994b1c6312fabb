// An ensemble as it is compiled for scoring.
#ifndef SYLVORA_ENGINE_SCORE_ENSEMBLESOURCE_H
#define SYLVORA_ENGINE_SCORE_ENSEMBLESOURCE_H

#include <cstddef>
#include <memory>
#include <vector>

#include "PackedTrees.h"

namespace sylvora {
namespace engine {

struct EnsembleSource {
    std::shared_ptr<const PackedTrees> trees;
    std::vector<float> shrinkV;  // of each group
    int numClass = 0;            // 0 for regression
    int dimFea = 0;

    size_t NumTrees() const { return trees->treeV.size(); }
    const PackedNode* Tree(size_t tree) const { return trees->treeV[tree].nodeV.get(); }
    size_t NumNodes(size_t tree) const { return trees->treeV[tree].numNodes; }
};

}  // namespace engine
}  // namespace sylvora

#endif  // SYLVORA_ENGINE_SCORE_ENSEMBLESOURCE_H

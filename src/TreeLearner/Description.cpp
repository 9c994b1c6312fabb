// Descriptions and the models that they belong to; see Description.h.
#include "Description.h"

#include <algorithm>
#include <numeric>
#include <string_view>
#include <utility>

#include "../ModelText/Block.h"
#include "../TreeLearner.h"
#include "../god/Report.h"
#include "CallScope.h"
#include "EnsembleView.h"

namespace sylvora {
namespace {

// What is wrong with the covers of one tree, in the words of FindMisfit. `coverV` has an entry per
// node.
std::string FindCoverFault(const TreeView& tree, const int* coverV) {
    const size_t numNodes = tree.NumNodes();
    for (size_t k = 0; k < numNodes; ++k) {
        const engine::PackedNode node = tree.Node(k);
        if (coverV[k] < 0) return Text("has ", coverV[k], " rows for node ", k);
        if (node.IsLeaf()) continue;
        long long sum = 0;
        for (const int child : {node.lson, node.rson}) {
            const bool fExists = child >= 0 && static_cast<size_t>(child) < numNodes;
            if (!fExists) return Text("has rows for node ", k, ", whose children do not exist");
            sum += coverV[child];
        }
        if (sum == coverV[k]) continue;
        return Text("has ", coverV[k], " rows for node ", k, " and ", sum, " for its children");
    }
    return "";
}

size_t NumNodes(const TreeLearner& learner) {
    const std::vector<size_t> sizeV = TreeSizes(learner);
    return std::accumulate(sizeV.begin(), sizeV.end(), size_t{0});
}

std::string FindCoverFault(const TreeLearner& learner, const std::vector<int>& coverV) {
    if (coverV.empty()) return "";
    if (coverV.size() != NumNodes(learner)) {
        return Text("has the rows of ", coverV.size(), " nodes for a model of ", NumNodes(learner));
    }
    const EnsembleView trees(learner);
    const int* first = coverV.data();
    for (size_t g = 0; g < trees.NumGroups(); ++g) {
        for (size_t t = 0; t < trees.GroupSize(g); ++t) {
            const std::string fault = FindCoverFault(trees.Tree(g, t), first);
            if (!fault.empty()) return Text(fault, " of group ", g, ", tree ", t);
            first += trees.Tree(g, t).NumNodes();
        }
    }
    return "";
}

// The rows of each node of the learner's trees, one after the other; of packed trees without
// covers, only some.
std::vector<int> CountedRows(const TreeLearner& learner, const engine::PackedTrees* packed) {
    std::vector<int> coverV;
    const auto append = [&coverV](const std::vector<int>& treeV) {
        coverV.insert(coverV.end(), treeV.begin(), treeV.end());
    };
    if (packed != nullptr) {
        const size_t numTrees = std::min(packed->coverVV.size(), EnsembleView(learner).NumTrees());
        for (size_t t = 0; t < numTrees; ++t) append(packed->coverVV[t]);
        return coverV;
    }
    for (const auto& group : learner.TreeVV) {
        for (const TreeCR* tree : group) append(CoversOf(*tree));
    }
    return coverV;
}

}  // namespace

std::string FindMisfit(const TreeLearner& learner, const ModelDescription& description) {
    const size_t numColumns = description.columnV.size();
    const size_t numClasses = description.classV.size();
    if (numColumns != 0 && numColumns != static_cast<size_t>(learner.dimFea)) {
        return Text("has ", numColumns, " column names for ", learner.dimFea, " columns");
    }
    if (learner.numClass > 0 && numClasses != 0 &&
        numClasses != static_cast<size_t>(learner.numClass)) {
        return Text("has ", numClasses, " class names for ", learner.numClass, " classes");
    }
    if (description.bestRound < 0) return Text("has ", description.bestRound, " as best round");
    return FindCoverFault(learner, description.coverV);
}

int ReadDescription(ModelSource& source, const TreeLearner& learner,
                    ModelDescription& description) {
    TextSum before = source.SumSoFar();
    std::string_view rest;
    if (!source.ReadRest(rest)) return Fail("ERROR: The model file cannot be read to its end!\n");
    const size_t begin = FindBlock(rest);
    ModelDescription found;
    std::string fault;
    if (begin != std::string_view::npos) {
        before.Add(rest.data(), begin);
        fault = ReadBlock(rest.substr(begin), before, found);
        if (fault.empty()) fault = FindMisfit(learner, found);
    }
    if (!fault.empty()) {
        return Fail("ERROR: The description behind the model ", fault,
                    "; take an intact copy, or load the model without its description!\n");
    }
    description = std::move(found);
    return 0;
}

std::vector<size_t> TreeSizes(const TreeLearner& learner) {
    const EnsembleView trees(learner);
    std::vector<size_t> sizeV;
    for (size_t g = 0; g < trees.NumGroups(); ++g) {
        for (size_t t = 0; t < trees.GroupSize(g); ++t) {
            sizeV.push_back(trees.Tree(g, t).NumNodes());
        }
    }
    return sizeV;
}

// A loaded tree has no rows in its nodes; a tree that was grown has some in its root.
int ModelText::Covers(const TreeLearner& learner, std::vector<int>& coverV) {
    const TreeLearner::CallScope scope(learner);
    return Guarded([&] {
        std::vector<int> allV = CountedRows(learner, learner.packedTrees.get());
        const bool fAny = std::any_of(allV.begin(), allV.end(), [](int rows) { return rows != 0; });
        if (!fAny || allV.size() != NumNodes(learner)) allV.clear();
        coverV = std::move(allV);
        return 0;
    });
}

}  // namespace sylvora

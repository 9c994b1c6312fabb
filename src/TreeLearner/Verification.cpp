// The checks of a run; see Verification.h. A value that is not finite cannot be stored in a model
// file. The messages name the cause that is most likely at that point of a run, and its remedy.
#include "Verification.h"

#include <algorithm>
#include <cmath>
#include <string>

#include "../god/Report.h"
#include "EnsembleView.h"
#include "LossRun.h"

using sylvora::Fail;
using sylvora::TreeView;

int TreeLearner::Verification::CheckStart() const {
    if (!std::isfinite(static_cast<float>(learner.valShrink))) {
        return Fail("ERROR: valShrink ", learner.valShrink, " is too large for a model file\n");
    }
    if (learner.featureMean == nullptr) {
        return Fail("ERROR: There are no means of the columns: pass the rows with DataInput!\n");
    }
    for (int j = 0; j < learner.dimFea; ++j) {
        if (std::isfinite(learner.featureMean[j])) continue;
        return Fail("ERROR: the values of feature ", j + 1,
                    " are too large to be added up; scale them down\n");
    }
    return 0;
}

int TreeLearner::Verification::CheckRound(int idxTree) const {
    if (learner.modelType == "RandomForest") return 0;  // each tree was checked when it was grown
    return CheckNewTree(learner.modelType == "CART" ? "the tree"
                                                    : sylvora::Text("round ", idxTree));
}

int TreeLearner::Verification::CheckPredictions(int idxTree) const {
    const double* const first = learner.predictV;
    const bool fFinite = std::all_of(first, first + learner.sampleSize,
                                     [](double prediction) { return std::isfinite(prediction); });
    if (fFinite || learner.modelType == "RandomForest") return 0;
    return RefuseGrowth(sylvora::Text("round ", idxTree));
}

// A slot that failed has left GroupTreeCnt behind, and reported its reason.
int TreeLearner::Verification::CheckSlot(int slot) const {
    if (learner.GroupTreeCnt == slot + 1) return CheckNewTree(sylvora::Text("tree ", slot + 1));
    return Fail("ERROR: tree ", slot + 1, " of ", learner.sizeGroup,
                " was not grown, for the reason above, and no model is written; if memory ran out, "
                "take fewer trees or rows\n");
}

// Checks the tree grown last: it must have rows, and all its numbers must be finite.
int TreeLearner::Verification::CheckNewTree(const std::string& place) const {
    if (learner.numDrawn == 0) return RefuseEmptyTree(place);
    const TreeView tree = learner.packedTrees ? TreeView(learner.packedTrees->treeV.back())
                                              : TreeView(*learner.TreeGroup.back());
    for (size_t k = 0; k < tree.NumNodes(); ++k) {
        const sylvora::engine::PackedNode node = tree.Node(k);
        if (!node.IsLeaf() && !std::isfinite(node.splitElemFea)) {
            return Fail("ERROR: ", place, ": a threshold of feature ", node.splitFea + 1,
                        " is not finite; scale the values down\n");
        }
        if (!std::isfinite(node.avgPredict)) return RefuseValue(place);
    }
    return 0;
}

// Explains why a tree was grown on no rows. Unless a program sets weights, only ranking has weights
// of 0.
int TreeLearner::Verification::RefuseEmptyTree(const std::string& place) const {
    const bool fAnyWeight =
        std::any_of(learner.numPairDistinctQueV, learner.numPairDistinctQueV + learner.sampleSize,
                    [](int weight) { return weight > 0; });
    const bool fAllWeighted =
        std::all_of(learner.numPairDistinctQueV, learner.numPairDistinctQueV + learner.sampleSize,
                    [](int weight) { return weight > 0; });
    if (learner.modelType != "GBRank") {
        return Fail("ERROR: ", place, ": no row ",
                    fAllWeighted ? "was drawn; raise valSmpRt\n"
                                 : "of a weight above 0 was drawn; raise valSmpRt\n");
    }
    if (!fAnyWeight) {
        return Fail("ERROR: ", place,
                    ": no query has two rows with different labels, so there is nothing to rank; "
                    "check labels and query ids\n");
    }
    return Fail("ERROR: ", place,
                ": none of the drawn rows has a partner with another label; raise valSmpRt\n");
}

// Explains why a node's output is not finite. In the first tree the labels must be the cause: there
// are no predictions yet.
int TreeLearner::Verification::RefuseValue(const std::string& place) const {
    const int numStart = learner.lossRun != nullptr ? learner.lossRun->NumStartGroups() : 0;
    const bool fFirst = learner.getGroupNum() == numStart;
    if (learner.CfgInfo.lossFunc == "USER") {
        return Fail("ERROR: ", place,
                    ": the gradients of the user's loss are not finite, or too "
                    "large to be added up\n");
    }
    if (fFirst) {
        return Fail("ERROR: ", place,
                    ": the labels are too large to be added up; scale them "
                    "down\n");
    }
    return RefuseGrowth(place);
}

// Predictions or gradients have diverged from round to round.
int TreeLearner::Verification::RefuseGrowth(const std::string& place) {
    return Fail("ERROR: ", place,
                ": the predictions have grown beyond what a number can hold; lower valShrink\n");
}

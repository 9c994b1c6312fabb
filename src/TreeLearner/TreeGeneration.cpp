// Growing the trees of a round, and adding their outputs to the predictions.
//
// A new tree is owned by a unique_ptr until KeepTree hands it to TreeGroup or packs it, so a
// failure leaks nothing and leaves the ensemble as it was.
#include <algorithm>
#include <memory>
#include <utility>

#include "../TreeLearner.h"
#include "../claim.h"
#include "../god/Report.h"
#include "../god/Workers.h"
#include "AtWork.h"
#include "CallScope.h"
#include "EngineRun.h"
#include "EnsembleView.h"
#include "LossRun.h"
#include "RankRun.h"
#include "RowDraw.h"
#include "TrainingRows.h"

using sylvora::Fail;

// The seed cell of a slot; the global one before a run has assigned cells to slots. Not owned.
long* TreeLearner::SeedOf(int treeId) {
    return randGenerators != nullptr ? randGenerators[treeId] : &gseed;
}

// Samples the rows of one tree, as randomMode says. The caller owns `selected` (new[]).
int TreeLearner::SelectRows(const int* weightV, int*& selected, int& count, long* seed) {
    if (CfgInfo.randomMode == "QUERY") {
        if (RandomSelectQuery(selected, count, seed) == 0) return 0;
        return Fail("ERROR: Failed when selecting samples according to query randomly!\n");
    }
    if (CfgInfo.randomMode == "DOC") {
        if (DrawRows(weightV, selected, count, seed) == 0) return 0;
        return Fail("ERROR: Failed when selecting samples according to url randomly!\n");
    }
    return Fail("ERROR: Random mode is wrong. mode: ", CfgInfo.randomMode, "!\n");
}

// The training rows as an array, for the reference implementation. Copies borrowed rows, once per
// run. Throws std::bad_alloc. A program may grow several slots at once, hence the lock.
double** TreeLearner::ReferenceRows() {
    if (borrowed == nullptr) return featureVV;
    const sylvora::MutexLock lock(generateTree_mutex);
    if (!rowCopy) rowCopy = std::make_shared<sylvora::RowCopy>(sylvora::TrainingRows(*this));
    return rowCopy->Rows();
}

// Grows the tree of slot `treeId` and adds it to TreeGroup. With `fThreaded` the reference
// implementation searches the columns of a node in several threads. The result is the same.
int TreeLearner::GrowTree(int treeId, bool fThreaded) {
    const AtWork work(*this);
    return sylvora::Guarded([&] {
        const bool fWeighted = CfgInfo.fRegCls == "REG";
        if (gradientV == nullptr || (fWeighted && numPairDistinctQueV == nullptr)) {
            return Fail("ERROR: Growing a tree needs ParamInit first!\n");
        }
        if (CheckTrainingWidth() != 0) return -1;
        auto tree = std::make_unique<TreeCR>(CfgInfo, sampleFeaType);
        if (rankRun) tree->ranks = &rankRun->Peers();
        long* seed = SeedOf(treeId);
        int* indexV = nullptr;
        int num = 0;
        const int* const weightV = sylvora::WeightsOf(*this);
        const int selected = SelectRows(weightV, indexV, num, seed);
        std::unique_ptr<int[]> rows(indexV);
        if (selected != 0) return -1;
        if (tree->Init(dimFea, num, sampleSize) != 0) {
            return Fail("ERROR: Failed to init TreeCR!\n");
        }
        sylvora::WorkerPool alone;  // outside of a run
        if (lossRun != nullptr && lossRun->SetsValues()) {
            tree->setNodeValues = [&, grown = tree.get()](const int* rowV) {
                lossRun->SetNodeValues(*grown, rowV, weightV, workers ? *workers : alone);
            };
        }
        // The records of a large forest's trees would take more memory than its data.
        if (IsPacking() && modelType == "RandomForest") {
            tree->takeNodes = [this](const auto& grownV) {
                sylvora::AppendPacked(grownV, trainingOptions.fCovers, *packedTrees);
            };
        }
        // `rows` may be empty after a successful EngineRun::Grow. After a refusal it still owns
        // indexV, which the reference implementation then reads.
        const auto grow = fThreaded ? &TreeCR::GrowHalf : &TreeCR::GrowOne;
        const bool fGrown = engineRun && engineRun->Grow(*this, *tree, weightV, rows, num, seed);
        if (!fGrown &&
            (tree.get()->*grow)(ReferenceRows(), gradientV, numPairDistinctQueV, indexV,
                                CfgInfo.fPrintLeafDistribution, of_debug, fea_debug, seed) != 0) {
            if (tree->fSamplerThrew) fUserThrew = true;
            return Fail("ERROR: Failed when TreeCR grows!\n");
        }
        tree->setNodeValues = nullptr;  // it refers to this call's variables
        tree->takeNodes = nullptr;
        // A program may grow several slots at the same time, each in a thread of its own.
        const sylvora::MutexLock lock(generateTree_mutex);
        KeepTree(std::move(tree));
        numDrawn = num;
        modelDim = std::max(modelDim, dimFea);
        return 0;
    });
}

// Takes over a new tree. In a run with packed trees, the packed copy is kept, which may have been
// made already, and the record is freed, except for the one of a round of boosting, which is in
// TreeGroup for the callbacks. The caller holds generateTree_mutex.
void TreeLearner::KeepTree(std::unique_ptr<TreeCR> tree) {
    if (IsPacking() && !tree->NodeV.empty()) {
        sylvora::AppendPacked(*tree, trainingOptions.fCovers, *packedTrees);
    }
    if (!IsPacking() || modelType != "RandomForest") {
        TreeGroup.push_back(tree.get());
        static_cast<void>(tree.release());
    }
    ++GroupTreeCnt;
    ++numGrown;
}

// Makes the round's trees a group of the ensemble. From here on TreeVV owns them, unless trees are
// packed.
void TreeLearner::EndGroup() {
    if (!packedTrees) {
        TreeVV.push_back(TreeGroup);
        return;
    }
    packedTrees->EndGroup();
}

// Empties TreeGroup for the next round. Its trees are borrowed from TreeVV, unless trees are
// packed: then TreeGroup owns its one record.
void TreeLearner::ClearGroup() {
    for (TreeCR* tree : TreeGroup) {
        if (packedTrees) delete tree;
    }
    TreeGroup.clear();
}

// Refused during a run: only a callback can call it then, and the tree would get lost among those
// of the round.
int TreeLearner::GenerateTree() {
    const CallScope scope(*this);
    if (workers != nullptr && RefuseAtWork("GenerateTree") != 0) return -1;
    return GrowTree(0, true);
}

int TreeLearner::GenerateRowTree(int treeIdBegin, int treeIdEnd) {
    const CallScope scope(*this);
    if (workers != nullptr && RefuseAtWork("GenerateRowTree") != 0) return -1;
    return GrowSlots(treeIdBegin, treeIdEnd);
}

// Grows the trees of the slots in order, and reports progress after each.
int TreeLearner::GrowSlots(int treeIdBegin, int treeIdEnd) {
    fKept = false;
    for (int treeId = treeIdBegin; treeId <= treeIdEnd && !fKept; ++treeId) {
        if (GrowTree(treeId, false) != 0) return -1;
        if (IsStopped(treeId + 1, sizeGroup)) return -1;
    }
    return 0;
}

// Deliberately uses only the first tree of the group: a forest has a single round, so only the
// round's result file reads its predictions. Disjoint ranges may be updated in parallel. The order
// of the two products is part of the result.
int TreeLearner::UpdatePrediction(int idBegin, int idEnd) {
    const CallScope scope(*this);
    const bool fOpen = IsPacking() && packedTrees->HasOpenGroup();
    if (TreeGroup.empty() && !fOpen) {
        return Fail("ERROR: No tree to update the predictions with!\n");
    }
    if (predictV == nullptr) return Fail("ERROR: UpdatePrediction needs ParamInit first!\n");
    if (!fOpen && trainDim != 0 && TreeGroup[0]->dimFeature > trainDim) {
        return Fail("ERROR: The tree was grown on ", TreeGroup[0]->dimFeature,
                    " columns, the training data have ", trainDim, "!\n");
    }
    const sylvora::engine::Matrix rows = sylvora::TrainingRows(*this);
    const sylvora::TreeView tree =
        fOpen ? sylvora::TreeView(packedTrees->FirstOpen()) : sylvora::TreeView(*TreeGroup[0]);
    for (int i = idBegin; i <= idEnd; ++i) {
        const double output = rankRun ? rankRun->OutputOf(i)
                              : featureVV != nullptr
                                  ? tree.Predict(featureVV[i])
                                  : tree.Predict(sylvora::engine::MatrixRow(rows, i));
        predictV[i] += output * dynShrink * valShrink;
    }
    return 0;
}

void* GenerateTreeThreadFunction(void* arg) {
    const generate_tree_info_t& share = *static_cast<generate_tree_info_t*>(arg);
    return sylvora::ExitValue(
        share.treeLearner->GenerateRowTree(share.treeIdBegin, share.treeIdEnd));
}

void* PredictionThreadFunction(void* arg) {
    const boosting_info_t& share = *static_cast<boosting_info_t*>(arg);
    return sylvora::ExitValue(share.treeLearner->UpdatePrediction(share.sIdBegin, share.sIdEnd));
}

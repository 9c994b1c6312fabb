// A learner's life cycle: construction, allocation of a run's arrays, and release.
//
// Destroy may be called more than once: every release leaves a null pointer and a size of 0 behind.
#include <algorithm>
#include <unordered_set>

#include "../TreeLearner.h"
#include "../god/Report.h"
#include "../god/Truncation.h"
#include "Arrays.h"
#include "CallScope.h"
#include "EngineRun.h"
#include "EnsembleView.h"
#include "LossRun.h"
#include "RankRun.h"

using sylvora::AllocateArray;
using sylvora::Fail;
using sylvora::FreeArray;
using sylvora::Print;

namespace {

// Refuses a query whose rows are not together. Does not check that ids are 0, 1, 2, ...
int CheckQueriesTogether(const TreeLearner& learner) {
    // The usual case, ascending ids, needs no set.
    if (std::is_sorted(learner.queryIdV, learner.queryIdV + learner.sampleSize)) return 0;
    std::unordered_set<int> seen;
    for (int i = 0; i < learner.sampleSize; ++i) {
        if (i > 0 && learner.queryIdV[i] == learner.queryIdV[i - 1]) continue;
        if (seen.insert(learner.queryIdV[i]).second) continue;
        return Fail("ERROR: Row ", i, " is of query ", learner.queryIdV[i],
                    ", the row before it of query ", learner.queryIdV[i - 1],
                    ", other rows of query ", learner.queryIdV[i],
                    " stand above: the rows of a query must be together!\n");
    }
    return 0;
}

// Fills learner.labelTrV with the labels that every loss uses, and checks them against the loss and
// the number of classes. learner.labelV keeps the labels as read.
int TransformLabels(TreeLearner& learner) {
    if (learner.CfgInfo.fPrint) Print("Tranform the label...\n");
    const std::string& loss = learner.CfgInfo.lossFunc;
    const bool fSignLabels = loss == "HingeSquare" || loss == "Logistic" || loss == "Exponential";
    const bool fClasses = learner.CfgInfo.fRegCls == "CLS";
    for (int i = 0; i < learner.sampleSize; ++i) {
        const auto mapped = learner.tranMap.find(learner.labelV[i]);
        learner.labelTrV[i] = mapped != learner.tranMap.end() ? mapped->second : learner.labelV[i];
        // Deliberately checks neither mapped labels (ReadLabelTran did) nor negative ones.
        if (mapped == learner.tranMap.end() && fClasses &&
            learner.labelV[i] >= learner.numClass - 0.5) {
            return Fail("ERROR: Class id must be consecutive integers, ", learner.numClass,
                        " classes but label: ", learner.labelV[i], " found!\n");
        }
        const int sign = sylvora::Truncate<int>(learner.labelTrV[i]);
        if (fSignLabels && sign != -1 && sign != 1) {
            return Fail("ERROR: label should be \"-1\" or \"+1\" when using loss function \"", loss,
                        "\"!\n");
        }
    }
    return 0;
}

// Predictions start at 0. Without test rows learner.testResV has one element, so it is never null.
int AllocateRunArrays(TreeLearner& learner) {
    if (AllocateArray(learner.predictV, learner.sampleSize, "allocating predictV") != 0) return -1;
    if (learner.devSize >= 1) {
        if (learner.CfgInfo.fPrint) Print("Init dev set...\n");
        if (AllocateArray(learner.devResV, learner.devSize, "allocating devResV") != 0) return -1;
        learner.devResVV.assign(static_cast<size_t>(learner.devSize), VecFt(1, 0.0f));
    }
    if (AllocateArray(learner.testResV, learner.testSize, "allocating testResV") != 0) return -1;
    learner.testResVV.assign(static_cast<size_t>(learner.testSize), VecFt(1, 0.0f));
    return 0;
}

// Fills learner.numDocQueV. Without queries the whole training set counts as one. Expects the rows
// of a query to be together, which CheckQueriesTogether has made sure of.
void CountQueryRows(TreeLearner& learner) {
    learner.numDocQueV.assign(static_cast<size_t>(learner.sampleSize), learner.sampleSize);
    if (learner.CfgInfo.modelType != "GBRank") return;
    VecInt runLengthV;  // by run of rows with equal query ids: its number of rows
    for (int i = 0; i < learner.sampleSize; ++i) {
        if (i == 0 || learner.queryIdV[i] != learner.queryIdV[i - 1]) runLengthV.push_back(0);
        ++runLengthV.back();
    }
    for (int i = 0; i < learner.sampleSize; ++i) {
        // Deliberately indexed by query id, not by run: ids are meant to be 0, 1, 2, ... in order.
        // An id outside that range gets 0 rows.
        const size_t query = static_cast<size_t>(learner.queryIdV[i]);
        learner.numDocQueV[static_cast<size_t>(i)] =
            query < runLengthV.size() ? runLengthV[query] : 0;
    }
}

}  // namespace

TreeLearner::TreeLearner(CheckCfgCLS& cfg)
    : fileModel(cfg.fileModel),
      fileDebug(cfg.fileDebug),
      fDebug(cfg.fDebug),
      CfgInfo(cfg),
      numClass(cfg.numClass),
      fHomoWgt(cfg.modelType != "GBRank" ? 1 : 0),
      numTree(cfg.numTree),
      numThread(cfg.numThread),
      valTau(cfg.valTau),
      valShrink(cfg.valShrink),
      valSmpRt(cfg.valSmpRt),
      temperature(cfg.temperature) {}

TreeLearner::TreeLearner() = default;

TreeLearner::~TreeLearner() {
    Destroy();
    pthread_mutex_destroy(&generateTree_mutex);
}

// The order matters: checks come before allocations, labels before weights, which depend on
// queries.
int TreeLearner::ParamInit() {
    const CallScope scope(*this);
    return sylvora::Guarded([&] {
        if (RefuseAtWork("ParamInit") != 0) return -1;
        if (CfgInfo.fPrint) Print("Init parameters in ranking model ...\n");
        sizeGroup = CfgInfo.sizeGroup;
        modelType = CfgInfo.modelType;
        if ((modelType == "RandomForest" || modelType == "CART") && numTree > 1) {
            return Fail("Error: check modelType and numTree!\n");
        }
        if (sampleSize == 0) {
            return Fail("Error: no data exists in the tree models learning process!\n");
        }
        if (CheckTrainingWidth() != 0) return -1;
        if (CfgInfo.modelType == "GBRank") {
            if (queryIdV == nullptr) return Fail("ERROR: Size of qid does not match the data!\n");
            if (CheckQueriesTogether(*this) != 0) return -1;
        }
        if (AllocateArray(gradientV, sampleSize, "allocating gradientV") != 0) return -1;
        if (AllocateArray(labelTrV, sampleSize, "allocating labelTrV") != 0) return -1;
        if (TransformLabels(*this) != 0) return -1;
        if (AllocateRunArrays(*this) != 0) return -1;
        CountQueryRows(*this);
        if (ComputeDistinctPair() != 0) {
            return Fail("ERROR: Failed when computing distincing pair!\n");
        }
        lossRun = std::make_unique<LossRun>(*this);
        return lossRun->Check();
    });
}

int TreeLearner::Destroy() {
    const CallScope scope(*this);
    if (RefuseAtWork("Destroy") != 0) return -1;
    FreeTrainingData();
    FreeArray(featureMean);
    meanDim = 0;
    FreeDevelopmentData();
    FreeTestData();
    FreeDebugCounters();
    FreeTrees();
    if (CfgInfo.fPrint) Print("Free data complete.\n");
    return 0;
}

// The means stay: they are a part of the model.
int TreeLearner::ReleaseTrainingData() {
    const CallScope scope(*this);
    if (RefuseAtWork("ReleaseTrainingData") != 0) return -1;
    FreeTrainingData();
    return 0;
}

// Frees the training set, except its means, and the arrays of a run that go with it.
void TreeLearner::FreeTrainingData() {
    sylvora::FreeRows(featureVV, sampleSize);
    rowCopy.reset();
    borrowed.reset();
    FreeArray(gradientV);
    FreeArray(labelVirV);
    FreeArray(labelTrV);
    FreeArray(labelV);
    FreeArray(queryIdV);
    FreeArray(numPairDistinctQueV);
    FreeArray(predictV);
    FreeArray(testResV);
    FreeArray(randGenerators);  // the array only: the seed cells are members or global
    FreeArray(clsLabelEnum);
    FreeArray(IndexV);
    sampleSize = trainDim = 0;
    lossRun.reset();
}

void TreeLearner::FreeDevelopmentData() {
    sylvora::FreeRows(featureDevVV, devSize);
    FreeArray(labelDevV);
    FreeArray(queryIdDevV);
    FreeArray(devResV);
    devSize = devDim = 0;
}

void TreeLearner::FreeTestData() {
    sylvora::FreeRows(featureTestVV, testSize);
    FreeArray(labelTestV);
    FreeArray(queryIdTestV);
    testSize = testDim = 0;
}

void TreeLearner::FreeDebugCounters() {
    if (fea_debug == nullptr) return;
    FreeArray(fea_debug->candidate_num_list);
    FreeArray(fea_debug->selected_num_list);
    FreeArray(fea_debug->crit_sum_list);
    FreeArray(fea_debug);
}

// Frees every tree exactly once. TreeGroup usually borrows the trees of the last round from TreeVV,
// but owns those that no round has taken over, such as trees grown by hand or by a failed round.
void TreeLearner::FreeTrees() {
    const auto isEnsembles = [this](const TreeCR* tree) {
        return std::any_of(TreeVV.begin(), TreeVV.end(), [tree](const auto& group) {
            return std::find(group.begin(), group.end(), tree) != group.end();
        });
    };
    for (TreeCR* tree : TreeGroup) {
        if (!isEnsembles(tree)) delete tree;
    }
    for (const auto& group : TreeVV) {
        for (TreeCR* tree : group) delete tree;
    }
    for (TreeCR* tree : retiredV) delete tree;
    TreeGroup.clear();
    TreeVV.clear();
    retiredV.clear();
    packedTrees.reset();
    scoringForm.reset();
    modelDim = 0;
}

// Keeps the trees of the ensemble until Destroy, outside of it: a caller may still hold pointers to
// them. A tree may be both in TreeVV and in TreeGroup; removing duplicates keeps FreeTrees from
// freeing it twice.
void TreeLearner::RetireTrees() {
    for (const auto& group : TreeVV) retiredV.insert(retiredV.end(), group.begin(), group.end());
    retiredV.insert(retiredV.end(), TreeGroup.begin(), TreeGroup.end());
    std::sort(retiredV.begin(), retiredV.end());
    retiredV.erase(std::unique(retiredV.begin(), retiredV.end()), retiredV.end());
    TreeVV.clear();
    TreeGroup.clear();
    packedTrees.reset();
    scoringForm.reset();
}

int TreeLearner::ReleaseTrees() {
    const CallScope scope(*this);
    if (RefuseAtWork("ReleaseTrees") != 0) return -1;
    FreeTrees();
    StepLengthV.clear();
    return 0;
}

void TreeLearner::setProgress(ProgressFuncType function, void* context) {
    progressFunction = function;
    progressContext = context;
}

int TreeLearner::getTreeNum() const {
    return static_cast<int>(sylvora::EnsembleView(*this).NumTrees());
}

int TreeLearner::getGroupNum() const {
    return static_cast<int>(sylvora::EnsembleView(*this).NumGroups());
}

int TreeLearner::Sampling() {
    const CallScope scope(*this);
    return Fail("ERROR: Column-wise tree generation is not offered!\n");
}

int TreeLearner::GenerateColTree() {
    return Sampling();
}

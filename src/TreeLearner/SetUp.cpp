// A learner's life cycle: construction, allocation of a run's arrays, and release.
//
// Destroy may be called more than once: every release leaves a null pointer and a size of 0 behind.
#include <algorithm>

#include "../TreeLearner.h"
#include "../god/Report.h"
#include "../god/Truncation.h"
#include "Arrays.h"
#include "CallScope.h"
#include "EngineRun.h"
#include "EnsembleView.h"

using sylvora::AllocateArray;
using sylvora::Fail;
using sylvora::FreeArray;
using sylvora::Print;

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
            if (CheckQueriesTogether() != 0) return -1;
        }
        if (AllocateArray(gradientV, sampleSize, "allocating gradientV") != 0) return -1;
        if (AllocateArray(labelTrV, sampleSize, "allocating labelTrV") != 0) return -1;
        if (TransformLabels() != 0) return -1;
        if (AllocateRunArrays() != 0) return -1;
        CountQueryRows();
        if (ComputeDistinctPair() != 0) {
            return Fail("ERROR: Failed when computing distincing pair!\n");
        }
        return 0;
    });
}

// Fills labelTrV with the labels that every loss uses, and checks them against the loss and the
// number of classes. labelV keeps the labels as read.
int TreeLearner::TransformLabels() {
    if (CfgInfo.fPrint) Print("Tranform the label...\n");
    const std::string& loss = CfgInfo.lossFunc;
    const bool fSignLabels = loss == "HingeSquare" || loss == "Logistic" || loss == "Exponential";
    const bool fClasses = CfgInfo.fRegCls == "CLS";
    for (int i = 0; i < sampleSize; ++i) {
        const auto mapped = tranMap.find(labelV[i]);
        labelTrV[i] = mapped != tranMap.end() ? mapped->second : labelV[i];
        // Deliberately checks neither mapped labels (ReadLabelTran did) nor negative ones.
        if (mapped == tranMap.end() && fClasses && labelV[i] >= numClass - 0.5) {
            return Fail("ERROR: Class id must be consecutive integers, ", numClass,
                        " classes but label: ", labelV[i], " found!\n");
        }
        const int sign = sylvora::Truncate<int>(labelTrV[i]);
        if (fSignLabels && sign != -1 && sign != 1) {
            return Fail("ERROR: label should be \"-1\" or \"+1\" when using loss function \"", loss,
                        "\"!\n");
        }
    }
    return 0;
}

// Predictions start at 0. Without test rows testResV has one element, so it is never null.
int TreeLearner::AllocateRunArrays() {
    if (AllocateArray(predictV, sampleSize, "allocating predictV") != 0) return -1;
    if (devSize >= 1) {
        if (CfgInfo.fPrint) Print("Init dev set...\n");
        if (AllocateArray(devResV, devSize, "allocating devResV") != 0) return -1;
        devResVV.assign(static_cast<size_t>(devSize), VecFt(1, 0.0f));
    }
    if (AllocateArray(testResV, testSize, "allocating testResV") != 0) return -1;
    testResVV.assign(static_cast<size_t>(testSize), VecFt(1, 0.0f));
    return 0;
}

// Fills numDocQueV. Without queries the whole training set counts as one. Expects the rows of a
// query to be together, which CheckQueriesTogether has made sure of.
void TreeLearner::CountQueryRows() {
    numDocQueV.assign(static_cast<size_t>(sampleSize), sampleSize);
    if (CfgInfo.modelType != "GBRank") return;
    VecInt runLengthV;  // by run of rows with equal query ids: its number of rows
    for (int i = 0; i < sampleSize; ++i) {
        if (i == 0 || queryIdV[i] != queryIdV[i - 1]) runLengthV.push_back(0);
        ++runLengthV.back();
    }
    for (int i = 0; i < sampleSize; ++i) {
        // Deliberately indexed by query id, not by run: ids are meant to be 0, 1, 2, ... in order.
        // An id outside that range gets 0 rows.
        const size_t query = static_cast<size_t>(queryIdV[i]);
        numDocQueV[static_cast<size_t>(i)] = query < runLengthV.size() ? runLengthV[query] : 0;
    }
}

int TreeLearner::Destroy() {
    const CallScope scope(*this);
    if (RefuseAtWork("Destroy") != 0) return -1;
    FreeTrainingData();
    FreeDevelopmentData();
    FreeTestData();
    FreeDebugCounters();
    FreeTrees();
    if (CfgInfo.fPrint) Print("Free data complete.\n");
    return 0;
}

// Frees the training set and the arrays of a run that go with it.
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
    FreeArray(featureMean);
    FreeArray(clsLabelEnum);
    FreeArray(IndexV);
    sampleSize = trainDim = meanDim = 0;
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

// Loading a model file into a handle, and the handle's buffers.
#include "Model.h"

#include <algorithm>
#include <cstddef>
#include <utility>

#include "Error.h"
#include "TreeLearner.h"

Model::~Model() {
    Clear();
}

Model::Model(Model&& other) noexcept
    : learner(std::exchange(other.learner, nullptr)),
      featureBuf(std::exchange(other.featureBuf, nullptr)),
      treeResultBuf(std::exchange(other.treeResultBuf, nullptr)),
      treeNum(std::exchange(other.treeNum, 0)) {}

void Model::Clear() {
    delete std::exchange(learner, nullptr);
    delete[] std::exchange(featureBuf, nullptr);
    delete[] std::exchange(treeResultBuf, nullptr);
    treeNum = 0;
}

int Model::CalcTreeNum() {
    return learner->getTreeNum();
}

int Model::Init(const char* path) {
    const auto fail = [](const char* text) {
        RaiseError(text);
        return 0;
    };
    learner = new TreeLearner();
    learner->setPackedTrees(true);
    if (learner->LoadModelFull(path) != 0) return fail("Load Model error");
    if (learner->dimFea <= 0) return fail("Feature Dim Error");
    treeNum = CalcTreeNum();
    if (treeNum <= 0) return fail("Tree Num Error");
    // Only after the trees were read: a damaged header can claim any number of columns.
    featureBuf = new double[static_cast<std::size_t>(learner->dimFea)];
    // A regression gives one value per group, and groups without trees can outnumber the trees.
    const std::size_t numEntry =
        static_cast<std::size_t>(std::max(treeNum, learner->getGroupNum()));
    treeResultBuf = new double[numEntry];
    std::fill_n(treeResultBuf, numEntry, -1.0);
    return 1;
}

FeatureLoan::FeatureLoan(Model& lender)
    : featureV(std::exchange(lender.featureBuf, nullptr)), model(lender) {
    if (featureV == nullptr) {
        featureV = new double[static_cast<std::size_t>(model.learner->dimFea)];
    }
}

FeatureLoan::~FeatureLoan() {
    std::swap(model.featureBuf, featureV);
    delete[] featureV;
}

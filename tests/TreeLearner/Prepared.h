// Learners that are ready to train.
#ifndef SYLVORA_TESTS_TREELEARNER_PREPARED_H
#define SYLVORA_TESTS_TREELEARNER_PREPARED_H

#include <gtest/gtest.h>

#include <memory>
#include <utility>

#include "TreeLearner.h"

namespace sylvora::tests {

inline CheckCfgCLS Settings(const char* modelType, const char* lossFunc) {
    CheckCfgCLS cfg;
    cfg.modelType = modelType;
    cfg.fRegCls = "REG";
    cfg.lossFunc = lossFunc;
    cfg.fileModel = "/dev/null";
    cfg.numTree = cfg.numBound = 1;
    cfg.valSmpRt = cfg.ratio = 1.0;
    cfg.valShrink = 0.5;
    return cfg;
}

// A learner after ParamInit. Without `rows`, one column numbers the rows; `queryLengths` has the
// number of rows of each query.
inline std::unique_ptr<TreeLearner> Prepare(CheckCfgCLS cfg, const VecDle& labels,
                                            const VecInt& queryLengths = {}, VecVecDle rows = {}) {
    VecInt queries;
    for (size_t q = 0; q < queryLengths.size(); ++q) {
        queries.insert(queries.end(), static_cast<size_t>(queryLengths[q]), static_cast<int>(q));
    }
    for (size_t i = rows.size(); i < labels.size(); ++i) rows.push_back({static_cast<double>(i)});
    auto learner = std::make_unique<TreeLearner>(cfg);
    EXPECT_EQ(learner->DataInput(labels, std::move(rows), 0, std::move(queries), {}), 0);
    EXPECT_EQ(learner->ParamInit(), 0);
    return learner;
}

}  // namespace sylvora::tests

#endif  // SYLVORA_TESTS_TREELEARNER_PREPARED_H

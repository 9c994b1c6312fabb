// Data, models and learners for the tests of evaluation.
#ifndef SYLVORA_TESTS_TREELEARNER_EVALUATIONCASES_H
#define SYLVORA_TESTS_TREELEARNER_EVALUATIONCASES_H

#include <cmath>
#include <memory>
#include <string>
#include <vector>

#include "Prepared.h"
#include "claim.h"

namespace sylvora::tests {

constexpr int kColumns = 5;

// Rows whose labels follow the first two columns, with noise. `kind`: "REG" labels are reals, "01"
// and "+-" have two values, "RANK" is 0 to 3, "CLS" is 0 to 2.
struct Data {
    VecVecDle rowVV;
    VecDle labelV;
    VecInt queryV;

    Data(size_t count, unsigned seed, const std::string& kind) {
        std::mt19937 random(seed);
        const auto real = [&random] { return static_cast<double>(random() % 1000) / 1000.0; };
        for (size_t i = 0; i < count; ++i) {
            VecDle row;
            for (int c = 0; c < kColumns; ++c) {
                row.push_back(c % 2 == 0 ? real() : static_cast<double>(random() % 7));
            }
            const double truth = 2.0 * row[0] + row[1] / 6.0 + real();
            rowVV.push_back(row);
            labelV.push_back(kind == "REG"    ? truth
                             : kind == "01"   ? truth > 2.0
                             : kind == "+-"   ? (truth > 2.0 ? 1.0 : -1.0)
                             : kind == "RANK" ? std::floor(truth)
                                              : std::floor(std::min(truth, 2.9)));
            queryV.push_back(static_cast<int>(i / 10));
        }
    }
    VecDle Flat() const {
        VecDle flat;
        for (const VecDle& row : rowVV) flat.insert(flat.end(), row.begin(), row.end());
        return flat;
    }
};

struct Model {
    const char *modelType, *fRegCls, *lossFunc, *labels;
};
inline const Model kBoosted[] = {
    {"GBDT", "REG", "Square", "REG"},     {"GBDT", "REG", "Logistic", "+-"},
    {"GBDT", "REG", "HingeSquare", "+-"}, {"GBRank", "REG", "CrossEntropy", "RANK"},
    {"GBDT", "REG", "LogLoss", "+-"},     {"GBDT", "REG", "Huber", "REG"}};
inline const Model kOthers[] = {{"RandomForest", "REG", "Label", "REG"},
                                {"RandomForest", "CLS", "Label", "CLS"},
                                {"CART", "REG", "Label", "REG"},
                                {"CART", "CLS", "Label", "CLS"}};

// Groups of the ensemble before the first round.
inline int NumStartGroups(const Model& model) {
    const std::string loss = model.lossFunc;
    return loss == "LogLoss" || loss == "Huber" ? 1 : 0;
}

inline CheckCfgCLS ConfigOf(const Model& model, int numTree, int numThread) {
    CheckCfgCLS cfg = Settings(model.modelType, model.lossFunc);
    cfg.fRegCls = model.fRegCls;
    cfg.valSmpRt = cfg.ratio = 0.7;
    cfg.numBound = 3;
    cfg.numThread = numThread;
    cfg.numTree = cfg.modelType == "RandomForest" || cfg.modelType == "CART" ? 1 : numTree;
    cfg.sizeGroup = cfg.modelType == "RandomForest" ? numTree : 1;
    return cfg;
}

// A learner with training rows and, unless `dev` is null, development rows, after ParamInit.
inline std::unique_ptr<TreeLearner> MakeLearner(CheckCfgCLS cfg, const Data& data,
                                                const Data* dev) {
    auto learner = std::make_unique<TreeLearner>(cfg);
    if (dev != nullptr) {
        EXPECT_EQ(learner->DataInput(dev->labelV, dev->rowVV, 2, dev->queryV, {}), 0);
    }
    EXPECT_EQ(learner->DataInput(data.labelV, data.rowVV, 0, data.queryV, {}), 0);
    EXPECT_EQ(learner->ParamInit(), 0);
    gseed = -7;
    return learner;
}

inline EvaluationSet SetOf(const std::string& name, const Data& data, const VecDle& flat) {
    EvaluationSet set;
    set.name = name;
    set.block =
        RowsOf(flat.data(), static_cast<std::int64_t>(data.rowVV.size()), kColumns, kColumns);
    set.labels = data.labelV.data();
    set.queries = data.queryV.data();
    return set;
}

// The scores of the first `numGroups` groups, from the means that OnlineTesting reports.
inline VecDle ScoresAfter(TreeLearner& learner, const Data& data, size_t numGroups) {
    VecDle scoreV;
    for (VecDle row : data.rowVV) {
        double all = 0.0, score = 0.0;
        VecDle meanV(static_cast<size_t>(learner.getTreeNum()));
        EXPECT_EQ(learner.OnlineTesting(row.data(), all, kColumns, meanV.data()), 0);
        for (size_t g = 0; g < numGroups; ++g) score += learner.StepLengthV[g] * meanV[g];
        if (learner.CfgInfo.fRegCls == "CLS" || numGroups == meanV.size()) score = all;
        scoreV.push_back(score);
    }
    return scoreV;
}

}  // namespace sylvora::tests

#endif  // SYLVORA_TESTS_TREELEARNER_EVALUATIONCASES_H

// A user's program: trains a small model with the installed headers and library, loads the model
// file and scores with it. Usage: consumer MODEL-FILE. Exit status 0 on success.
#include <sylvora/CheckIn.h>
#include <sylvora/TreeLearner.h>
#include <sylvora/claim.h>

#include <cmath>
#include <cstdio>
#include <utility>

namespace {

// y = 10 where the first column is above 0.5, else -10; the second column is noise.
int Train(const char* fileModel) {
    CheckCfgCLS cfg;
    cfg.fileModel = fileModel;
    cfg.modelType = "GBDT";
    cfg.fRegCls = "REG";
    cfg.lossFunc = "Square";
    cfg.numTree = 20;
    cfg.valShrink = 0.5;
    cfg.valSmpRt = 1.0;
    cfg.ratio = 1.0;
    cfg.fSetThread = true;
    if (cfg.CheckCfg() != 0) return 1;

    VecDle labelV;
    VecVecDle rowVV;
    for (int i = 0; i < 100; ++i) {
        rowVV.push_back({i / 100.0, static_cast<double>(i % 7)});
        labelV.push_back(i > 50 ? 10.0 : -10.0);
    }
    gseed = -1;
    TreeLearner learner(cfg);
    if (learner.DataInput(std::move(labelV), std::move(rowVV), 0, {}, {}) != 0) return 1;
    if (learner.ParamInit() != 0 || learner.Boosting() != 0) return 1;
    return learner.getTreeNum() == 20 ? 0 : 1;
}

int Score(const char* fileModel) {
    TreeLearner learner;
    if (learner.LoadModelFull(fileModel) != 0) return 1;
    double lowV[] = {0.1, 3.0};
    double highV[] = {0.9, 3.0};
    double low = 0.0;
    double high = 0.0;
    if (learner.OnlineTesting(lowV, low, 2, nullptr) != 0) return 1;
    if (learner.OnlineTesting(highV, high, 2, nullptr) != 0) return 1;
    std::printf("%g %g\n", low, high);
    return std::fabs(low + 10.0) < 0.01 && std::fabs(high - 10.0) < 0.01 ? 0 : 1;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 2) return 2;
    if (Train(argv[1]) != 0 || Score(argv[1]) != 0) {
        std::fprintf(stderr, "the installed library does not train and score as it should\n");
        return 1;
    }
    return 0;
}

#include "Scoring.h"

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "Output/WholeFile.h"
#include "god/Report.h"

namespace sylvora::frontend {

int LoadModel(const std::string& fileModel, TreeLearner& model) {
    if (model.LoadModelFull(fileModel) == 0) return 0;
    return Fail("ERROR: fileModel ", fileModel, ": is no usable model\n");
}

int LoadModelOf(const CheckCfgCLS& cfg, TreeLearner& model) {
    model.CfgInfo.fPrint = cfg.fPrint;
    if (LoadModel(cfg.fileModel, model) != 0) return -1;
    return cfg.fileTran.empty() ? 0 : model.ReadLabelTran(cfg.fileTran);
}

// A regression writes one value per group, and a group may be empty.
Scorer::Scorer(TreeLearner& loaded)
    : model(loaded),
      fullResultV(std::max(static_cast<size_t>(loaded.getTreeNum()), loaded.TreeVV.size())) {}

int Scorer::Score(double* row, int n, double& score) {
    return model.OnlineTesting(row, score, n, fullResultV.data());
}

double MapLabel(const std::map<double, double>& tranMap, double label) {
    const auto mapped = tranMap.find(label);
    return mapped == tranMap.end() ? label : mapped->second;
}

int WriteScores(const std::string& filePred, const VecDle& scoreV) {
    WholeFile file(filePred);
    if (file.IsOpen()) {
        for (const double score : scoreV) file.Stream() << score << '\n';
        if (file.Commit()) return 0;
    }
    return Fail("ERROR: filePred ", filePred, ": cannot be written: ", std::strerror(errno), "\n");
}

}  // namespace sylvora::frontend

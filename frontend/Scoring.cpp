#include "Scoring.h"

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "Output/WholeFile.h"
#include "StopSignals.h"
#include "god/Report.h"

namespace sylvora::frontend {
namespace {

// What is gathered at a time: enough for all threads, and little beside a model.
constexpr size_t kMostRows = 16384;
constexpr size_t kMostBytes = size_t{1} << 24;

}  // namespace

int LoadModel(const std::string& fileModel, TreeLearner& model) {
    if (model.LoadModelFull(fileModel) == 0) return 0;
    return Fail("ERROR: fileModel ", fileModel, ": is no usable model\n");
}

int LoadModelOf(const CheckCfgCLS& cfg, TreeLearner& model) {
    model.CfgInfo.fPrint = cfg.fPrint;
    if (LoadModel(cfg.fileModel, model) != 0) return -1;
    return cfg.fileTran.empty() ? 0 : model.ReadLabelTran(cfg.fileTran);
}

Scorer::Scorer(TreeLearner& loaded, int dimFea, int threads, VecDle& scores)
    : model(loaded),
      dim(static_cast<size_t>(dimFea)),
      numThread(threads),
      mostValues(std::min(kMostBytes / sizeof(double), kMostRows * dim)),
      scoreV(scores) {}

int Scorer::Add(const double* row) {
    // What keeps all rows from being scored is told with the first one.
    if (rowV.empty() && scoreV.empty() && Finish() != 0) return -1;
    rowV.insert(rowV.end(), row, row + dim);
    return rowV.size() < mostValues ? 0 : Finish();
}

int Scorer::Finish() {
    const size_t numRows = dim == 0 ? 0 : rowV.size() / dim;
    const size_t numScored = scoreV.size();
    scoreV.resize(numScored + numRows);
    const double* rows = rowV.data();
    if (model.OnlineTestingBatch(rows, numRows, dim, scoreV.data() + numScored, numThread) != 0) {
        return -1;
    }
    rowV.clear();
    return 0;
}

double MapLabel(const std::map<double, double>& tranMap, double label) {
    const auto mapped = tranMap.find(label);
    return mapped == tranMap.end() ? label : mapped->second;
}

int WriteScores(const std::string& filePred, const VecDle& scoreV) {
    const StopLater later;
    WholeFile file(filePred);
    if (file.IsOpen()) {
        for (const double score : scoreV) file.Stream() << score << '\n';
        if (file.Commit()) return 0;
    }
    return Fail("ERROR: filePred ", filePred, ": cannot be written: ", std::strerror(errno), "\n");
}

}  // namespace sylvora::frontend

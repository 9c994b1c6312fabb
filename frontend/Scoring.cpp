// Loads models and label maps, scores batches of rows and writes score files.
#include "Scoring.h"

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "ConfigChecks.h"
#include "Output/WholeFile.h"
#include "StopSignals.h"
#include "god/Report.h"

namespace sylvora::frontend {
namespace {

// Limits of a batch; 2^21 values are 16 MB.
constexpr size_t kMostRows = 16384;
constexpr size_t kMostValues = size_t{1} << 21;

}  // namespace

int LoadModel(const std::string& fileModel, TreeLearner& model) {
    model.setPackedTrees(true);
    if (model.LoadModelFull(fileModel) == 0) return 0;
    return Fail("ERROR: fileModel ", fileModel, ": is not a usable model\n");
}

int ReadLabelMap(const std::string& fileTran, TreeLearner& learner) {
    if (fileTran.empty()) return 0;
    const RereadableFile map(fileTran);
    const std::string name = "labelTran " + fileTran;
    if (!map.Complaint().empty()) return Fail("ERROR: ", name, ": ", map.Complaint(), "\n");
    return learner.ReadLabelTran(map.Path()) == 0 ? CheckLineEnds(map, name) : -1;
}

int LoadModelOf(const CheckCfgCLS& cfg, TreeLearner& model) {
    model.CfgInfo.fPrint = cfg.fPrint;
    if (LoadModel(cfg.fileModel, model) != 0) return -1;
    return ReadLabelMap(cfg.fileTran, model);
}

Scorer::Scorer(TreeLearner& loaded, int dimFea, int threads, VecDle& scores)
    : model(loaded),
      dim(static_cast<size_t>(dimFea)),
      numThread(threads),
      batchRows(std::clamp(kMostValues / std::max(dim, size_t{1}), size_t{1}, kMostRows)),
      scoreV(scores) {}

int Scorer::Score(const double* rows, size_t numRows) {
    const size_t numScored = scoreV.size();
    scoreV.resize(numScored + numRows);
    return model.OnlineTestingBatch(rows, numRows, dim, scoreV.data() + numScored, numThread);
}

double MapLabel(const std::map<double, double>& tranMap, double label) {
    const auto mapped = tranMap.find(label);
    return mapped == tranMap.end() ? label : mapped->second;
}

int WriteScores(const std::string& filePred, const VecDle& scoreV) {
    const StopLater later;
    WholeFile file(filePred, IsStopWanted);
    if (file.IsOpen()) {
        for (const double score : scoreV) file.Stream() << score << '\n';
        if (file.Commit()) return 0;
    }
    return Fail("ERROR: filePred ", filePred, ": cannot be written: ", std::strerror(errno), "\n");
}

}  // namespace sylvora::frontend

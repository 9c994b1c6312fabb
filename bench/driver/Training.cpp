// The job "train".
#include <algorithm>
#include <cmath>
#include <memory>
#include <stdexcept>
#include <utility>
#include <vector>

#include "Jobs.h"
#include "RawData.h"
#include "TreeLearner.h"
#include "claim.h"

namespace sylvora::bench {
namespace {

// Records when each round, or each tree of a forest, was done.
struct Progress {
    StopWatch watch;
    std::vector<Seconds> doneV;

    static int Note(void* context, int, int) {
        Progress& progress = *static_cast<Progress*>(context);
        progress.doneV.push_back(progress.watch.Read());
        return 0;
    }
};

void SayRounds(const std::vector<Seconds>& doneV, const Seconds& end) {
    if (doneV.empty()) throw std::runtime_error("Boosting reported no round");
    Say("first", doneV.front());
    Say("rest", doneV.back() - doneV.front());
    Say("rounds", static_cast<double>(doneV.size()));
    Say("finish", end - doneV.back());
}

// A forest keeps no training predictions, so score a sample of the rows: enough to see that it
// learnt.
double ForestMisfit(TreeLearner& learner) {
    const int numRows = std::min(learner.sampleSize, 2000);
    double sum = 0.0;
    for (int i = 0; i < numRows; ++i) {
        double result = 0.0;
        Require(learner.OnlineTesting(learner.featureVV[i], result, learner.dimFea, nullptr),
                "OnlineTesting");
        const double miss = result - learner.labelV[i];
        sum += learner.numClass > 0 ? (miss != 0.0 ? 1.0 : 0.0) : miss * miss;
    }
    return learner.numClass > 0 ? sum / numRows : std::sqrt(sum / numRows);
}

// The share of pairs of a query with different labels that the predictions order wrongly; equal
// predictions count as wrong.
double RankMisfit(const TreeLearner& learner) {
    double numPairs = 0.0;
    double numWrong = 0.0;
    for (int i = 0; i < learner.sampleSize; ++i) {
        for (int k = i + 1; k < learner.sampleSize; ++k) {
            if (learner.queryIdV[k] != learner.queryIdV[i]) break;
            const double order = learner.labelV[i] - learner.labelV[k];
            if (order == 0.0) continue;
            numPairs += 1.0;
            if (order * (learner.predictV[i] - learner.predictV[k]) <= 0.0) numWrong += 1.0;
        }
    }
    return numWrong / numPairs;
}

double Misfit(TreeLearner& learner) {
    if (learner.modelType == "RandomForest") return ForestMisfit(learner);
    if (learner.modelType == "GBRank") return RankMisfit(learner);
    double sum = 0.0;
    for (int i = 0; i < learner.sampleSize; ++i) {
        const double miss = learner.predictV[i] - learner.labelTrV[i];
        sum += miss * miss;
    }
    return std::sqrt(sum / learner.sampleSize);
}

}  // namespace

void Train(const Job& job) {
    CheckCfgCLS cfg;
    Require(cfg.ReadCfgFile(job.Text("config")), "ReadCfgFile");
    Require(cfg.CheckCfg(), "CheckCfg");
    gseed = -1;
    const double before = MemoryBytes("VmRSS");
    LearnerData data = ReadForLearner(job.Text("data"));
    const RawHeader header = data.header;
    TreeLearner learner(cfg);
    learner.setPackedTrees(true);  // as the command does

    const StopWatch preparation;
    Require(learner.DataInput(std::move(data.labelV), std::move(data.rowVV), 0,
                              std::move(data.queryV), {}),
            "DataInput");
    Require(learner.ParamInit(), "ParamInit");
    Say("prepare", preparation.Read());

    Progress progress;
    learner.setProgress(Progress::Note, &progress);
    progress.watch = StopWatch();
    Require(learner.Boosting(), "Boosting");
    SayRounds(progress.doneV, progress.watch.Read());
    Say("peak_bytes", MemoryBytes("VmHWM") - before);
    Say("cells", static_cast<double>(header.numRows) * header.numColumns);
    Say("misfit", Misfit(learner));
}

void Fit(const Job& job) {
    CheckCfgCLS cfg;
    Require(cfg.ReadCfgFile(job.Text("config")), "ReadCfgFile");
    Require(cfg.CheckCfg(), "CheckCfg");
    const RawData data = ReadRaw(job.Text("data"));
    const VecDle labelV(data.labelV.begin(), data.labelV.end());
    const double before = MemoryBytes("VmRSS");

    const StopWatch watch;
    TreeLearner learner(cfg);
    RandomStream stream(1);
    learner.trainingOptions.stream = &stream;
    learner.setPackedTrees(true);
    const std::shared_ptr<const DataSet> set = DataSet::Make(BlockOf(data));
    Require(set != nullptr ? 0 : -1, "DataSet::Make");
    Require(learner.DataBorrow(set, labelV.data(), static_cast<int>(labelV.size()), nullptr, 0),
            "DataBorrow");
    Require(learner.ParamInit(), "ParamInit");
    Require(learner.Boosting(), "Boosting");
    Say("fit", watch.Read());
    Say("peak_bytes", MemoryBytes("VmHWM") - before);
    Say("cells", static_cast<double>(data.header.numRows) * data.header.numColumns);
    Say("misfit", Misfit(learner));
}

}  // namespace sylvora::bench

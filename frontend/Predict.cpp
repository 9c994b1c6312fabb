// Mode predict: scores a data file with a model file.
#include <algorithm>

#include "DataFile.h"
#include "DataSet.h"
#include "Metrics.h"
#include "Modes.h"
#include "Paths.h"
#include "Scoring.h"

namespace sylvora::frontend {
namespace {

int CheckPaths(const Command& command) {
    const CheckCfgCLS& cfg = command.cfg;
    if (RequirePath({"fileModel", cfg.fileModel}, "the model to score with") != 0 ||
        RequirePath({"fileTest", cfg.fileTest}, "the data to score") != 0 ||
        RequirePath({"filePred", cfg.filePred}, "the file for the scores") != 0) {
        return -1;
    }
    return TryOutputs(command, {{"filePred", cfg.filePred}});
}

// Few rows are held at a time, but all values of a row are set anew for each line of the file;
// where not even so many rows would fit into memory, an id is a slip and scoring would take for
// ever.
constexpr long kRowsToFit = 100;

// A few rows at a time, so that a file of any length can be scored.
int ScoreFile(DataFile& file, int numThread, TreeLearner& model, ScoredSet& set) {
    if (file.Scan() != 0) return -1;
    const int dim = WidestRow({&file}, model.getFeatureDim());
    if (CheckMemory({&file}, std::min(file.NumRows(), kRowsToFit), dim) != 0) return -1;
    QueryNumbers numbers(file, model.CfgInfo.modelType == "GBRank");
    Scorer scorer(model, dim, numThread, set.scoreV);
    DataRow row;
    file.StartRows(dim);
    for (;;) {
        const DataFile::Status status = file.Next(row);
        if (status == DataFile::kEnd) return set.labelV.empty() ? 0 : scorer.Finish();
        if (status != DataFile::kRow || numbers.Append(row, set.queryIdV) != 0 ||
            scorer.Add(row.valueV.data()) != 0) {
            return -1;
        }
        set.labelV.push_back(MapLabel(model.tranMap, row.label));
    }
}

}  // namespace

int Predict(const Command& command) {
    const CheckCfgCLS& cfg = command.cfg;
    if (CheckPaths(command) != 0) return -1;
    TreeLearner model;
    if (LoadModelOf(cfg, model) != 0) return -1;
    DataFile file("fileTest", cfg.fileTest);
    ScoredSet set;
    if (ScoreFile(file, cfg.numThread, model, set) != 0) return -1;
    if (set.queryIdV.size() != set.scoreV.size()) set.queryIdV.clear();
    if (WriteScores(cfg.filePred, set.scoreV) != 0) return -1;
    PrintMetrics(model, set);
    return 0;
}

}  // namespace sylvora::frontend

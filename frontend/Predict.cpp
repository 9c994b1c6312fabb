// Mode predict: scores a data file with a model file, batch by batch.
#include <algorithm>

#include "CheckIn/Validation.h"
#include "Metrics.h"
#include "Modes.h"
#include "Paths.h"
#include "Scoring.h"
#include "god/Report.h"
#include "reading/DataFile.h"
#include "reading/DataSet.h"
#include "reading/ReadingNotices.h"

namespace sylvora::frontend {
namespace {

int CheckPaths(const Command& command) {
    const CheckCfgCLS& cfg = command.cfg;
    if (RequirePath({"fileModel", cfg.fileModel}, "the model to score with") != 0 ||
        RequirePath({"fileTest", cfg.fileTest}, "the data to score") != 0 ||
        RequirePath({"filePred", cfg.filePred}, "the file for the scores") != 0) {
        return -1;
    }
    return CheckFiles(command, {{"filePred", cfg.filePred}});
}

// Only one batch of rows is in memory at a time. If not even this many rows of the model's width
// fit, the model's column count must be wrong.
constexpr long kRowsToFit = 100;

// A buffer of consecutive rows that is reused for every batch.
class Batch {
  public:
    Batch(const DataFile& dataFile, const LineRules& lineRules, size_t mostRows)
        : file(dataFile),
          rules{lineRules, false},
          labelV(mostRows),
          valueV(mostRows * static_cast<size_t>(lineRules.dim)) {}

    // Fills the buffer with the file's rows from row `first` on; the last batch may be shorter.
    RowReport Read(long first, ReadingThreads& threads) {
        const long numLeft = file.NumRows() - first;
        Buffers buffers(*this, first, std::min(numLeft, static_cast<long>(labelV.size())));
        numRows = static_cast<size_t>(buffers.count);
        return ReadRows(file, rules, buffers, threads);
    }

    int ComplainOf(const RowFault& fault) const { return Complain(file, rules, fault); }
    size_t NumRows() const { return numRows; }
    const double* Values() const { return valueV.data(); }
    double Label(size_t row) const { return labelV[row]; }

  private:
    class Buffers : public RowBuffers {
      public:
        Buffers(Batch& owner, long firstRow, long rowCount)
            : RowBuffers(firstRow, rowCount), batch(owner) {}
        double* ValuesAt(long row) override {
            return batch.valueV.data() + row * batch.rules.line.dim;
        }
        double& LabelAt(long row) override { return batch.labelV[static_cast<size_t>(row)]; }

      private:
        Batch& batch;
    };

    const DataFile& file;
    const RowRules rules;
    size_t numRows = 0;  // in the current batch
    VecDle labelV;
    VecDle valueV;
};

// Scores the file batch by batch, so that memory does not limit its length.
int ScoreRows(const DataFile& file, const LineRules& rules, const CheckCfgCLS& cfg,
              ReadingThreads& threads, TreeLearner& model, ScoredSet& set) {
    QueryNumbers numbers(file, model.CfgInfo.modelType == "GBRank");
    Scorer scorer(model, rules.dim, AskedThreads(cfg), set.scoreV);
    // Check the model before allocating rows: one that cannot score may claim any number of
    // columns.
    if (scorer.Score(nullptr, 0) != 0) return -1;
    if (model.getTreeNum() == 0)
        return Fail("ERROR: fileModel ", cfg.fileModel, ": holds no trees\n");
    Batch batch(file, rules, std::min(scorer.BatchRows(), static_cast<size_t>(file.NumRows())));
    RowCounts counts;
    for (long row = 0; row < file.NumRows(); row += static_cast<long>(batch.NumRows())) {
        const RowReport report = batch.Read(row, threads);
        for (const QueryRun& run : report.runV) {
            if (numbers.Append(run, set.queryIdV) != 0) return -1;
        }
        if (report.fault.row >= 0) return batch.ComplainOf(report.fault);
        if (scorer.Score(batch.Values(), batch.NumRows()) != 0) return -1;
        for (size_t i = 0; i < batch.NumRows(); ++i) {
            set.labelV.push_back(MapLabel(model.tranMap, batch.Label(i)));
        }
        counts.Add(report.counts);
    }
    NoticeLargerIds(file, rules.dim, counts);
    NoticeAbsent(cfg, file, rules.dim, counts);
    return 0;
}

// Scores the file with the model's columns; larger ids in the file are ignored.
int ScoreFile(DataFile& file, const CheckCfgCLS& cfg, TreeLearner& model, ScoredSet& set) {
    ReadingThreads threads(AskedThreads(cfg));
    if (file.Scan(threads) != 0) return -1;
    if (file.NumRows() == 0) return file.Refuse(0, "has no rows to score");
    const int dim = model.getFeatureDim();
    if (CheckMemory({&file}, std::min(file.NumRows(), kRowsToFit), dim) != 0) return -1;
    const LineRules rules = FirstColumnsOf(dim, file.LargestId(), AbsentValue(cfg));
    return ScoreRows(file, rules, cfg, threads, model, set);
}

}  // namespace

int Predict(const Command& command) {
    const CheckCfgCLS& cfg = command.cfg;
    if (CheckAbsent(cfg) != 0 || CheckPaths(command) != 0) return -1;
    TreeLearner model;
    if (LoadModelOf(cfg, model) != 0) return -1;
    DataFile file("fileTest", cfg.fileTest);
    ScoredSet set;
    if (ScoreFile(file, cfg, model, set) != 0) return -1;
    if (set.queryIdV.size() != set.scoreV.size()) set.queryIdV.clear();
    if (WriteScores(cfg.filePred, set.scoreV) != 0) return -1;
    PrintMetrics(model, set);
    return 0;
}

}  // namespace sylvora::frontend

// Scoring with a model file: loads the model, scores rows in batches, writes the scores.
#ifndef SYLVORA_FRONTEND_SCORING_H
#define SYLVORA_FRONTEND_SCORING_H

#include <map>
#include <string>

#include "Libdef.h"
#include "TreeLearner.h"

namespace sylvora::frontend {

// Scored rows, for the metrics; one entry per row. The label map has been applied to the labels.
// `queryIdV` is empty if any row has no query.
struct ScoredSet {
    VecDle scoreV;
    VecDle labelV;
    VecInt queryIdV;
};

// Loads `fileModel` into a new learner. Returns 0, or -1 after the learner's message and a second
// one that names the file.
[[nodiscard]] int LoadModel(const std::string& fileModel, TreeLearner& model);

// Reads the label map, if one is set, and checks that none of it was skipped. Returns 0, or -1
// after a message.
[[nodiscard]] int ReadLabelMap(const std::string& fileTran, TreeLearner& learner);

// Loads the model and the label map, if any, for a run without training, and sets the model's
// fPrint. Returns 0, or -1 after a message.
[[nodiscard]] int LoadModelOf(const CheckCfgCLS& cfg, TreeLearner& model);

// Scores rows with OnlineTestingBatch, with the scores of OnlineTesting with a result buffer: every
// tree of a classification votes. Not thread-safe; each batch is scored by several threads.
class Scorer {
  public:
    // A row has `dimFea` values. Scores are appended to `scores` in row order. `threads` 0: one
    // thread per usable processor. `loaded` and `scores` must outlive the scorer.
    Scorer(TreeLearner& loaded, int dimFea, int threads, VecDle& scores);

    // Rows per batch: enough to keep all threads busy, but at most kMostValues doubles.
    size_t BatchRows() const { return batchRows; }
    // Scores `numRows` consecutive rows. With 0 rows it only checks that the model can score.
    // Returns 0, or -1 after a message.
    [[nodiscard]] int Score(const double* rows, size_t numRows);

  private:
    TreeLearner& model;
    size_t dim;
    int numThread;
    size_t batchRows;
    VecDle& scoreV;
};

// The label that the map gives for `label`, or `label` itself if the map does not contain it.
double MapLabel(const std::map<double, double>& tranMap, double label);

// Writes one score per line. The file appears whole or not at all. Returns 0, or -1 after a
// message.
[[nodiscard]] int WriteScores(const std::string& filePred, const VecDle& scoreV);

}  // namespace sylvora::frontend

#endif  // SYLVORA_FRONTEND_SCORING_H

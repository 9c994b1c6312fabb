// Scoring with a model file: loading it, scoring rows, keeping and writing the scores.
#ifndef SYLVORA_FRONTEND_SCORING_H
#define SYLVORA_FRONTEND_SCORING_H

#include <map>
#include <string>

#include "Libdef.h"
#include "TreeLearner.h"

namespace sylvora::frontend {

// Scored rows, for metrics: one entry per row. Labels are those after the label map; `queryIdV` is
// empty where a row has no query.
struct ScoredSet {
    VecDle scoreV;
    VecDle labelV;
    VecInt queryIdV;
};

// Loads `fileModel` into a fresh learner. Returns 0, or -1 after the learner's message and one that
// names the file.
[[nodiscard]] int LoadModel(const std::string& fileModel, TreeLearner& model);

// Reads the label map, if there is one, and checks that it was read to its end. Returns 0, or -1
// after a message.
[[nodiscard]] int ReadLabelMap(const std::string& fileTran, TreeLearner& learner);

// LoadModel for the settings of a run that needs no training: the model prints what fPrint asks for
// and has the label map, if there is one.
[[nodiscard]] int LoadModelOf(const CheckCfgCLS& cfg, TreeLearner& model);

// Scores rows as a program that asks for the value of every tree would (with a result buffer), so
// that each tree of a classification votes.
class Scorer {
  public:
    // Rows have `dimFea` values; their scores are appended to `scores`, in order. With 0 threads,
    // as many as there are usable processors.
    Scorer(TreeLearner& loaded, int dimFea, int threads, VecDle& scores);

    // How many rows to score together: enough for all threads, and little beside a model.
    size_t BatchRows() const { return batchRows; }
    // Scores rows that lie one after the other; without any, says whether rows can be scored at
    // all. Returns 0, or -1 after a message.
    [[nodiscard]] int Score(const double* rows, size_t numRows);

  private:
    TreeLearner& model;
    size_t dim;
    int numThread;
    size_t batchRows;
    VecDle& scoreV;
};

// The label that stands for `label`: itself where the map does not have it.
double MapLabel(const std::map<double, double>& tranMap, double label);

// Writes one score per line; the file appears whole or not at all. Returns 0, or -1 after a
// message.
[[nodiscard]] int WriteScores(const std::string& filePred, const VecDle& scoreV);

}  // namespace sylvora::frontend

#endif  // SYLVORA_FRONTEND_SCORING_H

// A set that a run evaluates: its rows and their scores so far.
#ifndef SYLVORA_TREELEARNER_EVALUATEDSET_H
#define SYLVORA_TREELEARNER_EVALUATEDSET_H

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "../Evaluation/NamedMetrics.h"
#include "EnsembleView.h"
#include "base/BlockReader.h"
#include "engine/score/NodeWalk.h"

namespace sylvora {

// The trees of one group, in the form in which many rows are walked at a time. Immutable once made.
class WalkedGroup {
  public:
    // With `fCompact` a row has values only for the columns that the trees split on, in the order
    // of Columns(); otherwise it has all columns.
    WalkedGroup(const EnsembleView& trees, size_t group, double groupShrink, bool fCompact);

    const VecInt& Columns() const { return columnV; }
    // Adds the output of the group to scoreV[0, numRows) as OnlineTesting does: shrink times the
    // mean of the trees. `leafV` and `sumV` are buffers of numRows entries.
    void AddTo(const double* const* rowV, int numRows, uint32_t* leafV, double* sumV,
               double* scoreV) const;

  private:
    engine::WalkedTrees trees;
    std::vector<uint32_t> rootV;  // by tree
    VecInt columnV;               // ascending
    double shrink;
};

// The rows are borrowed; labels and scores are owned.
class EvaluatedSet {
  public:
    // Rows that a block describes, which must have no fault, or rows of doubles.
    EvaluatedSet(std::string setName, const DataBlock& block, MeasuredSet measuredSet);
    EvaluatedSet(std::string setName, const double* const* rows, MeasuredSet measuredSet);

    const std::string& Name() const { return name; }
    size_t NumRows() const { return scoreV.size(); }
    bool IsBlock() const { return reader != nullptr; }
    MeasuredSet& Measured() { return measured; }
    const MeasuredSet& Measured() const { return measured; }
    double Measure(const NamedMetric& metric) const {
        return measured.Measure(metric, scoreV.data());
    }

    // Rows are scored in pieces of this many; the last one may be shorter.
    static constexpr size_t kPieceRows = 256;
    size_t NumPieces() const { return (NumRows() + kPieceRows - 1) / kPieceRows; }
    // Adds the output of a group to the scores of a piece. The group must be compact exactly if
    // this set is a block. Different pieces may be scored at the same time.
    void AddGroup(const WalkedGroup& group, size_t piece);

    // Writes the first `dim` columns of the rows [begin, end) to `values`, row by row.
    void ReadRows(size_t begin, size_t end, int dim, double* values) const;
    double* Scores() { return scoreV.data(); }

  private:
    std::string name;
    std::unique_ptr<const BlockReader> reader;  // null: the rows are in rowVV
    const double* const* rowVV = nullptr;
    MeasuredSet measured;
    VecDle scoreV;
};

}  // namespace sylvora

#endif  // SYLVORA_TREELEARNER_EVALUATEDSET_H

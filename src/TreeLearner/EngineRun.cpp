// Choosing and driving the engine of a run; see EngineRun.h.
#include "EngineRun.h"

#include <algorithm>
#include <utility>
#include <vector>

#include "../Node/SampledColumns.h"
#include "../Node/SplitScan.h"
#include "Ranks.h"
#include "TrainingRows.h"
#include "base/Switch.h"
#include "engine/train/histogram/BinnedColumns.h"
#include "engine/train/histogram/HistogramGrower.h"
#include "engine/train/histogram/PredictionUpdate.h"
#include "engine/train/lists/Criterion.h"
#include "engine/train/lists/SortedListGrower.h"

namespace sylvora {
namespace {

// The learner's data set, or one for this run alone, of its rows.
std::shared_ptr<const CodedData> CodedDataOf(const TreeLearner& learner) {
    if (learner.BorrowedData() != nullptr) return learner.BorrowedData()->Shared();
    return std::make_shared<const CodedData>(TrainingRows(learner));
}

// The ranks of a training; null if there are no others.
Ranks* OtherRanks(const TreeLearner& learner) {
    Ranks* const ranks = learner.trainingOptions.ranks;
    return ranks != nullptr && ranks->Size() > 1 ? ranks : nullptr;
}

// Whether a fact holds here or at any other rank.
bool AtAnyRank(Ranks* ranks, bool fHere) {
    if (ranks == nullptr) return fHere;
    const std::vector<int> everyV = ranks->Gather(static_cast<int>(fHere));
    return std::find(everyV.begin(), everyV.end(), 1) != everyV.end();
}

}  // namespace

// The reference search over some column slots of a node. Immutable, so thread-safe; borrows the
// rows of the learner.
class EngineRun::NodeReferenceSearch : public engine::ReferenceSearch {
  public:
    explicit NodeReferenceSearch(const engine::Matrix& data) : matrix(data) {}

    engine::SplitPoint Search(const engine::GrownNode& node, const engine::RowSlice& rows,
                              const int* columnV, const std::vector<int>& slotV) const override {
        std::vector<int> onesV;
        if (rows.weightV == nullptr) onesV.assign(static_cast<size_t>(rows.count), 1);
        const RegressionNode facts = {rows.gradV,
                                      rows.weightV != nullptr ? rows.weightV : onesV.data(),
                                      node.gradAll, node.wgtAll};
        // One buffer for all slots. Slots are scanned in ascending order, as the reference
        // implementation does, so the first of equal candidates wins here as there.
        SortedColumn column(rows.count);
        CandidateSplit best;
        for (const int slot : slotV) {
            CandidateSplit at;
            at.slot = slot;
            at.column = columnV[slot];
            column.Load(matrix, rows.rowV, at.column);
            if (column.IsScanned()) ScanColumn(column, facts, at, best);
        }
        engine::SplitPoint split;
        split.column = best.column;
        split.threshold = best.threshold;
        split.fNarrow = best.fNarrow;
        split.countL = best.countL;
        split.score = best.score;
        return split;
    }

  private:
    const engine::Matrix matrix;
};

// Splits found with histograms: for boosted trees and a regression's single tree, which have few
// levels and many rows on each. The grower borrows the columns, so these are declared first.
struct EngineRun::HistogramEngine {
    HistogramEngine(const CodedData& data, const engine::GrowthLimits& limits, EngineRun& run)
        : binned(data.Binned(run.tuning, run.pool)),
          columns(*binned),
          growth(columns, run.pool, limits, run.tuning, *run.reference) {}

    std::shared_ptr<const engine::BinnedColumns> binned;
    const engine::BinnedColumns& columns;
    engine::HistogramGrower growth;
};

// Splits found with sorted lists of rows: for classification and forests, which have many levels
// and mostly small nodes. `fKept` says whether the lists of all columns are kept in memory. The
// grower borrows the other two members, so these are declared first.
struct EngineRun::ListEngine {
    ListEngine(const TreeLearner& learner, const engine::GrowthLimits& limits,
               std::shared_ptr<const engine::ColumnOrders> orders, EngineRun& run)
        : lists(engine::SortedColumns::Make(std::move(orders))),
          criterion(engine::Criterion::Make(learner.CfgInfo.fRegCls != "REG", learner.numClass)),
          growth(*lists, run.pool, limits, run.tuning, *criterion, *run.reference) {}

    std::unique_ptr<engine::SortedColumns> lists;
    std::unique_ptr<engine::Criterion> criterion;
    engine::SortedListGrower growth;
};

// With several ranks, all use the engine, or none.
std::unique_ptr<EngineRun> EngineRun::Start(const TreeLearner& learner, WorkerPool& pool) {
    Ranks* const ranks = OtherRanks(learner);
    const bool fReference = UseReferenceImplementation() || learner.fDebug ||
                            learner.sampleFeaType != nullptr ||
                            (learner.CfgInfo.maxDepth < 1 && learner.modelType != "RandomForest");
    if (AtAnyRank(ranks, fReference)) return nullptr;
    std::unique_ptr<EngineRun> run(new EngineRun(learner, pool));
    if (AtAnyRank(ranks, !run->Prepare(learner))) run.reset();
    return run;
}

EngineRun::EngineRun(const TreeLearner& learner, WorkerPool& workers)
    : tuning(engine::CurrentTuning()),
      pool(workers),
      ranks(OtherRanks(learner)),
      data(CodedDataOf(learner)),
      reference(std::make_unique<NodeReferenceSearch>(data->Values())) {}

EngineRun::~EngineRun() = default;

bool EngineRun::Prepare(const TreeLearner& learner) {
    const CheckCfgCLS& c = learner.CfgInfo;
    const bool fForest = learner.modelType == "RandomForest";
    // Without CheckCfg the ratio may be anything; clamped, it samples all columns or none,
    // as the reference implementation does.
    const int numSelFea = std::clamp(NumSampledColumns(learner.dimFea, c.ratio), 0, learner.dimFea);
    const engine::GrowthLimits limits = {c.maxLeaf, c.maxDepth, c.numBound, numSelFea, fForest};
    // Keeping the lists of all columns pays only if a node samples many of them; otherwise a
    // regression is faster with histograms. Lists do not support weights.
    const bool fManyDrawn = 100.0 * numSelFea >= 1.0 * tuning.listPercent * learner.dimFea;
    if (c.fRegCls != "REG" || (fForest && fManyDrawn && WeightsOf(learner) == nullptr)) {
        const auto form =
            fManyDrawn ? engine::ColumnOrders::Form::kLists : engine::ColumnOrders::Form::kRanks;
        lists = std::make_unique<ListEngine>(learner, limits, data->Orders(form, pool), *this);
        if (ranks != nullptr) lists->growth.UseRanks(*ranks);
        return !lists->lists->HasNan();
    }
    histograms = std::make_unique<HistogramEngine>(*data, limits, *this);
    if (ranks != nullptr) histograms->growth.UseRanks(*ranks);
    // Only draws of single rows can be made ahead, not of queries. A CART has a single tree.
    if (pool.NumWorkers() > 1 && learner.modelType != "CART" && c.randomMode == "DOC") {
        rowsAhead = std::make_unique<RowsAhead>(pool);
    }
    return !histograms->columns.HasNan();
}

bool EngineRun::Grow(const TreeLearner& learner, TreeCR& tree, const int* weightV,
                     std::unique_ptr<int[]>& indexV, int num, long* seed) {
    grownTree = nullptr;
    // Rows drawn ahead that this tree did not take are stale: a callback may have changed how rows
    // are drawn.
    if (rowsAhead) rowsAhead->Forget();
    if (lists) {
        // All weights were 1 when the run began, but the user may have changed them since.
        if (learner.CfgInfo.fRegCls == "REG" && weightV != nullptr) return false;
        if (!lists->growth.Grow(learner.gradientV, indexV.get(), num, seed)) return false;
        tree.Adopt(lists->growth.Nodes());
        return true;
    }
    engine::HistogramGrower& growth = histograms->growth;
    // Called once the tree needs no more random numbers: the generator then stands where the next
    // tree's draw begins.
    const auto drawAhead = [&] {
        if (rowsAhead) rowsAhead->Start(RowDraw::PerTree(learner), seed);
    };
    if (!growth.Take(learner.gradientV, weightV, indexV.get(), num)) return false;
    indexV.reset();  // the grower has its own copy now
    growth.Grow(seed, drawAhead);
    tree.Adopt(growth.Nodes());
    if (tree.setNodeValues) tree.setNodeValues(growth.Rows().data());
    grownTree = &tree;
    return true;
}

bool EngineRun::TakeRowsAhead(const RowDraw& draw, long* seed, std::unique_ptr<int[]>& drawnV) {
    return rowsAhead && rowsAhead->Take(draw, seed, drawnV);
}

bool EngineRun::StepPredictions(const TreeLearner& learner) {
    // UpdatePrediction uses the first tree of the group. In a forest that is not the last one
    // grown, whose row partition the engine still holds.
    if (grownTree == nullptr || learner.TreeGroup.empty() || learner.TreeGroup[0] != grownTree) {
        return false;
    }
    // The order of the products is deliberate: it fixes their rounding.
    std::vector<double> stepV;
    for (const NodeCR* node : learner.TreeGroup[0]->NodeV) {
        stepV.push_back(node->avgPredict * learner.dynShrink * learner.valShrink);
    }
    if (ranks != nullptr) {
        engine::StepPredictionsByRanks(histograms->growth, histograms->columns, *ranks, pool,
                                       stepV.data(), learner.predictV);
    } else {
        engine::StepPredictions(histograms->growth, histograms->columns, pool, stepV.data(),
                                learner.predictV);
    }
    return true;
}

}  // namespace sylvora

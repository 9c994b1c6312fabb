// The engine at work for a learner; see EngineRun.h.
#include "EngineRun.h"

#include <algorithm>
#include <vector>

#include "../Node/SampledColumns.h"
#include "../Node/SplitScan.h"
#include "base/Switch.h"
#include "engine/train/histogram/BinnedColumns.h"
#include "engine/train/histogram/HistogramGrower.h"
#include "engine/train/histogram/PredictionUpdate.h"
#include "engine/train/lists/Criterion.h"
#include "engine/train/lists/SortedListGrower.h"

namespace sylvora {

// The plain search over some slots of a node.
class EngineRun::NodePlainSearch : public engine::ReferenceSearch {
  public:
    explicit NodePlainSearch(const double* const* rows) : featureVV(rows) {}

    engine::SplitPoint Search(const engine::GrownNode& node, const engine::RowSlice& rows,
                              const int* columnV, const std::vector<int>& slotV) const override {
        std::vector<int> onesV;
        if (rows.weightV == nullptr) onesV.assign(static_cast<size_t>(rows.count), 1);
        const RegressionNode facts = {rows.gradV,
                                      rows.weightV != nullptr ? rows.weightV : onesV.data(),
                                      node.gradAll, node.wgtAll};
        SortedColumn column(rows.count);
        CandidateSplit best;
        for (const int slot : slotV) {
            CandidateSplit at;
            at.slot = slot;
            at.column = columnV[slot];
            column.Load(featureVV, rows.rowV, at.column);
            if (column.IsScanned()) ScanColumn(column, facts, at, best);
        }
        engine::SplitPoint split;
        split.column = best.column;
        split.threshold = best.threshold;
        split.fNarrow = best.fNarrow;
        split.countL = best.countL;
        return split;
    }

  private:
    const double* const* featureVV;
};

// Boosted trees, and a regression's single tree: a few levels of many rows each.
struct EngineRun::HistogramWay {
    HistogramWay(const TreeLearner& learner, const engine::GrowthLimits& limits, EngineRun& run)
        : columns(learner.featureVV, learner.sampleSize, learner.dimFea, run.tuning, run.pool),
          growth(columns, run.pool, limits, run.tuning, *run.plain) {}

    engine::BinnedColumns columns;
    engine::HistogramGrower growth;
};

// Classification, and forests: many levels, and most nodes are small.
struct EngineRun::ListWay {
    ListWay(const TreeLearner& learner, const engine::GrowthLimits& limits, bool fKept,
            EngineRun& run)
        : lists(engine::SortedColumns::Make({learner.featureVV, learner.sampleSize, learner.dimFea},
                                            fKept, run.pool)),
          criterion(engine::Criterion::Make(learner.CfgInfo.fRegCls != "REG", learner.numClass)),
          growth(*lists, run.pool, limits, run.tuning, *criterion, *run.plain) {}

    std::unique_ptr<engine::SortedColumns> lists;
    std::unique_ptr<engine::Criterion> criterion;
    engine::SortedListGrower growth;
};

std::unique_ptr<EngineRun> EngineRun::Start(const TreeLearner& learner, WorkerPool& pool) {
    if (UseReferenceImplementation() || learner.fDebug || learner.sampleFeaType != nullptr ||
        (learner.CfgInfo.maxDepth < 1 && learner.modelType != "RandomForest")) {
        return nullptr;
    }
    std::unique_ptr<EngineRun> run(new EngineRun(learner, pool));
    if (!run->Prepare(learner)) run.reset();
    return run;
}

EngineRun::EngineRun(const TreeLearner& learner, WorkerPool& workers)
    : tuning(engine::CurrentTuning()),
      pool(workers),
      plain(std::make_unique<NodePlainSearch>(learner.featureVV)) {}

EngineRun::~EngineRun() = default;

// False when a column holds a NaN.
bool EngineRun::Prepare(const TreeLearner& learner) {
    const CheckCfgCLS& c = learner.CfgInfo;
    const bool fForest = learner.modelType == "RandomForest";
    // Without CheckCfg the ratio may be anything; the plain form then draws all columns or none.
    const int numSelFea = std::clamp(NumSampledColumns(learner.dimFea, c.ratio), 0, learner.dimFea);
    const engine::GrowthLimits limits = {c.maxLeaf, c.maxDepth, c.numBound, numSelFea, fForest};
    // Where few columns are drawn, keeping the lists of all does not pay, and a regression is
    // faster with histograms. Lists know no weights.
    const bool fManyDrawn = 100.0 * numSelFea >= 1.0 * tuning.listPercent * learner.dimFea;
    if (c.fRegCls != "REG" || (fForest && fManyDrawn && WeightsOf(learner) == nullptr)) {
        lists = std::make_unique<ListWay>(learner, limits, fManyDrawn, *this);
        return !lists->lists->HasNan();
    }
    histograms = std::make_unique<HistogramWay>(learner, limits, *this);
    if (pool.NumWorkers() > 1 && learner.modelType != "CART" && c.randomMode == "DOC") {
        rowsAhead = std::make_unique<RowsAhead>(pool);
    }
    return !histograms->columns.HasNan();
}

bool EngineRun::Grow(const TreeLearner& learner, TreeCR& tree, const int* weightV,
                     std::unique_ptr<int[]>& indexV, int num, long* seed) {
    grownTree = nullptr;
    if (rowsAhead) rowsAhead->Forget();  // a callback may have changed how rows are drawn
    if (lists) {
        // The user may have changed the weights since the run began.
        if (learner.CfgInfo.fRegCls == "REG" && weightV != nullptr) return false;
        if (!lists->growth.Grow(learner.gradientV, indexV.get(), num, seed)) return false;
        tree.Adopt(lists->growth.Nodes());
        return true;
    }
    engine::HistogramGrower& growth = histograms->growth;
    const auto drawAhead = [&] {
        if (rowsAhead) rowsAhead->Start(RowDraw::PerTree(learner), seed);
    };
    if (!growth.Take(learner.gradientV, weightV, indexV.get(), num)) return false;
    indexV.reset();
    growth.Grow(seed, drawAhead);
    tree.Adopt(growth.Nodes());
    grownTree = &tree;
    return true;
}

bool EngineRun::TakeRowsAhead(const RowDraw& draw, long* seed, std::unique_ptr<int[]>& drawnV) {
    return rowsAhead && rowsAhead->Take(draw, seed, drawnV);
}

bool EngineRun::StepPredictions(const TreeLearner& learner) {
    // A forest steps along the first of its trees, this is the last.
    if (grownTree == nullptr || learner.TreeGroup.empty() || learner.TreeGroup[0] != grownTree) {
        return false;
    }
    engine::StepPredictions(histograms->growth, histograms->columns, pool, learner.dynShrink,
                            learner.valShrink, learner.predictV);
    return true;
}

}  // namespace sylvora

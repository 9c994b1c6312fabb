// The engine at work for a learner; see EngineRun.h.
#include "EngineRun.h"

#include <vector>

#include "../Node/SplitScan.h"
#include "../engine/PredictionStep.h"
#include "../engine/Switch.h"
#include "../god/Truncation.h"

namespace sylvora {

// The plain search over some slots of a node.
class EngineRun::NodePlainSearch : public engine::PlainSearch {
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
        Cut best;
        for (const int slot : slotV) {
            Cut at;
            at.slot = slot;
            at.column = columnV[slot];
            column.Load(featureVV, rows.rowV, at.column);
            if (column.IsScanned()) ScanColumn(column, facts, at, best);
        }
        engine::SplitPoint split;
        split.column = best.column;
        split.threshold = best.threshold;
        split.countL = best.countL;
        return split;
    }

  private:
    const double* const* featureVV;
};

std::unique_ptr<EngineRun> EngineRun::Start(const TreeLearner& learner, engine::WorkerPool& pool) {
    const CheckCfgCLS& c = learner.CfgInfo;
    if (engine::UsePlainForm() || learner.fDebug || learner.sampleFeaType != nullptr ||
        c.fRegCls != "REG") {
        return nullptr;
    }
    const engine::GrowthLimits limits = {c.maxLeaf, c.maxDepth, c.numBound,
                                         Truncate<int>(learner.dimFea * c.ratio - 1e-10) + 1,
                                         learner.modelType == "RandomForest"};
    std::unique_ptr<EngineRun> run(new EngineRun(learner, limits, pool));
    if (run->columns.HasNan()) run.reset();
    return run;
}

EngineRun::EngineRun(const TreeLearner& learner, const engine::GrowthLimits& limits,
                     engine::WorkerPool& workers)
    : tuning(engine::CurrentTuning()),
      pool(workers),
      columns(learner.featureVV, learner.sampleSize, learner.dimFea, tuning.mostBins, pool),
      plain(std::make_unique<NodePlainSearch>(learner.featureVV)),
      growth(columns, pool, limits, tuning, *plain) {}

bool EngineRun::Grow(const TreeLearner& learner, TreeCR& tree, const int* indexV, int num,
                     long* seed) {
    const int* weights = learner.fHomoWgt == 1 ? nullptr : learner.numPairDistinctQueV;
    fGrown = growth.Grow(learner.gradientV, weights, indexV, num, seed);
    if (fGrown) tree.Adopt(growth.Nodes());
    return fGrown;
}

bool EngineRun::StepPredictions(const TreeLearner& learner) {
    // A forest steps along the first of its trees, this is the last.
    if (!fGrown || learner.TreeGroup.size() != 1) return false;
    engine::StepPredictions(growth, columns, pool, learner.dynShrink, learner.valShrink,
                            learner.predictV);
    return true;
}

}  // namespace sylvora

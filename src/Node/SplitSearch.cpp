// The search for a node's best split. Either the calling thread scans all sampled columns, or each
// worker scans a range of slots and merges its best split into the node. Both find the same split.
#include <algorithm>
#include <vector>

#include "../Node.h"
#include "../god/Report.h"
#include "../god/Workers.h"
#include "SplitScan.h"

namespace {

using sylvora::CandidateSplit;
using sylvora::Fail;
using sylvora::Guarded;
using sylvora::MutexLock;

// The best split of the slots begin..end (inclusive) of a node. An empty slot ends the search.
// Slots are scanned in ascending order, so that the lowest of equals wins.
template <typename NodeFacts>
CandidateSplit SearchSlots(const NodeCR& node, const double* const* featureVV, const int* indexV,
                           const NodeFacts& facts, int begin, int end) {
    CandidateSplit best;
    if (begin > end) return best;
    sylvora::SortedColumn column(node.countDoc);
    for (int slot = begin; slot <= end && node.selFeaV[slot] != -1; ++slot) {
        CandidateSplit at;
        at.slot = slot;
        at.column = node.selFeaV[slot];
        column.Load(featureVV, indexV + node.startDoc, at.column);
        if (column.IsScanned()) ScanColumn(column, facts, at, best);
    }
    return best;
}

// Copies the values of a node's rows, so that they are indexed by position in its slice: the scan
// of each column then reads a small array instead of one over all rows.
template <typename Value>
std::vector<Value> Gather(const NodeCR& node, const Value* valueV, const int* indexV) {
    std::vector<Value> localV(static_cast<size_t>(node.countDoc));
    for (size_t i = 0; i < localV.size(); ++i) {
        localV[i] = valueV[indexV[static_cast<size_t>(node.startDoc) + i]];
    }
    return localV;
}

// Makes `split` the split of the node.
void TakeSplit(NodeCR& node, const CandidateSplit& split) {
    node.splitFea = split.column;
    node.splitElemFea = split.threshold;
    node.fNarrowSplit = split.fNarrow;
    node.countL = split.countL;
    node.imbr = split.balance;
}

// Merges a worker's best split into the node. The caller holds split_node_mutex and decides with
// fBetterOfEquals who wins at equal scores. The rule is a total order of (score, balance, slot), so
// the result does not depend on the order in which the workers finish.
void MergeSplit(NodeCR& node, const CandidateSplit& split, bool fBetterOfEquals) {
    if (split.score > node.bestCriteria || (split.score == node.bestCriteria && fBetterOfEquals)) {
        TakeSplit(node, split);
        node.bestCriteria = split.score;
        node.idBest = split.slot;
    }
}

// Divides the node's slots into contiguous ranges, one per worker, and runs `entry` on each. Resets
// the best split first; the workers update it. Every worker runs, also with an empty range.
int SearchThreaded(const split_info_t& all, void* (*entry)(void*), int numThread,
                   pthread_t* splitNodeTids) {
    NodeCR& node = *all.nodeCR;
    node.bestCriteria = -1.0;
    node.splitFea = -1;
    node.idBest = 0;
    node.imbr = 0.0;
    const int numWorkers = std::max(1, std::min(node.dimFeature, numThread));
    std::vector<split_info_t> shares(static_cast<size_t>(numWorkers), all);
    for (int t = 0; t < numWorkers; ++t) {
        split_info_t& share = shares[static_cast<size_t>(t)];
        // The range is inclusive, hence the - 1. It is empty if there are fewer slots than workers.
        share.feaIdBegin = sylvora::PartBegin(node.numSelFea, numWorkers, t);
        share.feaIdEnd = sylvora::PartBegin(node.numSelFea, numWorkers, t + 1) - 1;
    }
    // The join makes the workers' changes of the node visible to this thread.
    const sylvora::Joined joined = sylvora::ForkJoin(entry, shares, splitNodeTids);
    return joined.status == 0 && joined.fAllWorked ? 0 : -1;
}

}  // namespace

// Replaces the threshold by the one that the user's sampler gave for `slot`. The column stays, and
// the rows on the left are counted again.
void NodeCR::ApplyUserValue(const double* const* featureVV, const int* indexV, int slot) {
    const double computed = splitElemFea;
    splitElemFea = selFeaValue[slot];
    fNarrowSplit = true;  // the values next to it are not known, so assume the worst
    if (fPrint && splitElemFea != computed) {
        // "Aritificial" is deliberate: messages are fixed.
        sylvora::Print("Notice: Aritificial split point used, feature id: ", splitFea,
                       ", details:\n      split point of cart: ", computed,
                       ", split point given by user: ", splitElemFea, ", current depth: ", depth,
                       "\n");
    }
    countL = static_cast<int>(std::count_if(
        indexV + startDoc, indexV + startDoc + countDoc,
        [this, featureVV](int row) { return featureVV[row][splitFea] <= splitElemFea; }));
}

int NodeCR::FinishSearch(const double* const* featureVV, const int* indexV, int slot) {
    if (fSpecifySplitValue && splitFea != -1) ApplyUserValue(featureVV, indexV, slot);
    ReleaseCandidates();
    return 0;
}

// Of equal scores the lower slot wins. A worker without a candidate has score -1.0, less than every
// real score, and column -1; so splitFea is -1 if no worker finds a split.
int NodeCR::SplitPointSearchReg(double** featureVV, int* indexV, double* gradients, int* weights,
                                int beginId, int endId) {
    return Guarded([&] {
        const sylvora::RegressionNode facts = {gradients, weights, gradAll, wgtAll};
        const CandidateSplit best = SearchSlots(*this, featureVV, indexV, facts, beginId, endId);
        const MutexLock lock(split_node_mutex);
        MergeSplit(*this, best, idBest > best.slot);
        return 0;
    });
}

// Of equal scores the smaller balance wins, then the lower slot.
int NodeCR::SplitPointSearchCls(double** featureVV, int* indexV, double* labels, int numClass,
                                int beginId, int endId) {
    return Guarded([&] {
        const sylvora::ClassificationNode facts = {labels, statClassAll, numClass};
        const CandidateSplit best = SearchSlots(*this, featureVV, indexV, facts, beginId, endId);
        const MutexLock lock(split_node_mutex);
        const bool fLowerSlot = best.slot != -1 && imbr == best.balance && idBest > best.slot;
        MergeSplit(*this, best, imbr > best.balance || fLowerSlot);
        return 0;
    });
}

// No exception leaves these entry points: SplitPointSearchReg and -Cls turn lack of memory into a
// status.
void* NodeSplitThreadFunctionReg(void* arg) {
    split_info_t& share = *static_cast<split_info_t*>(arg);
    return sylvora::ExitValue(share.nodeCR->SplitPointSearchReg(share.featureVV, share.indexV,
                                                                share.gradientV, share.weightV,
                                                                share.feaIdBegin, share.feaIdEnd));
}

void* NodeSplitThreadFunctionCls(void* arg) {
    split_info_t& share = *static_cast<split_info_t*>(arg);
    return sylvora::ExitValue(share.nodeCR->SplitPointSearchCls(share.featureVV, share.indexV,
                                                                share.gradientV, share.numClass,
                                                                share.feaIdBegin, share.feaIdEnd));
}

// The const_casts are safe: split_info_t has no const members, but the workers write nothing
// through them.
int NodeCR::GetSplitPoint(const double**& featureVV, const int*& indexV, const int*& numDocPairQueV,
                          const double*& gradV, double& bestCri, int numThread,
                          pthread_t* splitNodeTids) {
    return Guarded([&] {
        std::vector<double> gradients = Gather(*this, gradV, indexV);
        std::vector<int> weights = Gather(*this, numDocPairQueV, indexV);
        const split_info_t all = {const_cast<double**>(featureVV),
                                  const_cast<int*>(indexV),
                                  weights.data(),
                                  0,
                                  gradients.data(),
                                  this,
                                  0,
                                  0};
        if (SearchThreaded(all, NodeSplitThreadFunctionReg, numThread, splitNodeTids) != 0) {
            return -1;
        }
        bestCri = bestCriteria;
        return FinishSearch(featureVV, indexV, idBest);
    });
}

int NodeCR::GetSplitPointCls(const double**& featureVV, const int*& indexV, int numClass,
                             const double*& gradV, double& bestCri, int numThread,
                             pthread_t* splitNodeTids) {
    return Guarded([&] {
        std::vector<double> labels = Gather(*this, gradV, indexV);
        const split_info_t all = {const_cast<double**>(featureVV),
                                  const_cast<int*>(indexV),
                                  nullptr,
                                  numClass,
                                  labels.data(),
                                  this,
                                  0,
                                  0};
        if (SearchThreaded(all, NodeSplitThreadFunctionCls, numThread, splitNodeTids) != 0) {
            return -1;
        }
        bestCri = bestCriteria;
        return FinishSearch(featureVV, indexV, idBest);
    });
}

// The single-threaded searches store their best score in boundElemFea. They do not change
// bestCriteria and idBest.
int NodeCR::GetSplitPointOne(const double**& featureVV, const int*& indexV,
                             const int*& numDocPairQueV, const double*& gradV, double& bestCri) {
    return Guarded([&] {
        const std::vector<double> gradients = Gather(*this, gradV, indexV);
        const std::vector<int> weights = Gather(*this, numDocPairQueV, indexV);
        const sylvora::RegressionNode facts = {gradients.data(), weights.data(), gradAll, wgtAll};
        const CandidateSplit best = SearchSlots(*this, featureVV, indexV, facts, 0, numSelFea - 1);
        TakeSplit(*this, best);
        bestCri = boundElemFea = best.score;
        return FinishSearch(featureVV, indexV, best.slot);
    });
}

int NodeCR::GetSplitPointClsOne(const double**& featureVV, const int*& indexV, int numClass,
                                const double*& gradV, double& bestCri) {
    return Guarded([&] {
        const std::vector<double> labels = Gather(*this, gradV, indexV);
        const sylvora::ClassificationNode facts = {labels.data(), statClassAll, numClass};
        const CandidateSplit best = SearchSlots(*this, featureVV, indexV, facts, 0, numSelFea - 1);
        TakeSplit(*this, best);
        bestCri = boundElemFea = best.score;
        return FinishSearch(featureVV, indexV, best.slot);
    });
}

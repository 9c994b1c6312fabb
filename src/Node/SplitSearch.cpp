// The search for a node's best cut, over all sampled columns by the calling thread or over ranges
// of them by workers.
#include <algorithm>
#include <vector>

#include "../Node.h"
#include "../god/Report.h"
#include "../god/Workers.h"
#include "SplitScan.h"

namespace {

using sylvora::Cut;
using sylvora::Fail;
using sylvora::Guarded;
using sylvora::MutexLock;

// The best cut of the slots begin..end of a node; an empty slot ends the search.
template <typename NodeFacts>
Cut SearchSlots(const NodeCR& node, const double* const* featureVV, const int* indexV,
                const NodeFacts& facts, int begin, int end) {
    Cut best;
    if (begin > end) return best;
    sylvora::SortedColumn column(node.countDoc);
    for (int slot = begin; slot <= end && node.selFeaV[slot] != -1; ++slot) {
        Cut at;
        at.slot = slot;
        at.column = node.selFeaV[slot];
        column.Load(featureVV, indexV + node.startDoc, at.column);
        if (column.IsScanned()) ScanColumn(column, facts, at, best);
    }
    return best;
}

// The arrays of a node's rows, by place in the node.
template <typename Value>
std::vector<Value> Gather(const NodeCR& node, const Value* valueV, const int* indexV) {
    std::vector<Value> localV(static_cast<size_t>(node.countDoc));
    for (size_t i = 0; i < localV.size(); ++i) {
        localV[i] = valueV[indexV[static_cast<size_t>(node.startDoc) + i]];
    }
    return localV;
}

void TakeCut(NodeCR& node, const Cut& cut) {
    node.splitFea = cut.column;
    node.splitElemFea = cut.threshold;
    node.fNarrowSplit = cut.fNarrow;
    node.countL = cut.countL;
    node.imbr = cut.balance;
}

// Merges a worker's best. The rule is a total order (score, balance, slot), so the workers' order
// of arrival decides nothing.
void MergeCut(NodeCR& node, const Cut& cut, bool fBetterOfEquals) {
    if (cut.score > node.bestCriteria || (cut.score == node.bestCriteria && fBetterOfEquals)) {
        TakeCut(node, cut);
        node.bestCriteria = cut.score;
        node.idBest = cut.slot;
    }
}

// Cuts the node's slots into ranges, one per thread, and runs `entry` on each.
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
        share.feaIdBegin = sylvora::PartBegin(node.numSelFea, numWorkers, t);
        share.feaIdEnd = sylvora::PartBegin(node.numSelFea, numWorkers, t + 1) - 1;
    }
    const sylvora::Joined joined = sylvora::ForkJoin(entry, shares, splitNodeTids);
    return joined.status == 0 && joined.fAllWorked ? 0 : -1;
}

}  // namespace

// Replaces the threshold by the one that a user sampler gave for the winning slot.
void NodeCR::ApplyUserValue(const double* const* featureVV, const int* indexV, int slot) {
    const double computed = splitElemFea;
    splitElemFea = selFeaValue[slot];
    fNarrowSplit = true;  // its neighbours are not known
    if (fPrint && splitElemFea != computed) {
        // Misspelt deliberately: messages stay as they are.
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

int NodeCR::SplitPointSearchReg(double** featureVV, int* indexV, double* gradients, int* weights,
                                int beginId, int endId) {
    return Guarded([&] {
        const sylvora::RegressionNode facts = {gradients, weights, gradAll, wgtAll};
        const Cut best = SearchSlots(*this, featureVV, indexV, facts, beginId, endId);
        const MutexLock lock(split_node_mutex);
        MergeCut(*this, best, idBest > best.slot);
        return 0;
    });
}

int NodeCR::SplitPointSearchCls(double** featureVV, int* indexV, double* labels, int numClass,
                                int beginId, int endId) {
    return Guarded([&] {
        const sylvora::ClassificationNode facts = {labels, statClassAll, numClass};
        const Cut best = SearchSlots(*this, featureVV, indexV, facts, beginId, endId);
        const MutexLock lock(split_node_mutex);
        const bool fLowerSlot = best.slot != -1 && imbr == best.balance && idBest > best.slot;
        MergeCut(*this, best, imbr > best.balance || fLowerSlot);
        return 0;
    });
}

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

// The records of workers have no const; nothing is written through them.
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

// The single-threaded forms leave bestCriteria and idBest alone and note their best score in
// boundElemFea.
int NodeCR::GetSplitPointOne(const double**& featureVV, const int*& indexV,
                             const int*& numDocPairQueV, const double*& gradV, double& bestCri) {
    return Guarded([&] {
        const std::vector<double> gradients = Gather(*this, gradV, indexV);
        const std::vector<int> weights = Gather(*this, numDocPairQueV, indexV);
        const sylvora::RegressionNode facts = {gradients.data(), weights.data(), gradAll, wgtAll};
        const Cut best = SearchSlots(*this, featureVV, indexV, facts, 0, numSelFea - 1);
        TakeCut(*this, best);
        bestCri = boundElemFea = best.score;
        return FinishSearch(featureVV, indexV, best.slot);
    });
}

int NodeCR::GetSplitPointClsOne(const double**& featureVV, const int*& indexV, int numClass,
                                const double*& gradV, double& bestCri) {
    return Guarded([&] {
        const std::vector<double> labels = Gather(*this, gradV, indexV);
        const sylvora::ClassificationNode facts = {labels.data(), statClassAll, numClass};
        const Cut best = SearchSlots(*this, featureVV, indexV, facts, 0, numSelFea - 1);
        TakeCut(*this, best);
        bestCri = boundElemFea = best.score;
        return FinishSearch(featureVV, indexV, best.slot);
    });
}

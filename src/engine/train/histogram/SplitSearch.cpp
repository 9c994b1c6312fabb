// The search of one node; see SplitSearch.h. docs/engine-training.md derives the error bound.
#include "SplitSearch.h"

#include <algorithm>
#include <cmath>
#include <utility>

#include "base/Chunks.h"
#include "base/Switch.h"

namespace sylvora {
namespace engine {
namespace {

constexpr double kUnitRoundoff = 0x1p-53;

}  // namespace

// fTakenV is allocated once; searches leave it zeroed.
SplitSearch::SplitSearch(const BinnedColumns& columns, const FixedPoint& fixedPoint,
                         const Tuning& figures, WorkerPool& workers, BufferPool& sharedBufferPool)
    : data(columns),
      fixed(fixedPoint),
      tuning(figures),
      pool(workers),
      bufferPool(sharedBufferPool),
      scan(columns, fixedPoint),
      keySelection(kKeySelections.Choose(ForcedKernel())),
      fTakenV(static_cast<size_t>(columns.NumColumns())) {}

SplitSearch::~SplitSearch() = default;

// Makes new buffers only if none are free.
void SplitSearch::BufferPool::Acquire(size_t num, std::vector<std::unique_ptr<Buffers>>& taken) {
    const std::lock_guard<std::mutex> lock(mutex);
    while (taken.size() < num) {
        if (freeV.empty()) {
            // So that Release cannot fail.
            freeV.reserve(numMade + 1);
            freeV.push_back(std::make_unique<Buffers>(fixed));
            ++numMade;
        }
        taken.push_back(std::move(freeV.back()));
        freeV.pop_back();
    }
}

void SplitSearch::BufferPool::Release(std::vector<std::unique_ptr<Buffers>>& taken) {
    const std::lock_guard<std::mutex> lock(mutex);
    for (std::unique_ptr<Buffers>& buffers : taken) freeV.push_back(std::move(buffers));
    taken.clear();
}

std::unique_ptr<NodeScan> SplitSearch::BufferPool::TakeScan() {
    const std::lock_guard<std::mutex> lock(mutex);
    if (freeScanV.empty()) return std::make_unique<NodeScan>();
    std::unique_ptr<NodeScan> taken = std::move(freeScanV.back());
    freeScanV.pop_back();
    return taken;
}

void SplitSearch::BufferPool::GiveBack(std::unique_ptr<NodeScan> taken) {
    const std::lock_guard<std::mutex> lock(mutex);
    const auto at =
        std::upper_bound(freeScanV.begin(), freeScanV.end(), taken,
                         [](const auto& a, const auto& b) { return a->mostRows < b->mostRows; });
    freeScanV.insert(at, std::move(taken));
}

void SplitSearch::Begin(const SearchTask& task) {
    node = {task.total, fixed.Sum(task.total), fixed.Weight(task.total)};
    leastBest = task.leastBest;
    work = SearchWork();
    ChooseSlots(task);
}

std::unique_ptr<NodeScan> SplitSearch::LookAhead(const SearchTask& task) {
    std::unique_ptr<NodeScan> ahead = bufferPool.TakeScan();
    ahead->mostRows = std::max(ahead->mostRows, task.rows.count);
    Begin(task);
    summaryV.swap(ahead->summaryV);
    ScanColumns(task);
    summaryV.swap(ahead->summaryV);
    ahead->leastBest = leastBest;
    return ahead;
}

// The steps: scan the columns' histograms for the best split between bins; refine the bins that may
// hold a better one; decide. A small node sorts its wide columns instead, and a tiny one all.
SearchResult<Candidate> SplitSearch::Search(const SearchTask& task) {
    Begin(task);
    if (task.ahead != nullptr) summaryV.swap(task.ahead->summaryV);
    bufferPool.Acquire(static_cast<size_t>(std::max(task.numTogether, 1)), buffersV);
    for (const auto& buffers : buffersV) buffers->Begin();
    if (task.histogram != nullptr && !task.fNarrowOnly) {
        ScanColumns(task);
        RefineSlots(task);
    } else {
        SearchBySorting(task);
    }
    for (const auto& buffers : buffersV) work.numRows += buffers->numKeys;
    SearchResult<Candidate> result = Decide();
    if (task.ahead != nullptr) summaryV.swap(task.ahead->summaryV);
    bufferPool.Release(buffersV);
    return result;
}

// Skips constant columns, which have no split, and duplicates: the lower slot has the same splits
// with the same scores, and wins the ties.
void SplitSearch::ChooseSlots(const SearchTask& task) {
    slotV.clear();
    // No exception may leave marks behind.
    slotV.reserve(static_cast<size_t>(task.numSlots));
    for (int slot = 0; slot < task.numSlots; ++slot) {
        const Column& column = data.At(task.columnV[slot]);
        if (column.IsConstant()) continue;
        uint8_t& fTaken = fTakenV[static_cast<size_t>(column.firstDuplicate)];
        if (fTaken == 0) slotV.push_back(slot);
        fTaken = 1;
    }
    for (const int slot : slotV) {
        fTakenV[static_cast<size_t>(data.At(task.columnV[slot]).firstDuplicate)] = 0;
    }
}

// Calls step(i) for i in [0, count): in order, or on several workers at once if the node is shared.
template <typename Step>
void SplitSearch::For(const SearchTask& task, int count, const Step& step) {
    if (task.numTogether > 0) return pool.For(count, [&step](int i, int) { step(i); });
    for (int i = 0; i < count; ++i) step(i);
}

// Sets sumError, e of the derivation. `maxAbsSum` (M) bounds every left and right sum that the
// reference implementation computes on its way.
void SplitSearch::SetError(const SearchTask& task, double maxAbsSum) {
    const double numRows = task.rows.count;
    sumError = fixed.fExact ? 0.0
                            : 1.02 * (numRows + 8) * kUnitRoundoff * maxAbsSum +
                                  0.5 * numRows * fixed.unit + std::fabs(task.gradAll - node.sum);
}

// E of the derivation: how far the score of any split may be from the reference implementation's.
double SplitSearch::ScoreError(double score) const {
    if (fixed.fExact) return 0.0;
    const double h = fixed.maxAbsGradPerWeight;
    const double e = sumError;
    return 4 * h * e + 2 * e * e + 16 * kUnitRoundoff * score;
}

// The same for one split: its own means take the place of h.
double SplitSearch::ScoreError(const Candidate& candidate) const {
    if (fixed.fExact) return 0.0;
    const double e = sumError;
    const double sum = std::fabs(fixed.Sum(candidate.left));
    const double rest = std::fabs(node.sum - fixed.Sum(candidate.left));
    const double weight = fixed.Weight(candidate.left);
    return 1.01 * ((2 * sum + e) * e / weight + (2 * rest + e) * e / (node.weight - weight)) +
           16 * kUnitRoundoff * candidate.score;
}

// A candidate that scores less cannot win.
double SplitSearch::PruningThreshold() const {
    const double least = leastBest.load(std::memory_order_relaxed);
    return least - ScoreError(std::max(least, 0.0));
}

// Keeps a candidate that may win.
void SplitSearch::Consider(Candidate candidate, Buffers& buffers) {
    candidate.error = ScoreError(candidate);
    if (!(candidate.Most() >= leastBest.load(std::memory_order_relaxed))) return;
    buffers.Keep(candidate);
    RaiseBest(leastBest, candidate.Least());
}

// The first look at every slot. The best split between bins prunes most bins of the next step.
void SplitSearch::ScanColumns(const SearchTask& task) {
    if (task.ahead == nullptr) {
        summaryV.resize(std::max(summaryV.size(), static_cast<size_t>(task.numSlots)));
        For(task, static_cast<int>(slotV.size()), [&](int i) {
            const size_t slot = static_cast<size_t>(slotV[static_cast<size_t>(i)]);
            scan.Scan(task.columnV[slot], *task.histogram, node, summaryV[slot]);
        });
    }
    double maxAbsSum = 0.0;
    double best = -1.0;
    for (const int slot : slotV) {
        const ColumnSummary& summary = summaryV[static_cast<size_t>(slot)];
        best = std::max(best, summary.best);
        const Column& column = data.At(task.columnV[slot]);
        if (!column.fExact) work.numBins += task.histogram->NumBins(column);
        maxAbsSum = std::max(maxAbsSum, summary.maxAbsSum);
    }
    SetError(task, maxAbsSum);
    RaiseLeastBest(best);
}

// Takes note of a split between bins, by its score; -1 if there is none.
void SplitSearch::RaiseLeastBest(double score) {
    if (score >= 0.0) RaiseBest(leastBest, score - ScoreError(score));
}

// Refines the columns with the highest bounds first: the scores they find may prune the others.
void SplitSearch::RefineSlots(const SearchTask& task) {
    const auto boundOf = [this](int slot) { return summaryV[static_cast<size_t>(slot)].bound; };
    std::stable_sort(slotV.begin(), slotV.end(),
                     [&](int a, int b) { return boundOf(a) > boundOf(b); });
    const size_t numTogether = static_cast<size_t>(std::max(task.numTogether, 1));
    // Stops at the first slot whose bound is too low: the others' bounds are lower still.
    for (size_t done = 0; done < slotV.size();) {
        const int* slots = slotV.data() + done;
        const size_t most = std::min(slotV.size() - done, numTogether);
        size_t num = 0;
        while (num < most && boundOf(slots[num]) >= PruningThreshold()) ++num;
        if (num == 0) break;
        RefineTogether(task, slots, static_cast<int>(num));
        done += num;
    }
    // Splits between bins come last, when the threshold is at its highest.
    for (const int slot : slotV) {
        AppendBoundaries(task, slot);
    }
}

// Appends the splits between bins that may win.
void SplitSearch::AppendBoundaries(const SearchTask& task, int slot) {
    const ColumnSummary& summary = summaryV[static_cast<size_t>(slot)];
    if (summary.best < PruningThreshold()) return;
    std::vector<Candidate>& candidateV = buffersV[0]->candidateV;
    const size_t numBefore = candidateV.size();
    scan.AppendCandidates({slot, task.columnV[slot]}, *task.histogram, node, summary,
                          PruningThreshold(), candidateV);
    for (size_t i = numBefore; i < candidateV.size(); ++i) {
        candidateV[i].error = ScoreError(candidateV[i]);
        RaiseBest(leastBest, candidateV[i].Least());
    }
}

bool SplitSearch::IsSorted(const SearchTask& task, int slot) const {
    return task.histogram == nullptr || !data.At(task.columnV[slot]).fNarrow;
}

// Narrow columns come first, as their scores prune those of the sorted rows.
void SplitSearch::SearchBySorting(const SearchTask& task) {
    SetError(task, fixed.AbsBound(task.total));
    summaryV.resize(std::max(summaryV.size(), static_cast<size_t>(task.numSlots)));
    for (const int slot : slotV) {
        if (IsSorted(task, slot)) continue;
        ColumnSummary& summary = summaryV[static_cast<size_t>(slot)];
        scan.Scan(task.columnV[slot], *task.histogram, node, summary);
        RaiseLeastBest(summary.best);
    }
    cellV.resize(static_cast<size_t>(task.rows.count));
    task.rows.CellsOf(task.rows.rowV, task.rows.count, fixed, cellV.data());
    for (const int slot : slotV) {
        if (IsSorted(task, slot)) ScoreBySorting(task, slot, *buffersV[0]);
    }
    for (const int slot : slotV) {
        if (!IsSorted(task, slot)) AppendBoundaries(task, slot);
    }
}

// Refines several slots in step, each with its own buffers. A few slots would not keep several
// workers busy, so rows are shared out in chunks as well.
void SplitSearch::RefineTogether(const SearchTask& task, const int* slots, int numSlots) {
    const Chunks chunks = {task.rows.count,
                           task.numTogether > 0 ? tuning.chunkRows : task.rows.count};
    For(task, numSlots, [&](int i) {
        Buffers& buffers = *buffersV[static_cast<size_t>(i)];
        const int id = task.columnV[slots[i]];
        buffers.candidateBinV.clear();
        scan.AppendCandidateBins(id, *task.histogram, node, summaryV[static_cast<size_t>(slots[i])],
                                 PruningThreshold(), buffers.candidateBinV);
        buffers.chunkKeyVV.resize(static_cast<size_t>(chunks.Num()));
        if (!buffers.candidateBinV.empty()) MarkCandidateRanks(task, data.At(id), buffers);
    });
    For(task, numSlots * chunks.Num(), [&](int i) {
        Buffers& buffers = *buffersV[static_cast<size_t>(i / chunks.Num())];
        const int chunk = i % chunks.Num();
        if (buffers.candidateBinV.empty()) return;
        CollectKeys(task, chunks.Begin(chunk), chunks.End(chunk),
                    task.columnV[slots[i / chunks.Num()]], buffers.candidateRanks,
                    buffers.chunkKeyVV[static_cast<size_t>(chunk)]);
    });
    For(task, numSlots, [&](int i) {
        Buffers& buffers = *buffersV[static_cast<size_t>(i)];
        if (!buffers.candidateBinV.empty()) ScoreKeys(task, slots[i], buffers);
        // Otherwise the buffers of all slots would each keep the keys of a large node.
        if (chunks.Num() > 1) buffers.FreeKeys();
    });
}

// Keeps the candidates that may score as much as the best one does at least: one is the winner,
// more are a near-tie.
SearchResult<Candidate> SplitSearch::Decide() {
    SearchResult<Candidate> result;
    std::vector<Candidate> candidateV;
    double most = -1.0;
    double least = -1.0;
    for (const auto& buffers : buffersV) {
        for (const Candidate& candidate : buffers->candidateV) {
            if (!(candidate.Most() >= leastBest)) continue;
            candidateV.push_back(candidate);
            most = std::max(most, candidate.Most());
            least = std::max(least, candidate.Least());
        }
    }
    if (candidateV.empty()) return result;
    result.bestScore = 0.5 * (most + least);
    result.scoreError = 0.5 * (most - least);
    result.fReferenceScore = fixed.fExact;
    const auto isBefore = [](const Candidate& a, const Candidate& b) {
        return a.slot != b.slot ? a.slot < b.slot : a.lastRank < b.lastRank;
    };
    // Exact sums give the reference implementation's own scores, and of equal scores it takes the
    // first.
    if (candidateV.size() == 1 || fixed.fExact) {
        result.winner = *std::min_element(candidateV.begin(), candidateV.end(), isBefore);
        return result;
    }
    std::sort(candidateV.begin(), candidateV.end(), isBefore);
    for (const Candidate& candidate : candidateV) {
        if (result.undecidedV.empty() || result.undecidedV.back() != candidate.slot) {
            result.undecidedV.push_back(candidate.slot);
        }
    }
    // Keep has dropped none of a slot that has only one left.
    if (result.undecidedV.size() == candidateV.size()) result.tiedV.swap(candidateV);
    return result;
}

}  // namespace engine
}  // namespace sylvora

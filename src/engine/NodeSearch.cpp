// The search of one node; see NodeSearch.h. The error bound is derived in docs/engine.md.
#include "NodeSearch.h"

#include <algorithm>
#include <cmath>
#include <limits>

namespace sylvora {
namespace engine {
namespace {

constexpr double kGap = 1e-10;
constexpr double kUnitRoundoff = 0x1p-53;

uint64_t KeyOf(uint32_t rank, int place) {
    return (static_cast<uint64_t>(rank) << 32) | static_cast<uint32_t>(place);
}
uint32_t RankOf(uint64_t key) {
    return static_cast<uint32_t>(key >> 32);
}
size_t PlaceOf(uint64_t key) {
    return static_cast<uint32_t>(key);
}

}  // namespace

NodeSearch::NodeSearch(const Columns& columns, const FixedPoint& fixedPoint)
    : data(columns), fixed(fixedPoint), scan(columns, fixedPoint) {}

SearchResult NodeSearch::Search(const SearchTask& task) {
    node = {task.total, fixed.Sum(task.total), fixed.Weight(task.total)};
    best = -1.0;
    candidateV.clear();
    if (task.histogram != nullptr) {
        LookAtSlots(task);
        RefineSlots(task);
    } else {
        SetError(task, fixed.AbsBound(task.total));
        for (int slot = 0; slot < task.numSlots; ++slot) {
            if (!IsRepeat(task, slot)) SortedSlot(task, slot);
        }
    }
    return Decide();
}

// A column with the same cuts and the same scores in a lower slot wins every tie.
bool NodeSearch::IsRepeat(const SearchTask& task, int slot) const {
    const int twin = data.At(task.columnV[slot]).twin;
    for (int other = 0; other < slot; ++other) {
        if (data.At(task.columnV[other]).twin == twin) return true;
    }
    return false;
}

// `largestSum` bounds every left and right sum that the plain form meets on its way.
void NodeSearch::SetError(const SearchTask& task, double largestSum) {
    const double numRows = task.rows.count;
    rowError = fixed.fExact ? 0.0
                            : 1.02 * (numRows + 8) * kUnitRoundoff * largestSum +
                                  0.5 * numRows * fixed.unit + std::fabs(task.gradAll - node.sum);
}

// The score below which a cut cannot win: both it and the best may be off by the error.
double NodeSearch::Least() const {
    if (fixed.fExact) return best;
    const double error =
        4 * fixed.largest * rowError + 2 * rowError * rowError + 16 * kUnitRoundoff * best;
    return best - 2 * error;
}

void NodeSearch::LookAtSlots(const SearchTask& task) {
    viewV.resize(std::max(viewV.size(), static_cast<size_t>(task.numSlots)));
    double largestSum = 0.0;
    for (int slot = 0; slot < task.numSlots; ++slot) {
        if (IsRepeat(task, slot)) continue;
        ColumnView& view = viewV[static_cast<size_t>(slot)];
        scan.Look(task.columnV[slot], *task.histogram, node, view);
        best = std::max(best, view.best);
        largestSum = std::max(largestSum, view.largestSum);
    }
    SetError(task, largestSum);
}

// The most promising columns first: what they turn up spares others the look inside their bins.
void NodeSearch::RefineSlots(const SearchTask& task) {
    std::vector<int> slotV;
    for (int slot = 0; slot < task.numSlots; ++slot) {
        if (!IsRepeat(task, slot)) slotV.push_back(slot);
    }
    std::stable_sort(slotV.begin(), slotV.end(), [this](int a, int b) {
        return viewV[static_cast<size_t>(a)].bound > viewV[static_cast<size_t>(b)].bound;
    });
    for (const int slot : slotV) {
        if (viewV[static_cast<size_t>(slot)].bound >= Least()) RefineSlot(task, slot);
    }
    for (const int slot : slotV) {
        const ColumnView& view = viewV[static_cast<size_t>(slot)];
        if (view.best < Least()) continue;
        scan.AppendCuts(slot, task.columnV[slot], *task.histogram, node, view, Least(), candidateV);
    }
}

void NodeSearch::RefineSlot(const SearchTask& task, int slot) {
    const Column& column = data.At(task.columnV[slot]);
    const ColumnView& view = viewV[static_cast<size_t>(slot)];
    liveBinV.clear();
    scan.AppendLiveBins(task.columnV[slot], *task.histogram, node, view, Least(), liveBinV);
    if (liveBinV.empty()) return;
    CollectKeys(task, column);
    std::sort(keyV.begin(), keyV.end());
    size_t begin = 0;
    for (const int bin : liveBinV) {
        const uint32_t first = task.histogram->FirstRank(column, bin);
        const uint32_t past = task.histogram->FirstRank(column, bin + 1);
        while (begin < keyV.size() && RankOf(keyV[begin]) < first) ++begin;
        size_t end = begin;
        while (end < keyV.size() && RankOf(keyV[end]) < past) ++end;
        ScoreRun(task, slot, begin, end, view.prefixV[static_cast<size_t>(bin)]);
        begin = end;
    }
}

// Keys of the rows in live bins, and of some near them: ranks are looked up in steps.
void NodeSearch::CollectKeys(const SearchTask& task, const Column& column) {
    const Histogram& histogram = *task.histogram;
    const uint32_t numRanks = column.binFirstRankV.back();
    int step = 0;
    while ((numRanks >> step) > 4096) ++step;
    liveV.assign((numRanks >> step) + 1, 0);
    for (const int bin : liveBinV) {
        const uint32_t first = histogram.FirstRank(column, bin) >> step;
        const uint32_t last = (histogram.FirstRank(column, bin + 1) - 1) >> step;
        std::fill(liveV.begin() + first, liveV.begin() + last + 1, uint8_t{1});
    }
    keyV.resize(static_cast<size_t>(task.rows.count));
    size_t numKeys = 0;
    constexpr int kAhead = 32;
    for (int place = 0; place < task.rows.count; ++place) {
        const int ahead = std::min(place + kAhead, task.rows.count - 1);
        __builtin_prefetch(&column.rankV[static_cast<size_t>(task.rows.rowV[ahead])]);
        const uint32_t rank = column.rankV[static_cast<size_t>(task.rows.rowV[place])];
        keyV[numKeys] = KeyOf(rank, place);
        numKeys += liveV[rank >> step];
    }
    keyV.resize(numKeys);
}

void NodeSearch::SortedSlot(const SearchTask& task, int slot) {
    keyV.clear();
    for (int place = 0; place < task.rows.count; ++place) {
        keyV.push_back(KeyOf(data.Rank(task.columnV[slot], task.rows.rowV[place]), place));
    }
    std::sort(keyV.begin(), keyV.end());
    ScoreRun(task, slot, 0, keyV.size(), Cell());
}

// Scores the cuts between the sorted keys [begin, end); `prefix` are the sums before them.
void NodeSearch::ScoreRun(const SearchTask& task, int slot, size_t begin, size_t end, Cell prefix) {
    const int id = task.columnV[slot];
    const bool fClean = data.At(id).fClean;
    const auto valueAt = [&](size_t i) { return data.Value(task.rows.rowV[PlaceOf(keyV[i])], id); };
    double least = Least();
    for (size_t i = begin; i + 1 < end; ++i) {
        const size_t place = PlaceOf(keyV[i]);
        prefix += fixed.ToCell(task.rows.gradV[place],
                               task.rows.weightV != nullptr ? task.rows.weightV[place] : 1);
        const uint32_t rank = RankOf(keyV[i]);
        if (rank == RankOf(keyV[i + 1])) continue;
        const double score = CutScore(node, fixed.Sum(prefix), fixed.Weight(prefix));
        if (!(score >= least)) continue;
        if (!fClean && !(valueAt(i + 1) > valueAt(i) + kGap)) continue;
        candidateV.push_back({score, slot, id, rank, prefix});
        if (score > best) {
            best = score;
            least = Least();
        }
    }
}

SearchResult NodeSearch::Decide() {
    SearchResult result;
    const double least = Least();
    const auto isOut = [least](const Candidate& c) { return !(c.score >= least); };
    candidateV.erase(std::remove_if(candidateV.begin(), candidateV.end(), isOut), candidateV.end());
    if (candidateV.empty()) return result;
    const auto isBefore = [](const Candidate& a, const Candidate& b) {
        return a.slot != b.slot ? a.slot < b.slot : a.lastRank < b.lastRank;
    };
    // With exact sums all that are left have the plain form's own score, and it takes the first.
    if (candidateV.size() == 1 || fixed.fExact) {
        result.fFound = true;
        result.winner = *std::min_element(candidateV.begin(), candidateV.end(), isBefore);
        return result;
    }
    for (const Candidate& candidate : candidateV) result.undecidedV.push_back(candidate.slot);
    std::sort(result.undecidedV.begin(), result.undecidedV.end());
    result.undecidedV.erase(std::unique(result.undecidedV.begin(), result.undecidedV.end()),
                            result.undecidedV.end());
    return result;
}

}  // namespace engine
}  // namespace sylvora

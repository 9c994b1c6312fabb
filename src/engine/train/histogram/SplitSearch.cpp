// The search of one node; see SplitSearch.h. The error bound is derived in docs/engine-training.md.
#include "SplitSearch.h"

#include <algorithm>
#include <cmath>
#include <iterator>
#include <utility>

#include "base/Chunks.h"
#include "base/Gather.h"
#include "engine/train/KeySort.h"

namespace sylvora {
namespace engine {
namespace {

constexpr double kUnitRoundoff = 0x1p-53;
constexpr int kBlockRows = 512;  // whose ranks are gathered at once

}  // namespace

SplitSearch::SplitSearch(const BinnedColumns& columns, const FixedPoint& fixedPoint,
                         const Tuning& figures, WorkerPool& workers, Buffers& sharedBuffers)
    : data(columns),
      fixed(fixedPoint),
      tuning(figures),
      pool(workers),
      buffers(sharedBuffers),
      scan(columns, fixedPoint),
      fTakenV(static_cast<size_t>(columns.NumColumns())) {}

SplitSearch::~SplitSearch() = default;

void SplitSearch::Buffers::Take(size_t num, std::vector<std::unique_ptr<Scratch>>& taken) {
    const std::lock_guard<std::mutex> lock(mutex);
    while (taken.size() < num) {
        if (freeV.empty()) {
            freeV.reserve(numMade + 1);  // so that nothing can fail when they are given back
            freeV.push_back(std::make_unique<Scratch>(fixed));
            ++numMade;
        }
        taken.push_back(std::move(freeV.back()));
        freeV.pop_back();
    }
}

void SplitSearch::Buffers::GiveBack(std::vector<std::unique_ptr<Scratch>>& taken) {
    const std::lock_guard<std::mutex> lock(mutex);
    for (std::unique_ptr<Scratch>& scratch : taken) freeV.push_back(std::move(scratch));
    taken.clear();
}

SearchResult SplitSearch::Search(const SearchTask& task) {
    node = {task.total, fixed.Sum(task.total), fixed.Weight(task.total)};
    best = -1.0;
    buffers.Take(static_cast<size_t>(std::max(task.numTogether, 1)), scratchV);
    for (const auto& scratch : scratchV) scratch->candidateV.clear();
    FindSlots(task);
    if (task.histogram != nullptr) {
        LookAtSlots(task);
        RefineSlots(task);
    } else {
        SetError(task, fixed.AbsBound(task.total));
        cellV.resize(static_cast<size_t>(task.rows.count));
        task.rows.CellsOf(task.rows.rowV, task.rows.count, fixed, cellV.data());
        for (const int slot : slotV) SortSlot(task, slot, *scratchV[0]);
    }
    SearchResult result = Decide();
    buffers.GiveBack(scratchV);
    return result;
}

// A column with the same cuts and the same scores in a lower slot wins every tie.
void SplitSearch::FindSlots(const SearchTask& task) {
    slotV.clear();
    slotV.reserve(static_cast<size_t>(task.numSlots));  // nothing may fail between the marks
    for (int slot = 0; slot < task.numSlots; ++slot) {
        uint8_t& fTaken = fTakenV[static_cast<size_t>(data.At(task.columnV[slot]).twin)];
        if (fTaken == 0) slotV.push_back(slot);
        fTaken = 1;
    }
    for (const int slot : slotV) {
        fTakenV[static_cast<size_t>(data.At(task.columnV[slot]).twin)] = 0;
    }
}

// Calls step(i) for i = 0 to count - 1 in order, or for several at once.
template <typename Step>
void SplitSearch::For(const SearchTask& task, int count, const Step& step) {
    if (task.numTogether > 0) return pool.For(count, [&step](int i, int) { step(i); });
    for (int i = 0; i < count; ++i) step(i);
}

void SplitSearch::RaiseBest(double score) {
    double current = best.load();
    while (score > current && !best.compare_exchange_weak(current, score)) {
    }
}

// `largestSum` bounds every left and right sum that the plain form meets on its way.
void SplitSearch::SetError(const SearchTask& task, double largestSum) {
    const double numRows = task.rows.count;
    rowError = fixed.fExact ? 0.0
                            : 1.02 * (numRows + 8) * kUnitRoundoff * largestSum +
                                  0.5 * numRows * fixed.unit + std::fabs(task.gradAll - node.sum);
}

// The score below which a cut cannot win: both it and the best may be off by the error.
double SplitSearch::Least() const {
    const double score = best.load(std::memory_order_relaxed);
    if (fixed.fExact) return score;
    const double error =
        4 * fixed.largest * rowError + 2 * rowError * rowError + 16 * kUnitRoundoff * score;
    return score - 2 * error;
}

void SplitSearch::LookAtSlots(const SearchTask& task) {
    viewV.resize(std::max(viewV.size(), static_cast<size_t>(task.numSlots)));
    For(task, static_cast<int>(slotV.size()), [&](int i) {
        const int slot = slotV[static_cast<size_t>(i)];
        scan.Look(task.columnV[slot], *task.histogram, node, viewV[static_cast<size_t>(slot)]);
    });
    double largestSum = 0.0;
    for (const int slot : slotV) {
        const ColumnView& view = viewV[static_cast<size_t>(slot)];
        RaiseBest(view.best);
        largestSum = std::max(largestSum, view.largestSum);
    }
    SetError(task, largestSum);
}

// The most promising columns first: what they turn up spares others the look inside their bins.
void SplitSearch::RefineSlots(const SearchTask& task) {
    const auto boundOf = [this](int slot) { return viewV[static_cast<size_t>(slot)].bound; };
    std::stable_sort(slotV.begin(), slotV.end(),
                     [&](int a, int b) { return boundOf(a) > boundOf(b); });
    const size_t numTogether = static_cast<size_t>(std::max(task.numTogether, 1));
    for (size_t done = 0; done < slotV.size();) {
        const int* slots = slotV.data() + done;
        const size_t most = std::min(slotV.size() - done, numTogether);
        size_t num = 0;
        while (num < most && boundOf(slots[num]) >= Least()) ++num;
        if (num == 0) break;
        RefineTogether(task, slots, static_cast<int>(num));
        done += num;
    }
    for (const int slot : slotV) {
        const ColumnView& view = viewV[static_cast<size_t>(slot)];
        if (view.best < Least()) continue;
        scan.AppendCuts(slot, task.columnV[slot], *task.histogram, node, view, Least(),
                        scratchV[0]->candidateV);
    }
}

// Refines slots in step, each with a scratch of its own, since a few of them would not keep several
// workers busy: rows are looked through in stretches.
void SplitSearch::RefineTogether(const SearchTask& task, const int* slots, int numSlots) {
    const Chunks stretches = {task.rows.count,
                              task.numTogether > 0 ? tuning.chunkRows : task.rows.count};
    For(task, numSlots, [&](int i) {
        Scratch& scratch = *scratchV[static_cast<size_t>(i)];
        const int id = task.columnV[slots[i]];
        scratch.liveBinV.clear();
        scan.AppendLiveBins(id, *task.histogram, node, viewV[static_cast<size_t>(slots[i])],
                            Least(), scratch.liveBinV);
        scratch.stretchVV.resize(static_cast<size_t>(stretches.Num()));
        if (!scratch.liveBinV.empty()) FindLiveSteps(task, data.At(id), scratch);
    });
    For(task, numSlots * stretches.Num(), [&](int i) {
        Scratch& scratch = *scratchV[static_cast<size_t>(i / stretches.Num())];
        const int stretch = i % stretches.Num();
        if (scratch.liveBinV.empty()) return;
        CollectKeys(task, stretches.Begin(stretch), stretches.End(stretch),
                    task.columnV[slots[i / stretches.Num()]], scratch.live,
                    scratch.stretchVV[static_cast<size_t>(stretch)]);
    });
    For(task, numSlots, [&](int i) {
        Scratch& scratch = *scratchV[static_cast<size_t>(i)];
        if (!scratch.liveBinV.empty()) ScoreKeys(task, slots[i], scratch);
        // The keys of large nodes would add up over all workers' scratches.
        if (stretches.Num() > 1) scratch.FreeKeys();
    });
}

// Scores the cuts between the keys that were collected.
void SplitSearch::ScoreKeys(const SearchTask& task, int slot, Scratch& scratch) {
    scratch.keyV.swap(scratch.stretchVV[0]);
    size_t numKeys = scratch.keyV.size();
    for (size_t s = 1; s < scratch.stretchVV.size(); ++s) numKeys += scratch.stretchVV[s].size();
    scratch.keyV.reserve(numKeys);
    for (size_t s = 1; s < scratch.stretchVV.size(); ++s) {
        const LargeArray<uint64_t> more = std::move(scratch.stretchVV[s]);
        scratch.keyV.insert(scratch.keyV.end(), more.begin(), more.end());
    }
    if (static_cast<int>(scratch.keyV.size()) > tuning.fewKeys) {
        ScorePieces(task, slot, scratch);
    } else {
        ScoreBins(task, slot, scratch);
    }
}

// Sorts the keys and scores all cuts inside the live bins.
void SplitSearch::ScoreBins(const SearchTask& task, int slot, Scratch& scratch) {
    const Column& column = data.At(task.columnV[slot]);
    const ColumnView& view = viewV[static_cast<size_t>(slot)];
    SortKeys(scratch.keyV, scratch.otherKeyV);
    const uint64_t* begin = scratch.keyV.data();
    const uint64_t* last = begin + scratch.keyV.size();
    for (const int bin : scratch.liveBinV) {
        const uint32_t first = task.histogram->FirstRank(column, bin);
        const uint32_t past = task.histogram->FirstRank(column, bin + 1);
        while (begin < last && RankOf(*begin) < first) ++begin;
        const uint64_t* end = begin;
        while (end < last && RankOf(*end) < past) ++end;
        ScoreRows(task, slot, begin, end, view.prefixV[static_cast<size_t>(bin)], scratch);
        begin = end;
    }
}

// Scores the cuts between pieces of the live bins, then sorts and scores what the pieces' own
// bounds leave.
void SplitSearch::ScorePieces(const SearchTask& task, int slot, Scratch& scratch) {
    const int id = task.columnV[slot];
    const Column& column = data.At(id);
    const ColumnView& view = viewV[static_cast<size_t>(slot)];
    std::vector<FineBin>& bins = scratch.fineBinV;
    bins.clear();
    for (const int bin : scratch.liveBinV) {
        const size_t b = static_cast<size_t>(bin);
        bins.push_back({task.histogram->FirstRank(column, bin),
                        task.histogram->FirstRank(column, bin + 1), view.prefixV[b],
                        view.prefixV[b + 1], task.histogram->IsClean(column, bin)});
    }
    scratch.fine.Count(bins, task.rows, scratch.keyV);
    scratch.fine.ForPieces(
        bins, [&](const FineBin& bin, size_t piece, const Cell& before, const Cell& inside) {
            Cell left = before;
            left += inside;
            if (left.packed == bin.behind.packed) return;  // the cut behind the bin
            const double score = CutScore(node, fixed.Sum(left), fixed.Weight(left));
            if (!(score >= Least())) return;
            scratch.candidateV.push_back({score, slot, id, bin.LastRank(piece), left});
            RaiseBest(score);
        });
    const double least = Least();
    scratch.fLiveV.assign(scratch.fine.NumPieces(), 0);
    scratch.fine.ForPieces(
        bins, [&](const FineBin&, size_t piece, const Cell& before, const Cell& inside) {
            scratch.fLiveV[piece] =
                scan.HasTwoRows(inside) && scan.InsideBound(node, before, inside) >= least;
        });
    scratch.fine.Keep(scratch.fLiveV, scratch.keyV);
    SortKeys(scratch.keyV, scratch.otherKeyV);
    const uint64_t* begin = scratch.keyV.data();
    const uint64_t* last = begin + scratch.keyV.size();
    scratch.fine.ForPieces(
        bins, [&](const FineBin& bin, size_t piece, const Cell& before, const Cell&) {
            if (scratch.fLiveV[piece] == 0) return;
            const uint64_t* end = begin;
            while (end < last && RankOf(*end) < bin.past && bin.PieceOf(RankOf(*end)) == piece)
                ++end;
            ScoreRows(task, slot, begin, end, before, scratch);
            begin = end;
        });
}

void SplitSearch::FindLiveSteps(const SearchTask& task, const Column& column, Scratch& scratch) {
    const Histogram& histogram = *task.histogram;
    const uint32_t numRanks = column.binFirstRankV.back();
    LiveSteps& live = scratch.live;
    live.step = 0;
    while ((numRanks >> live.step) > 4096) ++live.step;
    live.fLiveV.assign((numRanks >> live.step) + 1, 0);
    std::fill_n(live.fLiveByteV, sizeof live.fLiveByteV, uint8_t{0});
    for (const int bin : scratch.liveBinV) {
        const uint32_t first = histogram.FirstRank(column, bin) >> live.step;
        const uint32_t last = (histogram.FirstRank(column, bin + 1) - 1) >> live.step;
        std::fill(live.fLiveV.begin() + first, live.fLiveV.begin() + last + 1, uint8_t{1});
        const int pastBin = std::min((bin + 1) << histogram.shift, column.numBins);
        std::fill(live.fLiveByteV + ((bin << histogram.shift) >> column.byteShift),
                  live.fLiveByteV + ((pastBin - 1) >> column.byteShift) + 1, uint8_t{1});
    }
}

// Keys of the rows in live bins, and of some near them: bytes tell most rows apart, ranks, looked
// up in steps, most of the others. Ranks are read a block later than they are asked for.
void SplitSearch::CollectKeys(const SearchTask& task, int begin, int end, int id,
                              const LiveSteps& live, LargeArray<uint64_t>& keyV) const {
    const uint8_t* const bytes = data.At(id).byteV.data();
    const RowRanks& ranks = data.At(id).ranks;
    const uint8_t* const fLiveV = live.fLiveV.data();
    size_t numKeys = 0;
    struct {
        int rowV[kBlockRows];
        uint8_t byteV[kBlockRows];
        int num = 0;
    } blockV[2];
    uint32_t rankV[kBlockRows];
    const auto take = [&](const auto& block) {
        ranks.Gather(block.rowV, block.byteV, block.num, rankV);
        keyV.resize(std::max(keyV.size(), numKeys + size_t{kBlockRows}));
        for (int i = 0; i < block.num; ++i) {
            keyV[numKeys] = KeyOf(rankV[i], block.rowV[i]);
            numKeys += fLiveV[rankV[i] >> live.step];
        }
    };
    int current = 0;
    for (; begin < end; begin += kBlockRows, current ^= 1) {
        auto& block = blockV[current];
        block.num = 0;
        ForSelected(
            task.rows.rowV + begin, std::min(kBlockRows, end - begin),
            [&](int row) { return live.fLiveByteV[bytes[row]]; },
            [&](int row) {
                ranks.Prefetch(row);
                __builtin_prefetch(task.rows.gradV + row);  // for the count of the pieces
                block.rowV[block.num] = row;
                block.byteV[block.num++] = bytes[row];
            });
        take(blockV[current ^ 1]);
    }
    take(blockV[current ^ 1]);
    keyV.resize(numKeys);
}

// The keys of a small node name rows by their places: its cells are at hand.
void SplitSearch::SortSlot(const SearchTask& task, int slot, Scratch& scratch) {
    LargeArray<uint64_t>& keyV = scratch.keyV;
    keyV.clear();
    for (int place = 0; place < task.rows.count; ++place) {
        keyV.push_back(KeyOf(data.Rank(task.columnV[slot], task.rows.rowV[place]), place));
    }
    SortKeys(keyV, scratch.otherKeyV);
    ScoreRun(
        task, slot, keyV.data(), keyV.data() + keyV.size(), Cell(),
        [&](int place) { return task.rows.rowV[place]; },
        [&](int place) { return cellV[static_cast<size_t>(place)]; }, scratch);
}

void SplitSearch::ScoreRows(const SearchTask& task, int slot, const uint64_t* begin,
                            const uint64_t* end, const Cell& prefix, Scratch& scratch) {
    ScoreRun(
        task, slot, begin, end, prefix, [](int row) { return row; },
        [&](int row) { return task.rows.CellOf(row, fixed); }, scratch);
}

// Scores the cuts between the sorted keys [begin, end); `prefix` are the sums before them.
template <typename Row, typename CellOf>
void SplitSearch::ScoreRun(const SearchTask& task, int slot, const uint64_t* begin,
                           const uint64_t* end, Cell prefix, const Row& rowOf, const CellOf& cellOf,
                           Scratch& scratch) {
    const int id = task.columnV[slot];
    const bool fClean = data.At(id).fClean;
    const auto valueOf = [&](uint64_t key) { return data.Value(rowOf(ItemOf(key)), id); };
    double least = Least();
    for (const uint64_t* key = begin; key + 1 < end; ++key) {
        prefix += cellOf(ItemOf(*key));
        const uint32_t rank = RankOf(*key);
        if (rank == RankOf(key[1])) continue;
        const double score = CutScore(node, fixed.Sum(prefix), fixed.Weight(prefix));
        if (!(score >= least)) continue;
        if (!fClean && !IsSeparable(valueOf(*key), valueOf(key[1]))) continue;
        scratch.candidateV.push_back({score, slot, id, rank, prefix});
        RaiseBest(score);
        least = Least();
    }
}

SearchResult SplitSearch::Decide() {
    SearchResult result;
    const double least = Least();
    std::vector<Candidate> candidateV;
    for (const auto& scratch : scratchV) {
        std::copy_if(scratch->candidateV.begin(), scratch->candidateV.end(),
                     std::back_inserter(candidateV),
                     [least](const Candidate& c) { return c.score >= least; });
    }
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

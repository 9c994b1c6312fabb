// Scores the candidate splits inside the bins of one slot; the second half of SplitSearch.h.
//
// The steps: mark the candidate bins (MarkCandidateRanks), collect the keys of their rows
// (CollectKeys), then either sort them at once (ScoreBins) or, if they are many per bin, count them
// into sub-bins first and sort only what the sub-bins' bounds leave (ScoreSubBins).
#include <algorithm>
#include <utility>

#include "SplitSearch.h"
#include "engine/train/KeySort.h"

namespace sylvora {
namespace engine {

// A slot's candidates are added one after the other, so they are the last ones.
void SplitSearch::Buffers::Keep(const Candidate& candidate) {
    constexpr size_t kKept = 2;
    const auto isBetter = [](const Candidate& a, const Candidate& b) {
        return a.Most() != b.Most() ? a.Most() > b.Most() : a.lastRank < b.lastRank;
    };
    size_t numOfSlot = 0;
    while (numOfSlot < std::min(kKept, candidateV.size()) &&
           candidateV[candidateV.size() - 1 - numOfSlot].slot == candidate.slot) {
        ++numOfSlot;
    }
    if (numOfSlot < kKept) return candidateV.push_back(candidate);
    Candidate& last = candidateV.back();
    Candidate& other = candidateV[candidateV.size() - kKept];
    Candidate& worse = isBetter(last, other) ? other : last;
    if (isBetter(candidate, worse)) worse = candidate;
}

// Joins the collected keys and scores the splits between them.
void SplitSearch::ScoreKeys(const SearchTask& task, int slot, Buffers& buffers) {
    buffers.keyV.swap(buffers.chunkKeyVV[0]);
    size_t numKeys = buffers.keyV.size();
    for (size_t s = 1; s < buffers.chunkKeyVV.size(); ++s) numKeys += buffers.chunkKeyVV[s].size();
    buffers.keyV.reserve(numKeys);
    // The chunks are joined in order, so keys of a rank stay ascending by row.
    for (size_t s = 1; s < buffers.chunkKeyVV.size(); ++s) {
        const LargeArray<uint64_t> more = std::move(buffers.chunkKeyVV[s]);
        buffers.keyV.insert(buffers.keyV.end(), more.begin(), more.end());
    }
    buffers.numKeys += static_cast<int64_t>(buffers.keyV.size());
    // Where bins hold about as many rows as a sub-bin would, sub-bins rule out next to nothing.
    const size_t perBin = buffers.keyV.size() / buffers.candidateBinV.size();
    const size_t few = static_cast<size_t>(tuning.fewKeys);
    if (buffers.keyV.size() > few && perBin >= few / 8) {
        ScoreSubBins(task, slot, buffers);
    } else {
        ScoreBins(task, slot, buffers);
    }
}

// Sorts the keys and scores all splits inside the candidate bins.
void SplitSearch::ScoreBins(const SearchTask& task, int slot, Buffers& buffers) {
    const Column& column = data.At(task.columnV[slot]);
    const ColumnSummary& summary = summaryV[static_cast<size_t>(slot)];
    SortKeys(buffers.keyV, buffers.otherKeyV);
    const uint64_t* begin = buffers.keyV.data();
    const uint64_t* last = begin + buffers.keyV.size();
    // Invariant: keys before `begin` belong to earlier bins or to none.
    for (const int bin : buffers.candidateBinV) {
        const uint32_t first = task.histogram->FirstRank(column, bin);
        const uint32_t past = task.histogram->FirstRank(column, bin + 1);
        while (begin < last && RankOf(*begin) < first) ++begin;
        const uint64_t* end = begin;
        while (end < last && RankOf(*end) < past) ++end;
        ScoreRows(task, slot, begin, end, summary.prefixV[static_cast<size_t>(bin)], buffers);
        begin = end;
    }
}

// Scores the splits between the sub-bins of the candidate bins. Then sorts and scores only the
// sub-bins whose own bounds are high enough.
void SplitSearch::ScoreSubBins(const SearchTask& task, int slot, Buffers& buffers) {
    const int id = task.columnV[slot];
    const Column& column = data.At(id);
    const ColumnSummary& summary = summaryV[static_cast<size_t>(slot)];
    std::vector<FineBin>& bins = buffers.fineBinV;
    bins.clear();
    for (const int bin : buffers.candidateBinV) {
        const size_t b = static_cast<size_t>(bin);
        bins.push_back({task.histogram->FirstRank(column, bin),
                        task.histogram->FirstRank(column, bin + 1), summary.prefixV[b],
                        summary.prefixV[b + 1], task.histogram->AllSeparable(column, bin)});
    }
    buffers.fine.Count(bins, task.rows, buffers.keyV);
    KeepSubBinSplits(slot, id, buffers);
    MarkSubBins(buffers);
    buffers.fine.Keep(buffers.subBinMaskV, buffers.keyV);
    SortKeys(buffers.keyV, buffers.otherKeyV);
    const uint64_t* begin = buffers.keyV.data();
    const uint64_t* last = begin + buffers.keyV.size();
    const FineBin* at = bins.data();
    for (size_t word = 0; word < buffers.subBinMaskV.size(); ++word) {
        const int from = static_cast<int>(word) * ScanKernels::kMost;
        const auto score = [&](const FineBin& bin, size_t subBin) {
            const uint64_t* end = begin;
            while (end < last && RankOf(*end) < bin.past && bin.SubBinOf(RankOf(*end)) == subBin)
                ++end;
            ScoreRows(task, slot, begin, end, buffers.fine.Prefixes()[subBin], buffers);
            begin = end;
        };
        buffers.fine.ForSubBins(buffers.subBinMaskV[word], from, at, score);
    }
}

// Keeps the splits between sub-bins that may win. Those between bins are left to AppendCandidates.
void SplitSearch::KeepSubBinSplits(int slot, int id, Buffers& buffers) {
    const ScanFigures figures = scan.FiguresOf(node);
    const FineScan& fine = buffers.fine;
    const FineBin* at = buffers.fineBinV.data();
    for (int from = 0; from < fine.NumNumbers(); from += ScanKernels::kMost) {
        const int count = std::min(fine.NumNumbers() - from, ScanKernels::kMost);
        const uint64_t mask = scan.Kernels().reachable(figures, fine.Prefixes() + from + 1, count,
                                                       PruningThreshold());
        fine.ForSubBins(mask, from, at, [&](const FineBin& bin, size_t subBin) {
            const Cell& left = fine.Prefixes()[subBin + 1];
            if (left.packed == bin.behind.packed) return;
            const double score = SplitScore(node, fixed.Sum(left), fixed.Weight(left));
            if (!(score >= PruningThreshold())) return;
            Consider({score, slot, id, bin.LastRank(subBin), left}, buffers);
        });
    }
}

// Marks the sub-bins that may hold a winning split, and perhaps numbers left out.
void SplitSearch::MarkSubBins(Buffers& buffers) const {
    const ScanFigures figures = scan.FiguresOf(node);
    const FineScan& fine = buffers.fine;
    const double minScore = PruningThreshold();
    buffers.subBinMaskV.clear();
    for (int from = 0; from < fine.NumNumbers(); from += ScanKernels::kMost) {
        const int count = std::min(fine.NumNumbers() - from, ScanKernels::kMost);
        buffers.subBinMaskV.push_back(
            scan.Kernels().mayReach(figures, fine.Prefixes() + from, count, minScore));
    }
}

// Marks the codes and the ranks of the candidate bins.
void SplitSearch::MarkCandidateRanks(const SearchTask& task, const Column& column,
                                     Buffers& buffers) {
    const Histogram& histogram = *task.histogram;
    const uint32_t numRanks = column.binFirstRankV.back();
    CandidateRanks& candidateRanks = buffers.candidateRanks;
    candidateRanks.step = 0;
    while ((numRanks >> candidateRanks.step) > 4096) ++candidateRanks.step;
    candidateRanks.fCandidateV.assign(
        (numRanks >> candidateRanks.step) + 1 + CandidateMarks::kSlack, 0);
    candidateRanks.codes = CandidateCodes();
    // A bin may share a step or a code with its neighbours, so a few rows too many are collected.
    // ScoreBins and FineScan::Count drop them.
    for (const int bin : buffers.candidateBinV) {
        const uint32_t first = histogram.FirstRank(column, bin) >> candidateRanks.step;
        const uint32_t last = (histogram.FirstRank(column, bin + 1) - 1) >> candidateRanks.step;
        std::fill(candidateRanks.fCandidateV.begin() + first,
                  candidateRanks.fCandidateV.begin() + last + 1, uint8_t{1});
        const int pastBin = std::min((bin + 1) << histogram.shift, column.numBins);
        candidateRanks.codes.Add(column.Code8OfBin(bin << histogram.shift),
                                 column.Code8OfBin(pastBin - 1));
    }
}

// Collects the keys of the rows in candidate bins, and of a few near them. The 8-bit codes rule out
// most rows, and the ranks, in steps of 2^step, most of the rest. Two blocks alternate: the ranks
// of one are prefetched while those of the other are read.
void SplitSearch::CollectKeys(const SearchTask& task, int begin, int end, int id,
                              const CandidateRanks& candidateRanks,
                              LargeArray<uint64_t>& keyV) const {
    const uint8_t* const codes = data.At(id).code8V.data();
    const RowRanks& ranks = data.At(id).ranks;
    constexpr int kBlockRows = SelectedRows::kMost;
    SelectedRows blockV[2];
    uint32_t rankV[kBlockRows];
    size_t numKeys = 0;
    const auto take = [&](const SelectedRows& block) {
        ranks.Gather(block.rowV, block.code8V, block.num, rankV);
        keyV.resize(std::max(keyV.size(), numKeys + kBlockRows + KeySelection::kKeySlack));
        numKeys += static_cast<size_t>(
            keySelection.selectKeys(candidateRanks.Marks(), block, rankV, keyV.data() + numKeys));
    };
    int current = 0;
    // `take` handles the block before, whose ranks have arrived meanwhile.
    for (int count; begin < end; begin += count, current ^= 1) {
        SelectedRows& block = blockV[current];
        count = std::min(kBlockRows, end - begin);
        keySelection.selectRows(candidateRanks.codes, codes, task.rows.rowV + begin, count, block);
        for (int i = 0; i < block.num; ++i) {
            ranks.Prefetch(block.rowV[i]);
            __builtin_prefetch(task.rows.gradV + block.rowV[i]);  // for FineScan::AddRows
        }
        take(blockV[current ^ 1]);
    }
    take(blockV[current ^ 1]);
    keyV.resize(numKeys);
}

// Keys of a small node hold positions in the node; its cells are already loaded.
void SplitSearch::ScoreBySorting(const SearchTask& task, int slot, Buffers& buffers) {
    LargeArray<uint64_t>& keyV = buffers.keyV;
    keyV.clear();
    for (int position = 0; position < task.rows.count; ++position) {
        keyV.push_back(KeyOf(data.Rank(task.columnV[slot], task.rows.rowV[position]), position));
    }
    SortKeys(keyV, buffers.otherKeyV);
    ScoreKeyRange(
        task, slot, {keyV.data(), keyV.data() + keyV.size(), Cell()},
        [&](int position) { return task.rows.rowV[position]; },
        [&](int position) { return cellV[static_cast<size_t>(position)]; }, buffers);
}

// Keys that hold rows of the data.
void SplitSearch::ScoreRows(const SearchTask& task, int slot, const uint64_t* begin,
                            const uint64_t* end, const Cell& prefix, Buffers& buffers) {
    ScoreKeyRange(
        task, slot, {begin, end, prefix}, [](int row) { return row; },
        [&](int row) { return task.rows.CellOf(row, fixed); }, buffers);
}

// Scores the splits between the sorted keys of a range.
template <typename Row, typename CellOf>
void SplitSearch::ScoreKeyRange(const SearchTask& task, int slot, const KeyRange& keys,
                                const Row& rowOf, const CellOf& cellOf, Buffers& buffers) {
    Cell prefix = keys.prefix;
    const uint64_t* const end = keys.end;
    const int id = task.columnV[slot];
    const bool fAllSeparable = data.At(id).fAllSeparable;
    const auto valueOf = [&](uint64_t key) { return data.Value(rowOf(ItemOf(key)), id); };
    double minScore = PruningThreshold();
    // Invariant: at the start of a pass, `prefix` holds the sums over the keys before `key`. A
    // split lies after the last key of a rank.
    for (const uint64_t* key = keys.begin; key + 1 < end; ++key) {
        prefix += cellOf(ItemOf(*key));
        const uint32_t rank = RankOf(*key);
        if (rank == RankOf(key[1])) continue;
        const double score = SplitScore(node, fixed.Sum(prefix), fixed.Weight(prefix));
        if (!(score >= minScore)) continue;
        if (!fAllSeparable && !IsSeparable(valueOf(*key), valueOf(key[1]))) continue;
        Consider({score, slot, id, rank, prefix}, buffers);
        minScore = PruningThreshold();
    }
}

}  // namespace engine
}  // namespace sylvora

// Grouping of narrow columns; see ColumnGroups.h.
#include "ColumnGroups.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <utility>

#include "base/Chunks.h"

namespace sylvora {
namespace engine {
namespace {

constexpr size_t kOpenGroups = 8;  // groups that a column may join
// Bounds the time to copy the bins of the members at each join.
constexpr size_t kMostMembers = 64;
constexpr int kTrialRows = 4096;  // rows that decide which group a column tries to join
constexpr int kMostTrials = 2;    // groups tried with all rows
constexpr int kChunkRows = 1 << 16;

// Combinations of a group's code and a column's bin, as one number.
constexpr size_t kPairs = size_t{kGroupCodes} * kGroupCodes;

size_t PairOf(uint8_t code, uint8_t bin) {
    return size_t{code} * kGroupCodes + bin;
}

// Every so many rows of a column, so that data in sorted order do not mislead.
std::vector<uint8_t> TrialRowsOf(const LargeArray<uint8_t>& codeV) {
    const size_t step = codeV.size() / kTrialRows + 1;
    std::vector<uint8_t> trialV;
    for (size_t row = 0; row < codeV.size(); row += step) trialV.push_back(codeV[row]);
    return trialV;
}

// Which pairs occur, and how many they are.
class SeenPairs {
  public:
    SeenPairs() : seenV(kPairs) {}

    void Clear(int numCodes) {
        std::fill_n(seenV.begin(), static_cast<size_t>(numCodes) * kGroupCodes, uint8_t{0});
    }
    void Add(const uint8_t* codes, const uint8_t* bins, int count) {
        for (int i = 0; i < count; ++i) seenV[PairOf(codes[i], bins[i])] = 1;
    }
    void Add(const SeenPairs& other, int numCodes) {
        const size_t count = static_cast<size_t>(numCodes) * kGroupCodes;
        for (size_t pair = 0; pair < count; ++pair) seenV[pair] |= other.seenV[pair];
    }
    int Count(int numCodes) const {
        int num = 0;
        for (size_t pair = 0; pair < static_cast<size_t>(numCodes) * kGroupCodes; ++pair) {
            num += seenV[pair];
        }
        return num;
    }
    bool Has(size_t pair) const { return seenV[pair] != 0; }

  private:
    std::vector<uint8_t> seenV;
};

// A group that columns may still join.
struct OpenGroup {
    ColumnGroup group;
    std::vector<uint8_t> trialV;
};

class Grouping {
  public:
    explicit Grouping(WorkerPool& workers)
        : pool(workers),
          codeOfPairV(kPairs),
          seenByWorkerV(static_cast<size_t>(pool.NumWorkers())) {}

    void Add(NarrowColumn narrow) {
        const std::vector<uint8_t> trialV = TrialRowsOf(narrow.binV);
        for (OpenGroup* open : GroupsToTry(trialV)) {
            if (!Join(open->group, narrow)) continue;
            open->trialV = TrialRowsOf(open->group.codeV);
            if (open->group.columnV.size() == kMostMembers) Close(open - openV.data());
            return;
        }
        Open(std::move(narrow), trialV);
    }

    std::vector<ColumnGroup> Finish() {
        for (OpenGroup& open : openV) doneV.push_back(std::move(open.group));
        openV.clear();
        return std::move(doneV);
    }

  private:
    // The groups whose number of codes would grow by the smallest factors, judged by some rows.
    std::vector<OpenGroup*> GroupsToTry(const std::vector<uint8_t>& trialV) {
        std::vector<std::pair<double, OpenGroup*>> byFactorV;
        for (OpenGroup& open : openV) {
            const int numCodes = open.group.numCodes;
            trial.Clear(numCodes);
            trial.Add(open.trialV.data(), trialV.data(), static_cast<int>(trialV.size()));
            const int numPairs = trial.Count(numCodes);
            if (numPairs > kGroupCodes) continue;
            byFactorV.emplace_back(1.0 * std::max(numPairs, numCodes) / numCodes, &open);
        }
        std::stable_sort(byFactorV.begin(), byFactorV.end(),
                         [](const auto& a, const auto& b) { return a.first < b.first; });
        std::vector<OpenGroup*> bestV;
        for (const auto& one : byFactorV) {
            if (bestV.size() < kMostTrials) bestV.push_back(one.second);
        }
        return bestV;
    }

    // Joins a column to a group, unless their combinations are too many.
    bool Join(ColumnGroup& group, const NarrowColumn& narrow) {
        const Chunks chunks = {static_cast<int>(narrow.binV.size()), kChunkRows};
        for (SeenPairs& seen : seenByWorkerV) seen.Clear(group.numCodes);
        pool.For(chunks.Num(), [&](int chunk, int worker) {
            const int begin = chunks.Begin(chunk);
            seenByWorkerV[static_cast<size_t>(worker)].Add(
                group.codeV.data() + begin, narrow.binV.data() + begin, chunks.End(chunk) - begin);
        });
        SeenPairs& seen = seenByWorkerV[0];
        for (size_t w = 1; w < seenByWorkerV.size(); ++w) {
            seen.Add(seenByWorkerV[w], group.numCodes);
        }
        if (seen.Count(group.numCodes) > kGroupCodes) return false;
        Renumber(group, narrow.column, seen);
        pool.For(chunks.Num(), [&](int chunk, int) {
            const size_t end = static_cast<size_t>(chunks.End(chunk));
            for (size_t row = static_cast<size_t>(chunks.Begin(chunk)); row < end; ++row) {
                group.codeV[row] = codeOfPairV[PairOf(group.codeV[row], narrow.binV[row])];
            }
        });
        return true;
    }

    // Numbers the pairs that occur, in ascending order, and adds the column to the group.
    void Renumber(GroupShape& group, int column, const SeenPairs& seen) {
        const size_t numPairs = static_cast<size_t>(group.numCodes) * kGroupCodes;
        pairOfCodeV.clear();
        for (size_t pair = 0; pair < numPairs; ++pair) {
            if (!seen.Has(pair)) continue;
            codeOfPairV[pair] = static_cast<uint8_t>(pairOfCodeV.size());
            pairOfCodeV.push_back(pair);
        }
        std::vector<uint8_t> binOfCodeV;
        for (size_t m = 0; m < group.columnV.size(); ++m) {
            const uint8_t* const binsOfCodes = group.BinsOfCodes(m);
            for (const size_t pair : pairOfCodeV) {
                binOfCodeV.push_back(binsOfCodes[pair / kGroupCodes]);
            }
        }
        for (const size_t pair : pairOfCodeV) {
            binOfCodeV.push_back(static_cast<uint8_t>(pair % kGroupCodes));
        }
        group.columnV.push_back(column);
        group.numCodes = static_cast<int>(pairOfCodeV.size());
        group.binOfCodeV = std::move(binOfCodeV);
    }

    // Opens a group of one column. If too many are open, the one with the most codes is closed.
    void Open(NarrowColumn narrow, std::vector<uint8_t> trialV) {
        if (openV.size() == kOpenGroups) {
            const auto fullest = std::max_element(openV.begin(), openV.end(),
                                                  [](const OpenGroup& a, const OpenGroup& b) {
                                                      return a.group.numCodes < b.group.numCodes;
                                                  });
            Close(fullest - openV.begin());
        }
        OpenGroup open;
        open.group.columnV = {narrow.column};
        open.group.numCodes = narrow.numBins;
        for (int bin = 0; bin < narrow.numBins; ++bin) {
            open.group.binOfCodeV.push_back(static_cast<uint8_t>(bin));
        }
        open.group.codeV = std::move(narrow.binV);
        open.trialV = std::move(trialV);
        openV.push_back(std::move(open));
    }

    void Close(std::ptrdiff_t index) {
        doneV.push_back(std::move(openV[static_cast<size_t>(index)].group));
        openV.erase(openV.begin() + index);
    }

    WorkerPool& pool;
    SeenPairs trial;
    // Of the last join: the pairs by code, and the codes of those pairs.
    std::vector<size_t> pairOfCodeV;
    std::vector<uint8_t> codeOfPairV;
    std::vector<SeenPairs> seenByWorkerV;
    std::vector<OpenGroup> openV;
    std::vector<ColumnGroup> doneV;
};

// Finds each member's frequent bin, and lists the rare bins of each code.
void ListRareBins(ColumnGroup& group) {
    std::array<size_t, kGroupCodes> rowsOfCodeV = {};
    for (const uint8_t code : group.codeV) ++rowsOfCodeV[code];
    const size_t numCodes = static_cast<size_t>(group.numCodes);
    for (size_t m = 0; m < group.columnV.size(); ++m) {
        std::array<size_t, kGroupCodes> rowsOfBinV = {};
        for (size_t code = 0; code < numCodes; ++code) {
            rowsOfBinV[group.BinsOfCodes(m)[code]] += rowsOfCodeV[code];
        }
        const auto most = std::max_element(rowsOfBinV.begin(), rowsOfBinV.end());
        group.frequentBinV.push_back(static_cast<int>(most - rowsOfBinV.begin()));
    }
    for (size_t code = 0; code < numCodes; ++code) {
        group.firstRareV.push_back(group.rareBinV.size());
        for (size_t m = 0; m < group.columnV.size(); ++m) {
            const int bin = group.BinsOfCodes(m)[code];
            if (bin != group.frequentBinV[m]) {
                group.rareBinV.push_back({m, bin});
            }
        }
    }
    group.firstRareV.push_back(group.rareBinV.size());
}

}  // namespace

ColumnGroup ColumnGroup::Of(const std::vector<int>& rowV) const {
    ColumnGroup some;
    static_cast<GroupShape&>(some) = *this;
    some.codeV.resize(rowV.size());
    for (size_t i = 0; i < rowV.size(); ++i) some.codeV[i] = codeV[static_cast<size_t>(rowV[i])];
    return some;
}

std::vector<ColumnGroup> GroupColumns(std::vector<NarrowColumn> narrowV, WorkerPool& pool) {
    Grouping grouping(pool);
    for (NarrowColumn& narrow : narrowV) grouping.Add(std::move(narrow));
    std::vector<ColumnGroup> groupV = grouping.Finish();
    pool.For(static_cast<int>(groupV.size()),
             [&](int g, int) { ListRareBins(groupV[static_cast<size_t>(g)]); });
    return groupV;
}

}  // namespace engine
}  // namespace sylvora

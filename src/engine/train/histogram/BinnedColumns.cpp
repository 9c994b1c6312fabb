// Coding of the training data; see BinnedColumns.h.
#include "BinnedColumns.h"

#include <algorithm>
#include <cmath>
#include <numeric>
#include <unordered_map>

#include "base/Chunks.h"
#include "engine/train/ColumnSorting.h"
#include "engine/train/ValueOrder.h"

namespace sylvora {
namespace engine {
namespace {

constexpr int kNarrowBins = kGroupCodes;
constexpr int kFewestBins = 16;  // per column, however many columns there are
// Limits the bins of wide data: the cells of a node's histogram.
constexpr size_t kMostCells = 1 << 19;
constexpr double kFrequentShare = 0.7;  // of the rows; see HistogramFiller::AddOthers
constexpr int kMostHeavy = 32;  // a value that holds 1 / kMostHeavy of all rows gets its own bin
// The fewest bins of a coarse histogram of a node that does not sort its columns: 3 sqrt(128), see
// BinChoice.h and smallNode in Tuning.h.
constexpr int kFewBins = 34;

// The position in sorted order at which bin `bin` of `numBins` ideally begins.
double IdealBegin(int bin, int numBins, double numRows) {
    const double share = static_cast<double>(bin) / numBins;
    const double tail = std::min(share, 1.0 - share);
    const double begin = 2.0 * tail * tail * numRows;
    return share <= 0.5 ? begin : numRows - begin;
}

// The distinct values of a column, by rank.
class DistinctValues {
  public:
    // Finds those of `order`, which must not change while they are used.
    void Find(const ValueOrder& order) {
        sorted = &order;
        beginV.clear();
        beginV.reserve(order.Count());
        for (size_t i = 0; i < order.Count(); ++i) {
            if (i == 0 || !order.IsEqualToPrevious(i)) beginV.push_back(static_cast<uint32_t>(i));
        }
    }

    size_t Count() const { return beginV.size(); }
    double Value(size_t rank) const { return sorted->Value(beginV[rank]); }
    // The positions [Begin, End) in sorted order that hold the value.
    size_t Begin(size_t rank) const { return beginV[rank]; }
    size_t End(size_t rank) const {
        return rank + 1 < beginV.size() ? beginV[rank + 1] : sorted->Count();
    }
    bool IsSeparableFromPrevious(size_t rank) const {
        return IsSeparable(Value(rank - 1), Value(rank));
    }

  private:
    const ValueOrder* sorted = nullptr;
    LargeArray<uint32_t> beginV;
};

// Returns the first rank of each bin, then the number of ranks. A value that many rows share
// (heavy), such as that of an absent feature, gets its own bin. It starts at a multiple of
// `alignment` and is padded with empty bins, so it stays alone when bins are joined.
std::vector<uint32_t> MakeBins(const DistinctValues& distinct, size_t numRows, int numBins) {
    std::vector<uint32_t> firstV = {0};
    const auto firstRank = [](size_t rank) { return static_cast<uint32_t>(rank); };
    const double rows = static_cast<double>(numRows);
    const size_t mostHeavy = static_cast<size_t>(std::min(numBins, kMostHeavy));
    // Bins that a heavy value takes, with its empty ones.
    size_t alignment = 1;
    while (numBins >= 2 * kFewBins * static_cast<int>(alignment)) alignment *= 2;
    int bin = 1;
    bool fHeavyBefore = false;
    // Invariant: firstV holds the first rank of each bin so far, and `bin` is the next ideal bin to
    // begin.
    for (size_t r = 0; r < distinct.Count(); ++r) {
        const size_t begin = distinct.Begin(r);
        const bool fHeavy = (distinct.End(r) - begin) * mostHeavy >= numRows;
        const bool fAlone = fHeavy || fHeavyBefore;
        const bool fDue =
            bin < numBins && IdealBegin(bin, numBins, rows) <= static_cast<double>(begin);
        fHeavyBefore = fHeavy;
        if (r == 0 || !(fDue || fAlone)) continue;
        if (!distinct.IsSeparableFromPrevious(r)) continue;
        while (fAlone && firstV.size() % alignment != 0) firstV.push_back(firstRank(r));
        firstV.push_back(firstRank(r));
        while (bin < numBins && IdealBegin(bin, numBins, rows) <= static_cast<double>(begin)) ++bin;
    }
    firstV.push_back(static_cast<uint32_t>(distinct.Count()));
    return firstV;
}

// Twice as many as the root wants at first, see BinChoice.h. Wide data get fewer, so that a
// histogram keeps a bounded size.
int ChooseMostBins(int numRows, int numColumns, int mostBins) {
    const double wanted = 8.0 * std::sqrt(static_cast<double>(numRows));
    const size_t binsPerColumn = kMostCells / static_cast<size_t>(std::max(numColumns, 1));
    const double bound = std::min(std::max(wanted, 1.0 * kNarrowBins),
                                  std::max(static_cast<double>(binsPerColumn), 1.0 * kFewestBins));
    return std::min(static_cast<int>(bound), mostBins);
}

// Fills in the values of the bins, and which of them hold only separable neighbours.
void DescribeBins(const DistinctValues& distinct, Column& c) {
    c.fAllSeparable = true;
    c.fSeparableBinV.assign(static_cast<size_t>(c.numBins), 1);
    for (size_t bin = 0; bin < c.fSeparableBinV.size(); ++bin) {
        const size_t first = c.binFirstRankV[bin];
        c.binValueV.push_back(distinct.Value(first));
        for (size_t r = first; r < c.binFirstRankV[bin + 1]; ++r) {
            if (r == 0 || distinct.IsSeparableFromPrevious(r)) continue;
            c.fAllSeparable = false;
            if (r > first) c.fSeparableBinV[bin] = 0;
        }
    }
}

// Describes a column with one value.
void MakeConstant(double value, Column& c) {
    c.fExact = c.fNarrow = c.fAllSeparable = true;
    c.numBins = 1;
    c.binFirstRankV = {0, 1};
    c.fSeparableBinV = {1}, c.binValueV = {value};
}

// Returns the bin that most rows have, or -1 if it has less than kFrequentShare of them.
int FindFrequentBin(const DistinctValues& distinct, size_t numRows, const Column& c) {
    for (int bin = 0; bin < c.numBins; ++bin) {
        const uint32_t first = c.binFirstRankV[static_cast<size_t>(bin)];
        const uint32_t past = c.binFirstRankV[static_cast<size_t>(bin) + 1];
        if (first == past) continue;
        const size_t held = distinct.End(past - 1) - distinct.Begin(first);
        if (static_cast<double>(held) >= kFrequentShare * static_cast<double>(numRows)) return bin;
    }
    return -1;
}

// Returns the first rank of each 8-bit code of a wide column, then the number of ranks.
std::vector<uint32_t> CodeFirstRanks(const Column& c) {
    std::vector<uint32_t> firstV;
    for (int bin = 0; bin < c.numBins; ++bin) {
        if (bin > 0 && c.Code8OfBin(bin) == c.Code8OfBin(bin - 1)) continue;
        firstV.push_back(c.binFirstRankV[static_cast<size_t>(bin)]);
    }
    firstV.push_back(c.binFirstRankV.back());
    return firstV;
}

// Writes the 8-bit codes (of a narrow column, until it is grouped, the bins) and ranks in sorted
// order. Each code covers the ranks [firstV[code], firstV[code + 1]).
void AssignRanks(const ValueOrder& sorted, const DistinctValues& distinct, int rankBits,
                 Column& c) {
    const std::vector<uint32_t> firstV = c.fNarrow ? c.binFirstRankV : CodeFirstRanks(c);
    c.code8V.resize(sorted.Count());
    if (!c.fNarrow) c.ranks = RowRanks(firstV, sorted.Count(), rankBits);
    size_t code = 0;
    // Invariant: firstV[code] <= rank, so the code never decreases.
    for (size_t r = 0; r < distinct.Count(); ++r) {
        const uint32_t rank = static_cast<uint32_t>(r);
        while (firstV[code + 1] <= rank) ++code;
        for (size_t i = distinct.Begin(r); i < distinct.End(r); ++i) {
            const size_t row = sorted.Row(i);
            c.code8V[row] = static_cast<uint8_t>(code);
            if (!c.fNarrow) c.ranks.Set(row, code, rank);
        }
    }
}

// Finds the bin of a rank: a table gives a lower bound, by rank / 2^step, and a short search the
// rest.
class BinFinder {
  public:
    explicit BinFinder(const Column& column) : firstV(column.binFirstRankV.data()) {
        while ((column.binFirstRankV.back() >> step) >= kSteps) ++step;
        const uint32_t numSteps = (column.binFirstRankV.back() >> step) + 1;
        uint16_t bin = 0;
        // bin is the bin of the step's first rank: a lower bound for all ranks of the step.
        for (uint32_t s = 0; s < numSteps; ++s) {
            while (bin + 1 < column.numBins && firstV[bin + 1] <= s << step) ++bin;
            guessV.push_back(bin);
        }
    }

    uint16_t Find(uint32_t rank) const {
        uint16_t bin = guessV[rank >> step];
        while (firstV[bin + 1u] <= rank) ++bin;
        return bin;
    }

  private:
    static constexpr uint32_t kSteps = 4096;

    const uint32_t* firstV;
    int step = 0;
    std::vector<uint16_t> guessV;
};

}  // namespace

// A worker's buffers for coding a column.
struct BinnedColumns::CodingBuffers {
    ValueOrder sorted;
    DistinctValues distinct;
};

// The order matters: duplicates compare the codes that groups take over, and row codes need the
// groups and the layout.
BinnedColumns::BinnedColumns(const Matrix& matrix, const Tuning& tuning, WorkerPool& pool)
    : values(matrix),
      maxBins(ChooseMostBins(matrix.NumRows(), matrix.NumColumns(), tuning.mostBins)),
      columnV(static_cast<size_t>(matrix.NumColumns())) {
    const std::vector<uint64_t> hashV = CodeColumns(tuning.rankBits, pool);
    if (fNan) return;
    FindDuplicates(hashV);
    GroupNarrowColumns(pool);
    LayOutColumns();
    FillRowCodes(pool);
}

// Returns a hash of each column's ranks. The sort buffers are freed on return, before the row codes
// are allocated.
std::vector<uint64_t> BinnedColumns::CodeColumns(int rankBits, WorkerPool& pool) {
    std::atomic<bool> fFoundNan{false};
    std::vector<uint64_t> hashV(columnV.size());
    std::vector<CodingBuffers> buffersV(static_cast<size_t>(pool.NumWorkers()));
    ForSortedColumns(pool, NumColumns(), [&](int column, int worker) {
        if (CodeColumn(column, rankBits, buffersV[static_cast<size_t>(worker)])) {
            hashV[static_cast<size_t>(column)] = HashRanks(At(column));
        } else {
            fFoundNan = true;
        }
    });
    fNan = fFoundNan;
    return hashV;
}

Column Column::Of(const std::vector<int>& rowV) const {
    Column some;
    static_cast<ColumnShape&>(some) = *this;
    if (fNarrow) return some;
    some.code8V.resize(rowV.size());
    for (size_t i = 0; i < rowV.size(); ++i) {
        some.code8V[i] = code8V[static_cast<size_t>(rowV[i])];
    }
    some.ranks = ranks.Of(rowV);
    return some;
}

BinnedColumns::BinnedColumns(const BinnedColumns& whole, const Matrix& matrix,
                             const std::vector<int>& rowV, WorkerPool& pool)
    : values(matrix),
      maxBins(whole.maxBins),
      fNan(whole.fNan),
      numCellsV(whole.numCellsV),
      columnV(whole.columnV.size()),
      groupV(whole.groupV.size()),
      wideV(whole.wideV),
      varyingV(whole.varyingV) {
    if (fNan) return;
    constexpr int kRowCodes = 2;
    const int numGroups = static_cast<int>(groupV.size());
    pool.For(kRowCodes + NumColumns() + numGroups, [&](int i, int) {
        if (i == 0) return groupRows.Take(whole.groupRows, rowV);
        if (i == 1) return wideRows.Take(whole.wideRows, rowV);
        i -= kRowCodes;
        if (i < NumColumns()) {
            columnV[static_cast<size_t>(i)] = whole.At(i).Of(rowV);
        } else {
            const size_t group = static_cast<size_t>(i - NumColumns());
            groupV[group] = whole.groupV[group].Of(rowV);
        }
    });
}

// Returns false if the column holds a NaN.
bool BinnedColumns::CodeColumn(int column, int rankBits, CodingBuffers& buffers) {
    ValueOrder& sorted = buffers.sorted;
    DistinctValues& distinct = buffers.distinct;
    Column& c = columnV[static_cast<size_t>(column)];
    if (values.IsConstant(column)) {
        MakeConstant(values.At(0, column), c);
        return true;
    }
    if (!sorted.Load(values, column)) return false;
    distinct.Find(sorted);
    if (distinct.Count() > static_cast<size_t>(maxBins)) {
        c.binFirstRankV = MakeBins(distinct, sorted.Count(), maxBins);
    }
    // Heavy values may have led to more bins than there are values.
    c.fExact = c.binFirstRankV.empty() || distinct.Count() < c.binFirstRankV.size();
    c.fNarrow = c.fExact && distinct.Count() <= kNarrowBins;
    if (c.fExact) {
        c.binFirstRankV.resize(distinct.Count() + 1);
        std::iota(c.binFirstRankV.begin(), c.binFirstRankV.end(), 0u);
    }
    c.numBins = static_cast<int>(c.binFirstRankV.size()) - 1;
    DescribeBins(distinct, c);
    if (!c.fNarrow) c.frequentBin = FindFrequentBin(distinct, sorted.Count(), c);
    AssignRanks(sorted, distinct, rankBits, c);
    return true;
}

// Moves the bins of the narrow columns to groups.
void BinnedColumns::GroupNarrowColumns(WorkerPool& pool) {
    std::vector<NarrowColumn> narrowV;
    for (int column = 0; column < NumColumns(); ++column) {
        Column& c = columnV[static_cast<size_t>(column)];
        if (!c.IsConstant()) varyingV.push_back(column);
        if (!c.fNarrow || c.IsConstant()) continue;
        narrowV.push_back({column, c.numBins, std::move(c.code8V)});
        c.code8V = LargeArray<uint8_t>();
    }
    groupV = GroupColumns(std::move(narrowV), pool);
    for (size_t g = 0; g < groupV.size(); ++g) {
        for (size_t m = 0; m < groupV[g].columnV.size(); ++m) {
            Column& c = columnV[static_cast<size_t>(groupV[g].columnV[m])];
            c.codeIndex = static_cast<int>(g);
            c.member = static_cast<int>(m);
        }
    }
}

// Assigns each wide column its index in the row codes, and each column its cells in a histogram of
// each shift.
void BinnedColumns::LayOutColumns() {
    for (int column = 0; column < NumColumns(); ++column) {
        Column& c = columnV[static_cast<size_t>(column)];
        if (c.fNarrow) continue;
        c.codeIndex = static_cast<int>(wideV.size());
        wideV.push_back(column);
    }
    for (int shift = 0; shift == 0 || (maxBins >> shift) > 0; ++shift) {
        size_t numCells = 0;
        for (Column& c : columnV) {
            c.firstCellV.push_back(numCells);
            numCells += static_cast<size_t>(c.NumBins(shift));
        }
        numCellsV.push_back(numCells);
    }
    groupRows.stride = (groupV.size() + 15) / 16 * 16;
    wideRows.stride = (wideV.size() + 7) / 8 * 8;
}

// Codes of groups are copied; bins of wide columns are looked up from the ranks. Rows past the last
// are not written: LargeArray zeroes them.
void BinnedColumns::FillRowCodes(WorkerPool& pool) {
    groupRows.Resize(static_cast<size_t>(NumRows()));
    wideRows.Resize(static_cast<size_t>(NumRows()));
    std::vector<BinFinder> finderV;
    for (const int column : wideV) finderV.emplace_back(At(column));
    const Chunks chunks = {NumRows(), 4096};
    pool.For(chunks.Num(), [&](int chunk, int) {
        const size_t end = static_cast<size_t>(chunks.End(chunk));
        for (size_t row = static_cast<size_t>(chunks.Begin(chunk)); row < end; ++row) {
            uint8_t* codes = groupRows.codeV.data() + row * groupRows.stride;
            for (const ColumnGroup& group : groupV) *codes++ = group.codeV[row];
            uint16_t* wide = wideRows.codeV.data() + row * wideRows.stride;
            for (size_t k = 0; k < wideV.size(); ++k) {
                const Column& column = At(wideV[k]);
                wide[k] = finderV[k].Find(column.ranks.At(row, column.code8V[row]));
            }
        }
    });
}

// FNV-1a over the ranks, row by row. Columns are not grouped yet.
uint64_t BinnedColumns::HashRanks(const Column& c) const {
    uint64_t hash = 1469598103934665603u;
    const auto mix = [&hash](uint64_t rank) { hash = (hash ^ rank) * 1099511628211u; };
    for (size_t row = 0; row < c.code8V.size(); ++row) {
        mix(c.fNarrow ? c.code8V[row] : c.ranks.At(row, c.code8V[row]));
    }
    return hash;
}

// Columns with equal ranks sort their rows alike, so in any node their splits score the same to the
// last bit. If both are all separable, they have the same splits, too.
void BinnedColumns::FindDuplicates(const std::vector<uint64_t>& hashV) {
    std::unordered_map<uint64_t, std::vector<int>> byHash;
    // Equal hashes only nominate duplicates; the comparison decides.
    for (int column = 0; column < NumColumns(); ++column) {
        Column& c = columnV[static_cast<size_t>(column)];
        c.firstDuplicate = column;
        if (!c.fAllSeparable) continue;
        std::vector<int>& sameV = byHash[hashV[static_cast<size_t>(column)]];
        for (const int other : sameV) {
            if (At(other).code8V == c.code8V && At(other).ranks == c.ranks) {
                c.firstDuplicate = other;
                break;
            }
        }
        if (c.firstDuplicate == column) sameV.push_back(column);
    }
}

}  // namespace engine
}  // namespace sylvora

// Coding of the training data; see Columns.h.
#include "Columns.h"

#include <algorithm>
#include <cmath>
#include <unordered_map>

#include "ValueOrder.h"

namespace sylvora {
namespace engine {
namespace {

constexpr int kNarrowBins = 256;        // what a byte can tell apart
constexpr int kFewestBins = 16;         // however many columns there are
constexpr size_t kMostCells = 1 << 19;  // of a node's histogram, for wide data
constexpr size_t kMostHeavy = 32;       // values that one row in so many shares have their own bin
constexpr size_t kPlaceBins = 32;       // bins, own and empty, that such a value takes

// The row number at which bin `bin` of `numBins` ideally begins.
double IdealBegin(int bin, int numBins, double numRows) {
    const double share = static_cast<double>(bin) / numBins;
    const double tail = std::min(share, 1.0 - share);
    const double begin = 2.0 * tail * tail * numRows;
    return share <= 0.5 ? begin : numRows - begin;
}

// One distinct value of a column, with the place in sorted order where its rows begin.
struct Distinct {
    double value;
    size_t begin;
};

std::vector<Distinct> FindDistinct(const ValueOrder& sorted, const double* const* rowV,
                                   int column) {
    std::vector<Distinct> distinctV;
    for (size_t i = 0; i < sorted.Count(); ++i) {
        if (i > 0 && sorted.IsEqualToPrevious(i)) continue;
        distinctV.push_back({rowV[sorted.Row(i)][column], i});
    }
    return distinctV;
}

// The first rank of each bin, then the number of ranks. A value that many rows share, such as that
// of an absent feature, has a bin of its own, and stays alone when bins are joined to coarser ones:
// empty bins fill up its place.
std::vector<uint32_t> CutBins(const std::vector<Distinct>& distinctV, size_t numRows, int numBins) {
    std::vector<uint32_t> firstV = {0};
    const auto firstRank = [](size_t rank) { return static_cast<uint32_t>(rank); };
    const double rows = static_cast<double>(numRows);
    int bin = 1;
    bool fHeavyBefore = false;
    for (size_t r = 0; r < distinctV.size(); ++r) {
        const size_t begin = distinctV[r].begin;
        const size_t end = r + 1 < distinctV.size() ? distinctV[r + 1].begin : numRows;
        const bool fHeavy = (end - begin) * kMostHeavy >= numRows;
        const bool fAlone = fHeavy || fHeavyBefore;
        const bool fDue = bin < numBins &&
                          IdealBegin(bin, numBins, rows) <= static_cast<double>(begin);
        fHeavyBefore = fHeavy;
        if (r == 0 || !(fDue || fAlone)) continue;
        if (!IsSeparable(distinctV[r - 1].value, distinctV[r].value)) continue;
        while (fAlone && firstV.size() % kPlaceBins != 0) firstV.push_back(firstRank(r));
        firstV.push_back(firstRank(r));
        while (bin < numBins && IdealBegin(bin, numBins, rows) <= static_cast<double>(begin)) ++bin;
    }
    firstV.push_back(static_cast<uint32_t>(distinctV.size()));
    return firstV;
}

int ChooseMostBins(int numRows, int numColumns, int mostBins) {
    const double wanted = 2.0 * std::sqrt(static_cast<double>(numRows));
    const size_t room = kMostCells / static_cast<size_t>(std::max(numColumns, 1));
    const double bound = std::min(std::max(wanted, 1.0 * kNarrowBins),
                                  std::max(static_cast<double>(room), 1.0 * kFewestBins));
    return std::min(static_cast<int>(bound), mostBins);
}

}  // namespace

Columns::Columns(const double* const* rows, int numRow, int numColumn, int mostBins,
                 WorkerPool& pool)
    : rowV(rows),
      numRows(numRow),
      maxBins(ChooseMostBins(numRow, numColumn, mostBins)),
      columnV(static_cast<size_t>(numColumn)) {
    std::vector<std::vector<uint16_t>> binVV(static_cast<size_t>(numColumn));
    std::atomic<bool> fFoundNan{false};
    pool.For(numColumn, [&](int column, int) {
        if (!CodeColumn(column, binVV[static_cast<size_t>(column)])) fFoundNan = true;
    });
    fNan = fFoundNan;
    if (fNan) return;
    PlaceColumns();
    wideRows.codeV.assign(static_cast<size_t>(numRows) * wideRows.stride, 0);
    constexpr int kChunk = 4096;
    pool.For((numRows + kChunk - 1) / kChunk, [&](int chunk, int) {
        const int end = std::min(numRows, (chunk + 1) * kChunk);
        for (int row = chunk * kChunk; row < end; ++row) {
            uint16_t* codes = wideRows.codeV.data() + static_cast<size_t>(row) * wideRows.stride;
            for (const int column : wideV) {
                *codes++ = binVV[static_cast<size_t>(column)][static_cast<size_t>(row)];
            }
        }
    });
    FillRowCodes(pool);
    FindTwins();
}

// False when the column holds a NaN.
bool Columns::CodeColumn(int column, std::vector<uint16_t>& binV) {
    ValueOrder sorted;
    if (!sorted.Load(rowV, numRows, column)) return false;
    const std::vector<Distinct> distinctV = FindDistinct(sorted, rowV, column);
    Column& c = columnV[static_cast<size_t>(column)];
    c.fExact = distinctV.size() <= static_cast<size_t>(maxBins);
    c.fNarrow = c.fExact && distinctV.size() <= kNarrowBins;
    c.fClean = true;
    for (size_t r = 1; r < distinctV.size(); ++r) {
        c.fClean = c.fClean && IsSeparable(distinctV[r - 1].value, distinctV[r].value);
    }
    if (c.fExact) {
        for (size_t r = 0; r <= distinctV.size(); ++r) {
            c.binFirstRankV.push_back(static_cast<uint32_t>(r));
            if (r < distinctV.size()) c.binValueV.push_back(distinctV[r].value);
        }
    } else {
        c.binFirstRankV = CutBins(distinctV, sorted.Count(), maxBins);
    }
    c.numBins = static_cast<int>(c.binFirstRankV.size()) - 1;
    c.fCleanBinV.assign(static_cast<size_t>(c.numBins), 1);
    for (size_t b = 0; b + 1 < c.binFirstRankV.size(); ++b) {
        for (size_t r = c.binFirstRankV[b] + 1; r < c.binFirstRankV[b + 1]; ++r) {
            if (!IsSeparable(distinctV[r - 1].value, distinctV[r].value)) c.fCleanBinV[b] = 0;
        }
    }
    if (c.fNarrow) {
        c.codeV.resize(sorted.Count());
    } else {
        c.rankV.resize(sorted.Count());
        binV.resize(sorted.Count());
    }
    uint16_t bin = 0;
    for (size_t r = 0; r < distinctV.size(); ++r) {
        while (c.binFirstRankV[bin + 1u] == r) ++bin;
        const size_t end = r + 1 < distinctV.size() ? distinctV[r + 1].begin : sorted.Count();
        for (size_t i = distinctV[r].begin; i < end; ++i) {
            const size_t row = sorted.Row(i);
            if (c.fNarrow) {
                c.codeV[row] = static_cast<uint8_t>(r);
            } else {
                c.rankV[row] = static_cast<uint32_t>(r);
                binV[row] = bin;
            }
        }
    }
    return true;
}

void Columns::PlaceColumns() {
    for (int column = 0; column < NumColumns(); ++column) {
        Column& c = columnV[static_cast<size_t>(column)];
        std::vector<int>& places = c.fNarrow ? narrowV : wideV;
        c.place = static_cast<int>(places.size());
        places.push_back(column);
        c.firstCell = numCells;
        numCells += static_cast<size_t>(c.numBins);
    }
    narrowRows.stride = (narrowV.size() + 15) / 16 * 16;
    wideRows.stride = (wideV.size() + 7) / 8 * 8;
}

void Columns::FillRowCodes(WorkerPool& pool) {
    narrowRows.codeV.assign(static_cast<size_t>(numRows) * narrowRows.stride, 0);
    constexpr int kChunk = 4096;
    pool.For((numRows + kChunk - 1) / kChunk, [&](int chunk, int) {
        const int end = std::min(numRows, (chunk + 1) * kChunk);
        for (int row = chunk * kChunk; row < end; ++row) {
            uint8_t* codes = narrowRows.codeV.data() + static_cast<size_t>(row) * narrowRows.stride;
            for (const int column : narrowV) *codes++ = At(column).codeV[static_cast<size_t>(row)];
        }
    });
}

// Columns of equal ranks sort equally, so a node scores their cuts equally to the last bit; if both
// are clean, the cuts are the same too.
void Columns::FindTwins() {
    std::unordered_map<uint64_t, std::vector<int>> byHash;
    for (int column = 0; column < NumColumns(); ++column) {
        Column& c = columnV[static_cast<size_t>(column)];
        c.twin = column;
        if (!c.fClean) continue;
        uint64_t hash = 1469598103934665603u;
        const auto mix = [&hash](uint64_t rank) { hash = (hash ^ rank) * 1099511628211u; };
        for (const uint8_t rank : c.codeV) mix(rank);
        for (const uint32_t rank : c.rankV) mix(rank);
        std::vector<int>& sameV = byHash[hash];
        for (const int other : sameV) {
            if (At(other).codeV == c.codeV && At(other).rankV == c.rankV) {
                c.twin = other;
                break;
            }
        }
        if (c.twin == column) sameV.push_back(column);
    }
}

}  // namespace engine
}  // namespace sylvora

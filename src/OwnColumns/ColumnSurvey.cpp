// Reads the columns of a share for their kinds of values; see ColumnSurvey.h.
#include "ColumnSurvey.h"

#include <algorithm>
#include <cfloat>
#include <cmath>
#include <utility>

#include "god/Report.h"

namespace sylvora {
namespace {

constexpr std::int64_t kSampledRows = 4096;
constexpr int kTileCells = 1 << 18;          // read at once, if they are more than a row
constexpr size_t kExchangedBytes = 1 << 20;  // from each rank at once

// Values beyond the range of floats are compared with 0, because converting them is undefined.
bool IsFloat(double value) {
    const double within = std::fabs(value) <= static_cast<double>(FLT_MAX) ? value : 0.0;
    return static_cast<double>(static_cast<float>(within)) == value;
}

// Collective: replaces each element of `elementV` by join(elements of all ranks, in rank order).
template <typename Element, typename Join>
void JoinEach(Ranks& ranks, std::vector<Element>& elementV, const Join& join) {
    const size_t numRanks = static_cast<size_t>(ranks.Size());
    const size_t most = std::max(kExchangedBytes / sizeof(Element) / numRanks, size_t{1});
    for (size_t begin = 0; begin < elementV.size(); begin += most) {
        const size_t count = std::min(most, elementV.size() - begin);
        const auto first = elementV.begin() + static_cast<std::ptrdiff_t>(begin);
        const std::vector<Element> allV = ranks.GatherEach(
            std::vector<Element>(first, first + static_cast<std::ptrdiff_t>(count)));
        for (size_t i = 0; i < count; ++i) {
            Element joined = allV[i];
            for (size_t r = 1; r < numRanks; ++r) join(joined, allV[r * count + i]);
            elementV[begin + i] = joined;
        }
    }
}

}  // namespace

ColumnSurvey::ColumnSurvey(RowSource& source, int columnCount, std::int64_t firstRow,
                           std::int64_t numAll)
    : numColumns(columnCount),
      fNanRefused(source.IsNanRefused()),
      fInfiniteRefused(source.IsInfiniteRefused()),
      stride(std::max(numAll / kSampledRows, std::int64_t{1})),
      fWideV(static_cast<size_t>(numColumns)),
      sketchV(static_cast<size_t>(numColumns)) {
    const int numTile = std::max(1, std::min(source.NumRows(), kTileCells / numColumns));
    const size_t width = static_cast<size_t>(numColumns);
    std::vector<double> valueV(static_cast<size_t>(numTile) * width);
    for (int begin = 0; begin < source.NumRows();) {
        const int end = begin + std::min(numTile, source.NumRows() - begin);
        source.Read(begin, end, valueV.data());
        for (const double* row = valueV.data(); begin < end; ++begin, row += width) {
            TakeRow(firstRow + begin, row);
        }
    }
}

void ColumnSurvey::TakeRow(std::int64_t row, const double* values) {
    bool fAllFinite = true;
    for (int c = 0; c < numColumns; ++c) {
        fWideV[static_cast<size_t>(c)] |= static_cast<char>(!IsFloat(values[c]));
        fAllFinite &= std::isfinite(values[c]);
    }
    if (!fAllFinite) TakeUnusable(row, values);
    for (int c = 0; row % stride == 0 && c < numColumns; ++c) {
        sketchV[static_cast<size_t>(c)].Add(values[c]);
    }
}

void ColumnSurvey::TakeUnusable(std::int64_t row, const double* values) {
    for (int c = 0; c < numColumns; ++c) {
        const bool fNan = std::isnan(values[c]);
        if (!fNan && !std::isinf(values[c])) continue;
        const bool fRefused = fNan ? fNanRefused : fInfiniteRefused;
        if (fRefused && firstRefused.row < 0) firstRefused = {row, c, fNan};
        const bool fFirst = firstInfinite.row < 0 || c < firstInfinite.column;
        if (!fRefused && fFirst) firstInfinite = {row, c, fNan};
    }
}

// Refused values come first, because DataSet::Make looks for them before a training reads the
// values.
std::string ColumnSurvey::Complaint(Ranks& ranks) const {
    for (const Cell& refused : ranks.Gather(firstRefused)) {
        if (refused.row < 0) continue;
        return Text("ERROR: The data block has ", refused.fNan ? "a NaN" : "an infinite value",
                    " in row ", refused.row, ", column ", refused.column, "!\n");
    }
    Cell first;
    for (const Cell& infinite : ranks.Gather(firstInfinite)) {
        if (infinite.row < 0) continue;
        if (first.row < 0 || infinite.column < first.column) first = infinite;
    }
    if (first.row < 0) return "";
    return Text("ERROR: The value of row ", first.row, ", column ", first.column,
                " is infinite: training needs finite values!\n");
}

void ColumnSurvey::Join(Ranks& ranks) {
    JoinEach(ranks, fWideV, [](char& fWide, char fOther) { fWide |= fOther; });
    JoinEach(ranks, sketchV, [](ValueSketch& all, const ValueSketch& other) { all.Add(other); });
}

std::vector<int> ColumnSurvey::Costs() const {
    std::vector<int> costV;
    for (const ValueSketch& sketch : sketchV) costV.push_back(CostOfColumn(sketch.NumSet()));
    return costV;
}

}  // namespace sylvora

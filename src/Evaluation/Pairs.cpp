// Counting ordered pairs; see Pairs.h.
#include "Pairs.h"

#include <algorithm>

#include "engine/train/KeySort.h"

namespace sylvora {
namespace {

// Counts per rank. Adding an item and the prefix sum take logarithmic time (P. Fenwick, 1994: the
// binary indexed tree).
class RankCounts {
  public:
    explicit RankCounts(size_t numRanks) : sumV(numRanks + 1, 0.0) {}

    void Add(size_t rank) {
        for (size_t i = rank + 1; i < sumV.size(); i += i & (~i + 1)) sumV[i] += 1.0;
    }
    // The number of items with a rank below `rank`.
    double Below(size_t rank) const {
        double sum = 0.0;
        for (size_t i = rank; i > 0; i -= i & (~i + 1)) sum += sumV[i];
        return sum;
    }

  private:
    std::vector<double> sumV;
};

// A row among others that are sorted by score: the high half of its OrderedKey, its number, and
// whether it has the larger label.
uint64_t RowKey(double score, size_t row, bool fHigh) {
    return (OrderedKey(score) >> 32 << 32) | (row << 1) | static_cast<uint64_t>(fHigh);
}
size_t RowOf(uint64_t key) {
    return static_cast<uint32_t>(key) >> 1;
}
bool IsHigh(uint64_t key) {
    return (key & 1) != 0;
}

// Counts pairs of rows with the smaller and the larger label, in ascending order of scores.
struct PairSum {
    double numLow = 0.0, numHigh = 0.0;  // rows so far
    double twice = 0.0;                  // 2 for each pair in order, 1 for each with equal scores

    // Adds rows of equal scores.
    void Add(double low, double high) {
        twice += high * (2.0 * numLow + low);
        numLow += low;
        numHigh += high;
    }
};

// Adds rows whose keys have the same high half, which may differ in the other one.
void AddRank(uint64_t* begin, uint64_t* end, const double* scoreV, PairSum& sum) {
    const auto whole = [scoreV](uint64_t key) { return OrderedKey(scoreV[RowOf(key)]); };
    const uint64_t first = whole(*begin);
    if (!std::all_of(begin, end, [&](uint64_t key) { return whole(key) == first; })) {
        std::sort(begin, end, [&](uint64_t a, uint64_t b) { return whole(a) < whole(b); });
    }
    while (begin != end) {
        const uint64_t score = whole(*begin);
        double low = 0.0, high = 0.0;
        for (; begin != end && whole(*begin) == score; ++begin) {
            high += IsHigh(*begin);
            low += !IsHigh(*begin);
        }
        sum.Add(low, high);
    }
}

}  // namespace

// Loop invariant: at each run of equal labels, `counts` holds the score ranks of exactly the rows
// with smaller labels.
PairCount CountPairs(std::vector<ScoredRow> group) {
    typedef std::vector<ScoredRow>::iterator Iterator;
    const auto byScore = [](const ScoredRow& a, const ScoredRow& b) {
        return IsLower(a.score, b.score);
    };
    std::vector<ScoredRow> ranked = group;
    std::sort(ranked.begin(), ranked.end(), byScore);
    const auto rankOf = [&ranked](Iterator position) {
        return static_cast<size_t>(position - ranked.begin());
    };
    std::sort(group.begin(), group.end(),
              [](const ScoredRow& a, const ScoredRow& b) { return a.label < b.label; });
    RankCounts counts(group.size());
    PairCount pairs;
    for (auto begin = group.begin(), end = begin; begin != group.end(); begin = end) {
        const double numSmaller = static_cast<double>(begin - group.begin());
        for (; end != group.end() && end->label == begin->label; ++end) {
            const auto equal = std::equal_range(ranked.begin(), ranked.end(), *end, byScore);
            const double below = counts.Below(rankOf(equal.first));
            pairs.ordered += 0.5 * (below + counts.Below(rankOf(equal.second)));
            pairs.all += numSmaller;
        }
        for (auto row = begin; row != end; ++row) {
            counts.Add(rankOf(std::lower_bound(ranked.begin(), ranked.end(), *row, byScore)));
        }
    }
    return pairs;
}

bool HasTwoValues(const double* labelV, size_t count) {
    const double* const end = labelV + count;
    const double* const other =
        std::find_if(labelV, end, [labelV](double label) { return label != *labelV; });
    return other != end && std::all_of(other, end, [labelV, other](double label) {
               return label == *labelV || label == *other;
           });
}

// Rows are sorted by the high halves of their keys, which nearly always decide.
double AreaUnderCurve(const ScoredRows& rows) {
    const double larger = *std::max_element(rows.labelV, rows.labelV + rows.count);
    std::vector<uint64_t> keyV(rows.count), other;
    for (size_t i = 0; i < rows.count; ++i) {
        keyV[i] = RowKey(rows.scoreV[i], i, rows.labelV[i] == larger);
    }
    engine::SortKeys(keyV, other);
    PairSum sum;
    uint64_t* const last = keyV.data() + rows.count;
    for (uint64_t *begin = keyV.data(), *end = begin; begin != last; begin = end) {
        const uint32_t rank = engine::RankOf(*begin);
        do ++end;
        while (end != last && engine::RankOf(*end) == rank);
        if (end - begin == 1) {
            sum.Add(!IsHigh(*begin), IsHigh(*begin));
        } else {
            AddRank(begin, end, rows.scoreV, sum);
        }
    }
    return Share(0.5 * sum.twice, sum.numLow * sum.numHigh);
}

}  // namespace sylvora

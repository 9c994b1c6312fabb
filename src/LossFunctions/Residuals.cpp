// The losses of a residual; see Residuals.h.
#include "Residuals.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>
#include <cstdint>

namespace sylvora {
namespace {

typedef QuantileBuffers::Entry Entry;

double ValueOf(double value) {
    return value;
}
double ValueOf(const Entry& entry) {
    return entry.value;
}
int64_t WeightOf(double) {
    return 1;
}
int64_t WeightOf(const Entry& entry) {
    return entry.weight;
}
bool IsSmaller(const Entry& a, const Entry& b) {
    return a.value < b.value;
}

// A span of values, both ends included.
struct Bracket {
    double low;
    double high;
};

// A narrow bracket that very likely has the quantile `q` and its neighbours: values of a sorted
// sample, spread evenly over the rows, some standard deviations of the rank to either side. Any
// bracket gives the same result in the end; weights are ignored.
Bracket Guess(const WeightedValues& values, double q) {
    constexpr int kSample = 1024;
    constexpr double kMargin = 4.0 * 16.0;  // the deviation is at most sqrt(1024) / 2 = 16 ranks
    std::array<double, kSample> sampleV;
    for (int i = 0; i < kSample; ++i) {
        sampleV[static_cast<size_t>(i)] = values.valueV[int64_t{values.count} * i / kSample];
    }
    std::sort(sampleV.begin(), sampleV.end());
    const int low = static_cast<int>(q * kSample - kMargin);
    const int high = static_cast<int>(q * kSample + kMargin);
    const double infinity = HUGE_VAL;
    return {low < 0 ? -infinity : sampleV[static_cast<size_t>(low)],
            high >= kSample ? infinity : sampleV[static_cast<size_t>(high)]};
}

// Copies the values in the bracket to foundV and returns the weight of those below it.
int64_t Collect(const WeightedValues& values, const Bracket& bracket, std::vector<double>& foundV) {
    foundV.resize(static_cast<size_t>(values.count) + 1);
    int64_t below = 0;
    size_t num = 0;
    // Without branches: each value is written, but kept only if it is in the bracket.
    for (int i = 0; i < values.count; ++i) {
        const double value = values.valueV[i];
        foundV[num] = value;
        num += static_cast<size_t>(value >= bracket.low) & (value <= bracket.high);
        below += value < bracket.low;
    }
    foundV.resize(num);
    return below;
}

int64_t Collect(const WeightedValues& values, const Bracket& bracket, std::vector<Entry>& foundV) {
    foundV.clear();
    int64_t below = 0;
    for (int i = 0; i < values.count; ++i) {
        const Entry entry = {values.valueV[i], values.weightV[i]};
        if (entry.value < bracket.low) below += entry.weight;
        if (entry.value >= bracket.low && entry.value <= bracket.high) foundV.push_back(entry);
    }
    return below;
}

// The first of the entries, in ascending order, up to which the weight exceeds `target`; those
// before it in foundV are then at most as large. `below` is the weight of smaller values that are
// not in foundV; the weight of the entries before the result is added to it.
size_t Locate(std::vector<double>& foundV, double target, int64_t& below) {
    const int64_t rank = static_cast<int64_t>(target) - below;
    std::nth_element(foundV.begin(), foundV.begin() + rank, foundV.end());
    below += rank;
    return static_cast<size_t>(rank);
}

size_t Locate(std::vector<Entry>& foundV, double target, int64_t& below) {
    // Invariant: the entries before `begin` are at most those in [begin, end), and those at most
    // the others; the weight before `begin` does not exceed the target, the weight before `end`
    // does.
    auto begin = foundV.begin();
    for (auto end = foundV.end(); end - begin > 1;) {
        const auto middle = begin + (end - begin) / 2;
        std::nth_element(begin, middle, end, IsSmaller);
        int64_t left = below;
        for (auto at = begin; at != middle; ++at) left += at->weight;
        if (static_cast<double>(left) > target) {
            end = middle;
        } else {
            below = left;
            begin = middle;
        }
    }
    return static_cast<size_t>(begin - foundV.begin());
}

// The quantile, if foundV has it and all values next to it. `below` is the weight of the smaller
// values, `target` the product of the quantile and the weight of all. Returns false if it may be
// elsewhere. Reorders foundV.
template <typename Found>
bool Select(std::vector<Found>& foundV, int64_t below, double target, double& quantile) {
    int64_t upTo = below;
    for (const Found& found : foundV) upTo += WeightOf(found);
    // If the values below weigh exactly the target, the mean needs one of them.
    if (static_cast<double>(below) >= target && below > 0) return false;
    if (static_cast<double>(upTo) <= target) return false;
    const auto at = foundV.begin() + static_cast<std::ptrdiff_t>(Locate(foundV, target, below));
    quantile = ValueOf(*at);
    if (static_cast<double>(below) < target || at == foundV.begin()) return true;
    double smaller = ValueOf(foundV[0]);
    for (auto before = foundV.begin(); before != at; ++before) {
        smaller = std::max(smaller, ValueOf(*before));
    }
    // Halved first, so that the sum cannot overflow.
    if (smaller < quantile) quantile = 0.5 * smaller + 0.5 * quantile;
    return true;
}

template <typename Found>
double QuantileWith(const WeightedValues& values, double q, double target,
                    std::vector<Found>& foundV) {
    constexpr int kGuessed = 8192;  // values from which on a bracket pays
    double quantile = 0.0;
    if (values.count >= kGuessed) {
        const int64_t below = Collect(values, Guess(values, q), foundV);
        if (Select(foundV, below, target, quantile)) return quantile;
    }
    Collect(values, {-HUGE_VAL, HUGE_VAL}, foundV);
    // The product may be rounded up to the whole weight; the largest value is then the quantile.
    if (Select(foundV, 0, target, quantile)) return quantile;
    return *std::max_element(values.valueV, values.valueV + values.count);
}

}  // namespace

double AbsoluteGradient(double label, double prediction) {
    return (label > prediction) - (label < prediction);
}

double QuantileGradient(double label, double prediction, double quantile) {
    if (label > prediction) return quantile;
    return label < prediction ? quantile - 1 : 0.0;
}

double HuberGradient(double label, double prediction, double delta) {
    return std::clamp(label - prediction, -delta, delta);
}

double QuantileOf(const WeightedValues& values, double q, QuantileBuffers& buffers) {
    if (values.count == 0) return 0.0;
    int64_t total = values.weightV == nullptr ? values.count : 0;
    bool fFinite = true;
    for (int i = 0; i < values.count; ++i) {
        fFinite &= std::isfinite(values.valueV[i]);
        if (values.weightV != nullptr) total += values.weightV[i];
    }
    if (!fFinite) return NAN;  // no order to select from
    const double target = std::max(0.0, q * static_cast<double>(total));
    return values.weightV == nullptr ? QuantileWith(values, q, target, buffers.valueV)
                                     : QuantileWith(values, q, target, buffers.entryV);
}

double HuberCentre(const WeightedValues& values, double delta, QuantileBuffers& buffers) {
    if (values.count == 0) return 0.0;
    const double median = QuantileOf(values, 0.5, buffers);
    double sum = 0.0;
    int64_t total = 0;
    for (int i = 0; i < values.count; ++i) {
        const int weight = values.weightV == nullptr ? 1 : values.weightV[i];
        sum += weight * std::clamp(values.valueV[i] - median, -delta, delta);
        total += weight;
    }
    return median + sum / static_cast<double>(total);
}

}  // namespace sylvora

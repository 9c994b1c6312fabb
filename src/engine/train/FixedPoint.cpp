// Gradients as integers; see FixedPoint.h.
//
// The bounds used below, for n rows with |g| < 2^e and n < 2^f:
//   n 2^e 2^k <= 2^61   sums of q fit an int64
//   2^e 2^k <= 2^49     RoundToInt is exact (it needs |x| < 2^51)
//   n 2^e 2^k <= 2^52   (exact) each partial sum is a multiple of 2^-k and a double
//
// The packed word has 64 bits. Weights that add up to an int take at most 31 of them, so the sums
// of |g| have at least 33 bits: four units for each of 2^31 rows.
#include "FixedPoint.h"

#include <algorithm>
#include <atomic>
#include <climits>
#include <cmath>
#include <vector>

#include "base/Chunks.h"

namespace sylvora {
namespace engine {
namespace {

// The error bounds are relative to the gradients and ignore underflow. Outside this range the
// reference implementation takes over.
constexpr double kSmallest = 1e-100;
constexpr double kLargest = 1e100;

constexpr int kChunkRows = 16384;
constexpr int kWordBits = 64;

// The ranges of gradients and weights over rows [begin, end).
struct Extent {
    bool fInRange = true;
    double largestAbs = 0.0;
    double largestRatio = 0.0;  // |gradient| / weight
    double sumAbs = 0.0;
    double totalWeight = 0.0;

    Extent() = default;
    Extent(const double* gradV, const int* weightV, int begin, int end) {
        // fInRange is false for NaN and infinity, too: the comparison is written so.
        for (int i = begin; i < end; ++i) {
            const double size = std::fabs(gradV[i]);
            const double weight = weightV != nullptr ? weightV[i] : 1;
            fInRange = fInRange && size <= kLargest && weight >= 1;
            largestAbs = std::max(largestAbs, size);
            sumAbs += size;
            if (weightV != nullptr) largestRatio = std::max(largestRatio, size / weight);
            totalWeight += weight;
        }
        if (weightV == nullptr) largestRatio = largestAbs;
    }

    // Merges two ranges. Weights are integers, so their sum does not depend on the order. The sum
    // of sizes does, in its last bits.
    void Join(const Extent& other) {
        fInRange = fInRange && other.fInRange;
        largestAbs = std::max(largestAbs, other.largestAbs);
        largestRatio = std::max(largestRatio, other.largestRatio);
        sumAbs += other.sumAbs;
        totalWeight += other.totalWeight;
    }
};

// The chunks are merged in order, so that the result does not depend on the workers.
Extent ExtentOf(const double* gradV, const int* weightV, int num, WorkerPool& pool) {
    const Chunks chunks = {num, kChunkRows};
    std::vector<Extent> extentV(static_cast<size_t>(chunks.Num()));
    pool.For(chunks.Num(), [&](int chunk, int) {
        extentV[static_cast<size_t>(chunk)] =
            Extent(gradV, weightV, chunks.Begin(chunk), chunks.End(chunk));
    });
    Extent all;
    for (const Extent& extent : extentV) all.Join(extent);
    return all;
}

// Whether all gradients are multiples of 2^-power. Compares after scaling back, because a tiny
// gradient would vanish when scaled up and rounded.
bool AllMultiples(const double* gradV, int num, int power, WorkerPool& pool) {
    const double scale = std::ldexp(1.0, power);
    const double unit = std::ldexp(1.0, -power);
    const Chunks chunks = {num, kChunkRows};
    std::atomic<bool> fAll{true};
    pool.For(chunks.Num(), [&](int chunk, int) {
        // fAll is shared: a worker stops early once another has found a counterexample.
        for (int i = chunks.Begin(chunk); i < chunks.End(chunk) && fAll; ++i) {
            const int64_t q = FixedPoint::RoundToInt(gradV[i] * scale);
            if (static_cast<double>(q) * unit != gradV[i]) fAll = false;
        }
    });
    return fAll;
}

// The power of two that is above a value, as std::frexp has it.
int ExponentAbove(double value) {
    int exponent = 0;
    std::frexp(value, &exponent);
    return exponent;
}

// The largest power of two to scale sizes by, such that their sum over all rows has `bits` bits.
// ToCell rounds to the nearest integer and adds one: at most 1.5 per row. The margin covers the
// rounding of sumAbs.
int PowerOfSizes(double sumAbs, double numRows, int bits) {
    const double room = std::ldexp(1.0, bits) - 1.5 * numRows;
    return ExponentAbove(room / (sumAbs * (1.0 + 1e-9))) - 1;
}

}  // namespace

// The steps: find the ranges, choose k, then lay out the packed word. Every early return leaves
// fUsable false.
FixedPoint FixedPoint::Fit(const double* gradV, const int* weightV, int num, WorkerPool& pool,
                           int leastRows) {
    FixedPoint fit;
    const Extent extent = ExtentOf(gradV, weightV, num, pool);
    const double largestAbs = extent.largestAbs;
    if (!extent.fInRange || num == 0 || (largestAbs != 0.0 && largestAbs < kSmallest)) return fit;
    if (extent.totalWeight > INT_MAX) return fit;  // a node's weights are summed as int
    fit.fUsable = true;
    const double numRows = std::max(num, leastRows);
    const double share = num / numRows;
    const int e = largestAbs > 0.0 ? ExponentAbove(largestAbs) : 0;
    const int f = ExponentAbove(numRows);
    const int exactPower = std::min(52 - e - f, 49 - e);
    fit.fExact = AllMultiples(gradV, num, exactPower, pool);
    const int k = fit.fExact ? exactPower : std::min(61 - e - f, 49 - e);
    fit.scale = std::ldexp(1.0, k);
    fit.unit = std::ldexp(1.0, -k);
    // Margins for the rounding of size / weight, and of gradients to units: weights are at least 1.
    fit.maxAbsGradPerWeight =
        extent.largestRatio * (1.0 + 1e-12) + (fit.fExact ? 0.0 : 0.5 * fit.unit);
    const double h = fit.maxAbsGradPerWeight;
    fit.weightPerAbsGrad = h > 0.0 ? 1.0 / h : 0.0;
    // Layout of the packed word: the weights need weightBits; the sums of sizes have the others.
    fit.weightBits = ExponentAbove(std::min(extent.totalWeight / share, 1.0 * INT_MAX));
    // Units of sizes are not finer than those of gradients, so that the bound holds for sums of
    // rounded gradients, too.
    int absPower = fit.fExact ? 48 - e : std::min(48 - e, k);
    if (largestAbs > 0.0) {
        absPower = std::min(
            absPower, PowerOfSizes(extent.sumAbs / share, numRows, kWordBits - fit.weightBits));
    }
    fit.absScale = std::ldexp(1.0, absPower);
    fit.absUnit = std::ldexp(1.0, -absPower);
    return fit;
}

// The common case, all weights 1, has a loop of its own.
void FixedPoint::ToCells(const double* gradV, const int* weightV, int num, Cell* cells) const {
    if (weightV == nullptr) {
        for (int i = 0; i < num; ++i) cells[i] = ToCell(gradV[i], 1);
    } else {
        for (int i = 0; i < num; ++i) cells[i] = ToCell(gradV[i], weightV[i]);
    }
}

}  // namespace engine
}  // namespace sylvora

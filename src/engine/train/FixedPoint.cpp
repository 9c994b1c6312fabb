// Gradients as integers; see FixedPoint.h. Bounds used below, for n rows with |g| < 2^e, n < 2^f:
//   n 2^e 2^k <= 2^61   sums of q fit an int64
//   2^e 2^k <= 2^49     the rounding trick works (it needs |x| < 2^51)
//   n 2^e 2^k <= 2^52   (exact) every partial sum is a multiple of 2^-k below 2^53 of them
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

// Error bounds are relative to the gradients and blind to denormals; beyond this the plain form
// decides.
constexpr double kSmallest = 1e-100;
constexpr double kLargest = 1e100;

constexpr int kChunkRows = 16384;

// What rows [begin, end) ask of the integers.
struct Extent {
    bool fInRange = true;
    double largestAbs = 0.0;
    double largestRatio = 0.0;  // |gradient| / weight
    double totalWeight = 0.0;

    Extent() = default;
    Extent(const double* gradV, const int* weightV, int begin, int end) {
        for (int i = begin; i < end; ++i) {
            const double size = std::fabs(gradV[i]);
            const double weight = weightV != nullptr ? weightV[i] : 1;
            fInRange = fInRange && size <= kLargest && weight >= 1;
            largestAbs = std::max(largestAbs, size);
            if (weightV != nullptr) largestRatio = std::max(largestRatio, size / weight);
            totalWeight += weight;
        }
        if (weightV == nullptr) largestRatio = largestAbs;
    }

    // Weights are integers, so their sum does not depend on the order.
    void Join(const Extent& other) {
        fInRange = fInRange && other.fInRange;
        largestAbs = std::max(largestAbs, other.largestAbs);
        largestRatio = std::max(largestRatio, other.largestRatio);
        totalWeight += other.totalWeight;
    }
};

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

// Whether all gradients are multiples of 2^-power. Compared at their own size: scaled, the smallest
// could vanish.
bool AllMultiples(const double* gradV, int num, int power, WorkerPool& pool) {
    const double scale = std::ldexp(1.0, power);
    const double unit = std::ldexp(1.0, -power);
    const Chunks chunks = {num, kChunkRows};
    std::atomic<bool> fAll{true};
    pool.For(chunks.Num(), [&](int chunk, int) {
        for (int i = chunks.Begin(chunk); i < chunks.End(chunk) && fAll; ++i) {
            const int64_t q = FixedPoint::RoundToInt(gradV[i] * scale);
            if (static_cast<double>(q) * unit != gradV[i]) fAll = false;
        }
    });
    return fAll;
}

}  // namespace

FixedPoint FixedPoint::Fit(const double* gradV, const int* weightV, int num, WorkerPool& pool) {
    FixedPoint fit;
    const Extent extent = ExtentOf(gradV, weightV, num, pool);
    const double largestAbs = extent.largestAbs;
    if (!extent.fInRange || num == 0 || (largestAbs != 0.0 && largestAbs < kSmallest)) return fit;
    if (extent.totalWeight > INT_MAX) return fit;  // nodes add weights up as ints
    fit.fUsable = true;
    // A margin for the rounding of size / weight.
    fit.largest = extent.largestRatio * (1.0 + 1e-12);
    const auto exponentAbove = [](double value) {
        int exponent = 0;
        std::frexp(value, &exponent);
        return exponent;
    };
    const int e = largestAbs > 0.0 ? exponentAbove(largestAbs) : 0;
    const int f = exponentAbove(num);
    const int exactPower = std::min(52 - e - f, 49 - e);
    fit.fExact = AllMultiples(gradV, num, exactPower, pool);
    const int k = fit.fExact ? exactPower : std::min(61 - e - f, 49 - e);
    fit.scale = std::ldexp(1.0, k);
    fit.unit = std::ldexp(1.0, -k);
    // The packed word: at most 2^weightBits of weight, and per row at most 2^absBits and one.
    fit.weightBits = exponentAbove(extent.totalWeight);
    const int absBits = std::min(62 - fit.weightBits - f, 48);
    if (absBits < 4) {
        fit.fUsable = false;
        return fit;
    }
    fit.absScale = std::ldexp(1.0, absBits - e);
    fit.absUnit = std::ldexp(1.0, e - absBits);
    return fit;
}

void FixedPoint::ToCells(const double* gradV, const int* weightV, int num, Cell* cells) const {
    if (weightV == nullptr) {
        for (int i = 0; i < num; ++i) cells[i] = ToCell(gradV[i], 1);
    } else {
        for (int i = 0; i < num; ++i) cells[i] = ToCell(gradV[i], weightV[i]);
    }
}

}  // namespace engine
}  // namespace sylvora

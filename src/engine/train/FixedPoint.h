// Gradients as integers. A sum of integers does not depend on the order of its terms, so threads
// can fill histograms in any order and subtract them from each other, and every sum stays exact.
#ifndef SYLVORA_ENGINE_TRAIN_FIXEDPOINT_H
#define SYLVORA_ENGINE_TRAIN_FIXEDPOINT_H

#include <cmath>
#include <cstdint>
#include <cstring>

#include "base/WorkerPool.h"

namespace sylvora {
namespace engine {

// One histogram cell: the sums over a set of rows. `q` is the sum of the gradients in units of
// 2^-k. `packed` holds the sum of the weights in its low bits and, above them, an upper bound on
// the sum of the gradients' absolute values. The sums over all rows of a tree fit, so adding and
// subtracting whole words never overflows or borrows between the two fields.
struct alignas(16) Cell {
    int64_t q = 0;
    uint64_t packed = 0;

    Cell& operator+=(const Cell& other) {
        q += other.q;
        packed += other.packed;
        return *this;
    }
    Cell& operator-=(const Cell& other) {
        q -= other.q;
        packed -= other.packed;
        return *this;
    }
};

// How the gradients of one tree become integers. Immutable once fitted, so any number of threads
// may use it.
struct FixedPoint {
    // False if a gradient is not finite or out of the range of the error bounds, or if a weight is
    // below 1, or if the weights add up to more than an int. Then nothing else may be used.
    bool fUsable = false;
    // All gradients are multiples of 2^-k, and every sum of them is a double.
    bool fExact = false;
    // 2^k, integer units per 1.0.
    double scale = 1.0;
    // 2^-k, the size of one unit.
    double unit = 1.0;
    // h: no |gradient| / weight is larger, nor with the gradient rounded to units.
    double maxAbsGradPerWeight = 0.0;
    // 1 / h; 0 if h is 0.
    double weightPerAbsGrad = 0.0;
    // Integer units per 1.0, for the absolute values.
    double absScale = 1.0;
    // 1 / absScale.
    double absUnit = 1.0;
    // The width of the weights in Cell::packed.
    int weightBits = 0;

    // Fits the `num` rows with gradients `gradV` and weights `weightV` (null: all 1). The workers
    // of `pool` share the work. Check fUsable before using the result. The integers are as coarse
    // as those of a tree of at least `leastRows` rows; see Tuning.
    static FixedPoint Fit(const double* gradV, const int* weightV, int num, WorkerPool& pool,
                          int leastRows = 0);

    // The cell of one row.
    Cell ToCell(double gradient, int weight) const {
        const uint64_t size = static_cast<uint64_t>(RoundToInt(std::fabs(gradient) * absScale) + 1);
        return {RoundToInt(gradient * scale), (size << weightBits) + static_cast<uint64_t>(weight)};
    }
    // Converts `num` consecutive rows. `weightV` may be null (all 1).
    void ToCells(const double* gradV, const int* weightV, int num, Cell* cells) const;

    // The sums of a cell as doubles: of the gradients, of the weights, and an upper bound on that
    // of the absolute gradients.
    double Sum(const Cell& cell) const { return static_cast<double>(cell.q) * unit; }
    double Weight(const Cell& cell) const {
        return static_cast<double>(cell.packed & ((uint64_t{1} << weightBits) - 1));
    }
    double AbsBound(const Cell& cell) const {
        return static_cast<double>(cell.packed >> weightBits) * absUnit;
    }

    // The nearest integer (ties to even), for |value| < 2^51: after adding 1.5 * 2^52, the low bits
    // of the double are the integer.
    static int64_t RoundToInt(double value) {
        constexpr double kRound = 6755399441055744.0;
        const double shifted = value + kRound;
        int64_t bits, origin;
        std::memcpy(&bits, &shifted, sizeof bits);
        std::memcpy(&origin, &kRound, sizeof origin);
        return bits - origin;
    }
};

}  // namespace engine
}  // namespace sylvora

#endif  // SYLVORA_ENGINE_TRAIN_FIXEDPOINT_H

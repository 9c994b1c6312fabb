// Gradients as integers. Sums of integers do not depend on their order, so histograms can be filled
// in any order, by any number of threads, and subtracted from each other, and stay exact.
#ifndef SYLVORA_ENGINE_TRAIN_FIXEDPOINT_H
#define SYLVORA_ENGINE_TRAIN_FIXEDPOINT_H

#include <cmath>
#include <cstdint>
#include <cstring>

#include "base/WorkerPool.h"

namespace sylvora {
namespace engine {

// A histogram cell, or the sums over any set of rows: the gradients in units of 2^-k, and, packed
// into one word, the weights (low bits) and an upper bound of the gradients' absolute values (high
// bits). All sums over a tree's rows fit, so adding and subtracting whole words is exact.
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

// How the gradients of one tree become integers.
struct FixedPoint {
    bool fUsable = false;   // gradients are finite and of a size that the error bounds cover
    bool fExact = false;    // every gradient is a multiple of 2^-k and every sum of them a double
    double scale = 1.0;     // 2^k
    double unit = 1.0;      // 2^-k
    double largest = 0.0;   // the largest |gradient| / weight
    double absScale = 1.0;  // of the packed absolute values
    double absUnit = 1.0;
    int weightBits = 0;

    // Fits the `num` rows with gradients `gradV` and weights `weightV` (null: all 1).
    static FixedPoint Fit(const double* gradV, const int* weightV, int num, WorkerPool& pool);

    Cell ToCell(double gradient, int weight) const {
        const uint64_t size = static_cast<uint64_t>(RoundToInt(std::fabs(gradient) * absScale) + 1);
        return {RoundToInt(gradient * scale), (size << weightBits) + static_cast<uint64_t>(weight)};
    }
    // The cells of `num` consecutive rows.
    void ToCells(const double* gradV, const int* weightV, int num, Cell* cells) const;

    double Sum(const Cell& cell) const { return static_cast<double>(cell.q) * unit; }
    double Weight(const Cell& cell) const {
        return static_cast<double>(cell.packed & ((uint64_t{1} << weightBits) - 1));
    }
    double AbsBound(const Cell& cell) const {
        return static_cast<double>(cell.packed >> weightBits) * absUnit;
    }

    // The nearest integer, for |value| below 2^51: added to 1.5 * 2^52 it is the low bits.
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

// The kernels that score and bound the bins of a column: all must compute the same as plain code
// for one bin, bit for bit.
#include "engine/train/histogram/ScanKernels.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <random>
#include <vector>

namespace sylvora::engine {
namespace {

// Sums before and after random runs of rows: some empty, some of one row, some with as large sums
// as the words hold. The array has exactly its promised size, so that the sanitizers see accesses
// beyond it.
struct RandomPrefixes {
    explicit RandomPrefixes(unsigned seed) : random(seed) {
        const int lengths[] = {1, 2, 3, 4, 5, 7, 8, 9, 15, 16, 17, 31, 33, 63, 64};
        count = lengths[seed % std::size(lengths)];
        figures.weightBits = 13 + Below(15);  // of at most 64 * 40 rows
        const int sumBits = 20 + Below(36);
        const int mostRows = seed % 3 == 0 ? 1 : 40;
        prefixV.assign(static_cast<size_t>(count + 1 + ScanKernels::kSlack), Cell());
        const auto sizeOf = [&] { return random() & ((uint64_t{1} << sumBits) - 1); };
        for (size_t i = 0; i <= static_cast<size_t>(count); ++i) {
            if (i > 0) prefixV[i] = prefixV[i - 1];
            for (int row = Below(3) == 0 ? 0 : Below(mostRows + 1); row > 0; --row) {
                const uint64_t size = sizeOf();
                const uint64_t weight = static_cast<uint64_t>(Below(4) == 0 ? 2 : 1);
                prefixV[i].q +=
                    Below(2) == 0 ? static_cast<int64_t>(size) : -static_cast<int64_t>(size);
                const int shift = std::max(sumBits + figures.weightBits - 50, 0);
                prefixV[i].packed += ((size >> shift) + 1) << figures.weightBits | weight;
            }
        }
        const double scale = std::ldexp(1.0, sumBits);
        figures.unit = 1 / scale;
        figures.absUnit =
            figures.unit * std::ldexp(1.0, std::max(sumBits + figures.weightBits - 50, 0));
        figures.maxAbsGradPerWeight = 1 + Below(2);
        figures.weightPerAbsGrad = 1 / figures.maxAbsGradPerWeight;
        // The node may end with the last run or later.
        const Cell& last = prefixV[static_cast<size_t>(count)];
        const int more = Below(3);
        figures.weight = WeightOf(last) + more;
        figures.sum = SumOf(last) + Below(2 * more + 1) - more;
    }

    int Below(int past) { return static_cast<int>(random() % static_cast<unsigned>(past)); }

    double SumOf(const Cell& cell) const { return static_cast<double>(cell.q) * figures.unit; }
    double WeightOf(const Cell& cell) const {
        return static_cast<double>(cell.packed & ((uint64_t{1} << figures.weightBits) - 1));
    }
    double AbsOf(const Cell& cell) const {
        return static_cast<double>(cell.packed >> figures.weightBits) * figures.absUnit;
    }

    std::mt19937_64 random;
    int count = 0;
    ScanFigures figures = {};
    std::vector<Cell> prefixV;
};

// What a kernel must compute for place i.
struct Expected {
    Expected(const RandomPrefixes& of, int i) {
        const ScanFigures& f = of.figures;
        const Cell& before = of.prefixV[static_cast<size_t>(i)];
        Cell inside = of.prefixV[static_cast<size_t>(i) + 1];
        inside -= before;
        const double g0 = of.SumOf(before);
        const double w0 = of.WeightOf(before);
        const double c = of.WeightOf(inside);
        const double s = of.SumOf(inside);
        const double a = std::min(of.AbsOf(inside), f.maxAbsGradPerWeight * c);
        absSum = std::fabs(g0);
        fSplit = w0 > 0 && f.weight - w0 > 0;
        if (fSplit) score = g0 * g0 / w0 + (f.sum - g0) * (f.sum - g0) / (f.weight - w0);
        if (c < 2) return;
        const auto term = [](double x, double w) { return x * x / std::max(w, 1e-300); };
        for (const double side : {1.0, -1.0}) {
            const double x = 0.5 * (a + side * s);
            const double w = x * f.weightPerAbsGrad;
            const double rest = 0.5 * (a - side * s) * f.weightPerAbsGrad;
            const double corner =
                term(g0 + side * x, w0 + w) + term(f.sum - g0 - side * x, f.weight - w0 - c + rest);
            bound = std::max(bound, corner * (1.0 + 1e-9));
        }
    }

    double absSum = 0.0, score = -1.0, bound = -1.0;
    bool fSplit = false;
};

void Check(const ScanKernels& kernel, const RandomPrefixes& data) {
    const Cell* const prefixes = data.prefixV.data();
    std::vector<Expected> allV;
    for (int i = 0; i < data.count; ++i) allV.emplace_back(data, i);
    // The best of the first places only: what follows them is zero, as for whole columns.
    std::vector<Cell> fewV(prefixes, prefixes + data.count);
    fewV.resize(fewV.size() + ScanKernels::kSlack);
    double best = -1.0;
    double maxAbsSum = 0.0;
    for (const Expected& one : allV) {
        best = std::max(best, one.score);
        maxAbsSum = std::max(maxAbsSum, one.absSum);
    }
    double foundMaxAbsSum = -1.0;
    EXPECT_EQ(kernel.best(data.figures, fewV.data(), data.count, &foundMaxAbsSum), best);
    EXPECT_EQ(foundMaxAbsSum, maxAbsSum);
    std::vector<double> boundV(allV.size() + ScanKernels::kSlack);
    kernel.bounds(data.figures, prefixes, data.count, boundV.data());
    for (size_t i = 0; i < allV.size(); ++i) EXPECT_EQ(boundV[i], allV[i].bound) << i;
    for (size_t at = 0; at < allV.size(); at += 3) {
        for (const double minScore : {allV[at].score, allV[at].bound}) {
            const uint64_t splits = kernel.reachable(data.figures, prefixes, data.count, minScore);
            const uint64_t runs = kernel.mayReach(data.figures, prefixes, data.count, minScore);
            const auto bitOf = [](uint64_t mask, size_t i) { return (mask >> i & 1) != 0; };
            for (size_t i = 0; i < 64; ++i) {
                const double below = minScore * (1 - 1e-8);
                if (i >= allV.size()) {
                    EXPECT_FALSE(bitOf(splits, i) || bitOf(runs, i)) << i;
                    continue;
                }
                const Expected& one = allV[i];
                if (one.fSplit && one.score >= minScore) EXPECT_TRUE(bitOf(splits, i)) << i;
                if (!one.fSplit || one.score < below) EXPECT_FALSE(bitOf(splits, i)) << i;
                if (one.bound > -1 && one.bound >= minScore * (1 + 1e-12))
                    EXPECT_TRUE(bitOf(runs, i)) << i;
                if (one.bound <= -1 || one.bound < below) EXPECT_FALSE(bitOf(runs, i)) << i;
            }
        }
    }
}

TEST(ScanKernels, ComputeTheScoresAndBoundsOfEachBin) {
    for (const char* name : {"baseline", "avx2", "avx512"}) {
        const ScanKernels* kernel = kScanKernels.Find(name);
        if (kernel == nullptr) continue;  // this processor cannot run it
        for (unsigned seed = 0; seed < 3000 && !testing::Test::HasFailure(); ++seed) {
            SCOPED_TRACE(testing::Message() << name << ", seed " << seed);
            Check(*kernel, RandomPrefixes(seed));
        }
    }
}

}  // namespace
}  // namespace sylvora::engine

// Gradients as integers, against exact arithmetic in 128 bits: sums fit their words and are off by
// no more than the rounding of each gradient, and what is called exact is.
#include "engine/train/FixedPoint.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <climits>
#include <cmath>
#include <limits>
#include <numeric>
#include <random>
#include <vector>

namespace sylvora::tests {
namespace {

using engine::Cell;
using engine::FixedPoint;

__extension__ typedef __int128 Wide;

Wide Size(Wide value) {
    return value < 0 ? -value : value;
}

// Gradients below 2^exponent in size and multiples of 2^(exponent - kFineBits).
struct Rows {
    static constexpr int kFineBits = 90;

    int exponent = 0;
    std::vector<double> gradV;
    std::vector<int> weightV;  // empty: all 1
    int leastRows = 0;

    int Num() const { return static_cast<int>(gradV.size()); }
    const int* Weights() const { return weightV.empty() ? nullptr : weightV.data(); }
    int NumLeast() const { return std::max(Num(), leastRows); }
    int Weight(size_t row) const { return weightV.empty() ? 1 : weightV[row]; }
    FixedPoint Fit(WorkerPool& pool) const {
        return FixedPoint::Fit(gradV.data(), Weights(), Num(), pool, leastRows);
    }
    std::vector<Cell> Cells(const FixedPoint& fixed) const {
        std::vector<Cell> cellV(gradV.size());
        fixed.ToCells(gradV.data(), Weights(), Num(), cellV.data());
        return cellV;
    }

    // A value in units of 2^(exponent - kFineBits).
    Wide Exact(double value) const {
        const double scaled = std::ldexp(value, kFineBits - exponent);
        EXPECT_EQ(scaled, std::trunc(scaled)) << value;
        return static_cast<Wide>(scaled);
    }
};

// `num` gradients of size (2^numBits - 1) 2^power, of which the first is negative.
Rows Alike(int num, int numBits, int power) {
    Rows rows;
    rows.exponent = numBits + power;
    rows.gradV.assign(static_cast<size_t>(num), std::ldexp(std::ldexp(1.0, numBits) - 1, power));
    rows.gradV[0] = -rows.gradV[0];
    return rows;
}

class RowMaker {
  public:
    explicit RowMaker(unsigned seed) : random(seed) {}

    // All alike, of any size below the first, with many zeros, or of all magnitudes.
    Rows Make() {
        static const int kNums[] = {1, 2, 3, 7, 8, 63, 64, 255, 1000, 4095, 4096, 20000};
        static const int kExponents[] = {-330, -20, 0, 1, 49, 332};
        Rows rows = Alike(kNums[Below(12)], 1 + Below(53), 0);
        const int power = kExponents[Below(6)] - rows.exponent;
        const double largest = rows.gradV.back();
        const int kind = Below(4);
        for (double& gradient : rows.gradV) {
            if (kind == 1) gradient = Whole(largest);
            if (kind == 2 && Below(3) != 0) gradient = 0.0;
            if (kind == 3) gradient = std::ldexp(Whole(largest), -Below(30));
            gradient = std::ldexp(Below(4) == 0 ? -gradient : gradient, power);
        }
        rows.gradV[0] = std::ldexp(largest, power);
        rows.exponent += power;
        static const int kWeights[] = {5, 1000, INT_MAX};
        const int most = kWeights[Below(3)];
        const size_t numWeights = Below(2) == 0 ? 0 : rows.gradV.size();
        for (size_t i = 0; i < numWeights; ++i) rows.weightV.push_back(1 + Below(most));
        if (Below(3) == 0) rows.leastRows = Below(2) == 0 ? INT_MAX : 1 + Below(INT_MAX);
        return rows;
    }

    int Below(int n) { return std::uniform_int_distribution<int>(0, n - 1)(random); }

    std::mt19937 random;

  private:
    double Whole(double most) {
        return std::floor(std::uniform_real_distribution<double>(0, most)(random));
    }
};

// What holds for the sums over the chosen rows.
void CheckSums(const Rows& rows, const FixedPoint& fixed, const std::vector<Cell>& cellV,
               const std::vector<size_t>& chosenV) {
    Cell sums;
    Wide sum = 0;
    Wide size = 0;
    Wide weight = 0;
    double inOrder = 0.0;
    for (const size_t row : chosenV) {
        sums += cellV[row];
        sum += rows.Exact(rows.gradV[row]);
        size += Size(rows.Exact(rows.gradV[row]));
        weight += rows.Weight(row);
        inOrder += rows.gradV[row];
    }
    const Wide num = static_cast<Wide>(chosenV.size());
    const Wide unit = rows.Exact(fixed.unit);
    EXPECT_TRUE(2 * Size(sums.q * unit - sum) <= num * unit);
    EXPECT_TRUE(static_cast<Wide>(fixed.Weight(sums)) == weight);
    const Wide above = rows.Exact(fixed.AbsBound(sums)) - size;
    EXPECT_TRUE(above >= 0 && above <= 2 * num * rows.Exact(fixed.absUnit));
    if (fixed.fExact) {
        EXPECT_EQ(fixed.Sum(sums), inOrder);
        EXPECT_TRUE(rows.Exact(inOrder) == sum);
    }
}

// What holds for each row, and for all of them together.
void CheckCells(const Rows& rows, const FixedPoint& fixed, const std::vector<Cell>& cellV) {
    Wide sizeOfQ = 0;
    Wide packed = 0;
    Wide weight = 0;
    double largest = 0.0;
    for (size_t row = 0; row < cellV.size(); ++row) {
        const Wide gradient = rows.Exact(rows.gradV[row]);
        const Wide q = cellV[row].q;
        EXPECT_TRUE(Size(q) <= Wide{1} << 49);
        EXPECT_TRUE(!fixed.fExact || q * rows.Exact(fixed.unit) == gradient);
        const Wide mostOfRow = rows.Exact(fixed.maxAbsGradPerWeight) * rows.Weight(row);
        EXPECT_TRUE(std::max(Size(gradient), Size(q) * rows.Exact(fixed.unit)) <= mostOfRow);
        EXPECT_TRUE(Size(q) * rows.Exact(fixed.unit) <= rows.Exact(fixed.AbsBound(cellV[row])));
        sizeOfQ += Size(q);
        packed += cellV[row].packed;
        weight += rows.Weight(row);
        largest = std::max(largest, std::fabs(rows.gradV[row]) / rows.Weight(row));
    }
    // Of as many rows as the integers are for.
    const Wide num = rows.Num();
    const Wide numAll = rows.NumLeast();
    EXPECT_TRUE(sizeOfQ * numAll <= num * (Wide{1} << (fixed.fExact ? 52 : 61)));
    EXPECT_TRUE(((packed - weight) >> fixed.weightBits) * numAll <
                num * (Wide{1} << (64 - fixed.weightBits)));
    const Wide weightOfAll = std::min(weight * numAll / num, Wide{INT_MAX});
    EXPECT_TRUE(weightOfAll < Wide{1} << fixed.weightBits);
    const double rounding = fixed.fExact ? 0.0 : 0.5 * fixed.unit;
    EXPECT_LE(fixed.maxAbsGradPerWeight, (largest + rounding) * (1 + 1e-11));
}

// The units are no coarser than the room in the words asks for.
void CheckUnits(const Rows& rows, const FixedPoint& fixed) {
    double largest = 0.0;
    double weight = 0.0;
    for (size_t row = 0; row < rows.gradV.size(); ++row) {
        largest = std::max(largest, std::fabs(rows.gradV[row]));
        weight += rows.Weight(row);
    }
    EXPECT_EQ(fixed.scale * fixed.unit, 1.0);
    EXPECT_EQ(fixed.absScale * fixed.absUnit, 1.0);
    if (largest == 0.0) return;
    const double num = rows.NumLeast();
    const int sumBits = fixed.fExact ? 51 : 60;
    EXPECT_LE(fixed.unit, 2 * largest * std::max(std::ldexp(num, -sumBits), 0x1p-49));
    weight = std::min(weight * num / rows.Num(), 1.0 * INT_MAX);
    EXPECT_LE(fixed.absUnit, 2 * largest * std::max(std::ldexp(num * weight, -60), 0x1p-48));
}

TEST(FixedPoints, SumsFitAndAreOffByTheRoundingOfEachRow) {
    WorkerPool alone, shared;
    ASSERT_EQ(shared.Start(3), 0);
    int numUsable = 0, numExact = 0;
    for (unsigned seed = 1; seed <= 500; ++seed) {
        SCOPED_TRACE(seed);
        RowMaker maker(seed);
        const Rows rows = maker.Make();
        const FixedPoint fixed = rows.Fit(seed % 2 == 0 ? alone : shared);
        if (!fixed.fUsable) continue;  // weights that leave no room
        ++numUsable;
        numExact += fixed.fExact;
        const std::vector<Cell> cellV = rows.Cells(fixed);
        CheckUnits(rows, fixed);
        CheckCells(rows, fixed, cellV);
        std::vector<size_t> chosenV(cellV.size());
        std::iota(chosenV.begin(), chosenV.end(), size_t{0});
        for (int part = 0; part < 4; ++part) {  // all rows, then half of them, a quarter, ...
            std::shuffle(chosenV.begin(), chosenV.end(), maker.random);
            CheckSums(rows, fixed, cellV, chosenV);
            chosenV.resize((chosenV.size() + 1) / 2);
        }
        ASSERT_FALSE(HasFailure());
    }
    EXPECT_GT(numUsable, 400);
    EXPECT_GT(numExact, 100);
    EXPECT_GT(numUsable - numExact, 100);
}

// n rows with gradients of b bits are exact while (n + 1) 2^b <= 2^52, for n one below a power of
// two, and b is at most 49.
TEST(FixedPoints, AreExactWhileEverySumIsADouble) {
    const struct {
        int num, numBits;
        bool fExact;
    } cases[] = {{1, 49, true},     {1, 50, false},    {7, 49, true},     {7, 50, false},
                 {63, 46, true},    {63, 47, false},   {63, 48, false},   {4095, 40, true},
                 {4095, 41, false}, {65535, 36, true}, {65535, 37, false}};
    WorkerPool pool;
    for (const auto& c : cases) {
        for (const int power : {-300, 0, 280}) {
            EXPECT_EQ(Alike(c.num, c.numBits, power).Fit(pool).fExact, c.fExact)
                << c.num << " rows of " << c.numBits << " bits";
        }
    }
}

// The weights take 31 bits, and the sums of sizes have 33 for as many rows: four units a row, of
// which rounding up takes one and a half.
TEST(FixedPoints, LeaveUnitsForTheSizesOfTheMostRows) {
    WorkerPool pool;
    std::mt19937 random(3);
    Rows rows;
    for (int i = 0; i < 100000; ++i) {
        rows.gradV.push_back(std::uniform_real_distribution<double>(-1, 1)(random));
    }
    double sum = 0.0;
    for (const double gradient : rows.gradV) sum += std::fabs(gradient);
    for (const int least : {1 << 28, 1 << 29, 1 << 30, INT_MAX}) {
        rows.leastRows = least;
        const FixedPoint fixed = rows.Fit(pool);
        ASSERT_TRUE(fixed.fUsable);
        Cell all;
        for (const Cell& cell : rows.Cells(fixed)) all += cell;
        EXPECT_EQ(fixed.Weight(all), rows.Num());
        EXPECT_GE(fixed.AbsBound(all), sum);
        EXPECT_LE(fixed.AbsBound(all), 2.0 * sum) << least;
    }
}

// One row is enough, wherever it is and however small.
TEST(FixedPoints, AreNotExactWithARowThatIsNoMultiple) {
    const struct {
        int power;  // of the other rows' gradients, 2^power
        double odd;
        bool fExact;
    } cases[] = {{20, 0x1p-15, true}, {20, 0x1p-16, false},    {20, 1 - 0x1p-16, false},
                 {20, 1e-90, false},  {330, -0x1p-800, false}, {330, 5e-324, false}};
    WorkerPool pool;
    ASSERT_EQ(pool.Start(3), 0);
    for (const auto& c : cases) {
        for (const size_t row : {0u, 20000u, 39999u}) {
            Rows rows = Alike(40000, 1, c.power);
            rows.gradV[row] = c.odd;
            EXPECT_EQ(rows.Fit(pool).fExact, c.fExact) << c.odd << " in row " << row;
        }
    }
}

TEST(FixedPoints, AreUsableForGradientsAndWeightsInRange) {
    constexpr double kInf = std::numeric_limits<double>::infinity();
    const auto many = [](double first, double other) {  // more than one worker takes at a time
        std::vector<double> gradV(40000, other);
        gradV[0] = first;
        return gradV;
    };
    const struct {
        std::vector<double> gradV;
        std::vector<int> weightV;
        bool fUsable;
    } cases[] = {{{}, {}, false},
                 {{0.0, 0.0}, {}, true},
                 {{1.0, 0.0, -5e-324}, {}, true},
                 {{1e-100, 0.0}, {}, true},
                 {{0.9e-100, 0.0}, {}, false},
                 {{-1e100, 1.0}, {}, true},
                 {{1.0, -1.1e100}, {}, false},
                 {{1.0, kInf}, {}, false},
                 {{std::nan(""), 1.0}, {}, false},
                 {many(kInf, 1.0), {}, false},
                 {many(1.0, 0.9e-100), {}, true},
                 {{1.0, 2.0}, {1, INT_MAX - 1}, true},
                 {{1.0, 2.0}, {1, INT_MAX}, false},  // nodes add weights up as ints
                 {{1.0, 2.0}, {1, 0}, false},
                 {{1.0, 2.0}, {-1, 3}, false},
                 {std::vector<double>(5000, 1.0), std::vector<int>(5000, INT_MAX / 5000), true},
                 {std::vector<double>(40000, 1.0), std::vector<int>(40000, INT_MAX), false}};
    WorkerPool pool;
    for (const auto& c : cases) {
        const Rows rows = {0, c.gradV, c.weightV, 0};
        EXPECT_EQ(rows.Fit(pool).fUsable, c.fUsable)
            << testing::PrintToString(c.gradV).substr(0, 40);
    }
}

TEST(FixedPoints, RoundToTheNearestIntegerAndTiesToEven) {
    std::mt19937_64 random(7);
    for (int i = 0; i < 100000; ++i) {
        const int bits = static_cast<int>(random() % 51) + 1;
        const double whole = static_cast<double>(static_cast<int64_t>(random() >> (64 - bits)));
        for (const double part : {0.0, 0.25, 0.5, 0.75}) {
            const double value = i % 2 == 0 ? whole + part : -whole - part;
            ASSERT_EQ(FixedPoint::RoundToInt(value), std::llrint(value)) << value;
        }
    }
}

}  // namespace
}  // namespace sylvora::tests

// Columns of random values for tests of the engine's parts: ties, constants, signed zeros,
// infinities, values that are hardly apart, and one that most rows share.
#ifndef SYLVORA_TESTS_ENGINE_TRAIN_RANDOMCOLUMNS_H
#define SYLVORA_TESTS_ENGINE_TRAIN_RANDOMCOLUMNS_H

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <limits>
#include <numeric>
#include <random>
#include <vector>

namespace sylvora::tests {

// A matrix with one column of each kind. The same seed gives the same values.
class RandomColumns {
  public:
    static constexpr int kColumns = 9;
    static constexpr int kReals = 4;  // a column of values all over the place

    RandomColumns(int numRows, unsigned seed)
        : random(seed), valueVV(static_cast<size_t>(numRows)) {
        const unsigned mosts[] = {256, 1 + Below(400), 1 + Below(4)};
        const unsigned most = mosts[Below(3)];  // distinct values of columns with many
        for (std::vector<double>& valueV : valueVV) {
            const unsigned row = static_cast<unsigned>(rowV.size());
            for (int column = 0; column < kColumns; ++column) {
                valueV.push_back(Draw(row, column, most));
            }
            rowV.push_back(valueV.data());
        }
    }
    RandomColumns(const RandomColumns&) = delete;
    RandomColumns& operator=(const RandomColumns&) = delete;

    int NumRows() const { return static_cast<int>(rowV.size()); }
    const double* const* Rows() const { return rowV.data(); }
    double Value(int row, int column) const { return rowV[static_cast<size_t>(row)][column]; }
    void Set(int row, int column, double value) {
        valueVV[static_cast<size_t>(row)][static_cast<size_t>(column)] = value;
    }

    // The values of a column, lowest first, -0.0 and 0.0 as one.
    std::vector<double> Distinct(int column) const {
        std::vector<double> distinctV;
        for (const double* row : rowV) distinctV.push_back(row[column]);
        std::sort(distinctV.begin(), distinctV.end());
        distinctV.erase(std::unique(distinctV.begin(), distinctV.end()), distinctV.end());
        return distinctV;
    }
    // The numbers from 0 to `num` - 1 in random order.
    std::vector<int> Shuffled(int num) {
        std::vector<int> shuffledV(static_cast<size_t>(num));
        std::iota(shuffledV.begin(), shuffledV.end(), 0);
        std::shuffle(shuffledV.begin(), shuffledV.end(), random);
        return shuffledV;
    }
    // A number from 0 to `past` - 1.
    unsigned Below(unsigned past) { return static_cast<unsigned>(random() % past); }

  private:
    double Draw(unsigned row, int column, unsigned most) {
        constexpr double kInfinity = std::numeric_limits<double>::infinity();
        static const double kFar[] = {-kInfinity, -1.7e308, -1.6e308, -0.0,
                                      5e-324,     1.6e308,  1.7e308,  kInfinity};
        const double real = static_cast<double>(random()) - 2e9;
        switch (column) {
            case 0:
                return 2.5;
            case 1:
                return Below(2) != 0 ? 0.0 : -0.0;
            case 2:
                return (Below(2) != 0 ? 1 : -1) * 0.5 * Below(3);
            case 3:
                return row % most;
            case kReals:
                return real;
            case 5:
                return 1 + std::ldexp(Below(most), -52);  // midpoints are doubles or rounded
            case 6:
                return 1 + 4e-11 * Below(most);  // three steps are separable
            case 7:
                return kFar[most == 256 ? 7 * Below(2) : Below(8)];
            default:
                return Below(5) != 0 ? -1.0 : real;
        }
    }

    std::mt19937 random;
    std::vector<std::vector<double>> valueVV;  // by row
    std::vector<const double*> rowV;
};

}  // namespace sylvora::tests

#endif  // SYLVORA_TESTS_ENGINE_TRAIN_RANDOMCOLUMNS_H

// Generating the synthetic data sets; see Generators.h.
#include "Generators.h"

#include <algorithm>
#include <cmath>
#include <stdexcept>

#include "Random.h"
#include "Tables.h"

namespace sylvora::bench {
namespace {

// The part of a label that the columns explain: steps, waves and products of the first ten columns.
double Signal(const std::vector<double>& x) {
    double signal = 0.4 * std::sin(2.0 * x[0]) + 0.3 * x[1] * x[2];
    if (x[3] > 0.5) signal += 0.5;
    if (x[4] > 0.0 && x[5] < 0.3) signal -= 0.6;
    return signal + 0.2 * x[6] + 0.1 * x[7] * x[7] - 0.15 * std::fabs(x[8]) + 0.1 * x[9];
}

// Maps a normal number to one of `numLevels` levels, equally wide between -4 and 4.
double Rounded(double normal, int numLevels) {
    const double level = std::floor((normal + 4.0) / 8.0 * numLevels);
    return std::clamp(level, 0.0, static_cast<double>(numLevels - 1));
}

// Rows of normal numbers, each passed through `shape`; `label` computes a row's label from the
// normals before that.
template <typename Shape, typename Label>
RawData Shaped(int numRows, int numColumns, Shape shape, Label label) {
    RawData data = Empty(numRows, numColumns);
    Random random(1);
    std::vector<double> normalV(static_cast<size_t>(numColumns));
    for (int i = 0; i < numRows; ++i) {
        for (double& normal : normalV) normal = random.Normal();
        data.labelV.push_back(static_cast<float>(label(normalV, random)));
        for (int j = 0; j < numColumns; ++j) {
            const double normal = normalV[static_cast<size_t>(j)];
            data.valueV.push_back(static_cast<float>(shape(normal, j, random)));
        }
    }
    return data;
}

double NoisySignal(const std::vector<double>& normalV, Random& random) {
    return Signal(normalV) + 0.5 * random.Normal();
}

double ContinuousValue(double normal, int column, Random&) {
    return column % 3 == 2 ? std::exp(normal) : normal;
}

RawData Continuous(int numRows) {
    return Shaped(numRows, 28, ContinuousValue, NoisySignal);
}

RawData Coarse(int numRows) {
    const auto shape = [](double normal, int column, Random&) {
        return Rounded(normal, 256 >> column % 4);
    };
    return Shaped(numRows, 28, shape, NoisySignal);
}

RawData Mixed(int numRows) {
    const auto shape = [](double normal, int column, Random& random) {
        switch (column % 5) {
            case 0:
                return normal;
            case 1:
                return std::floor(std::exp(1.0 + 0.8 * normal));
            case 2:
                return normal > 0.3 ? 1.0 : 0.0;
            case 3:
                return random.Uniform() < 0.9 ? 0.0 : normal;
            default:
                return random.Uniform() < 0.2 ? kMissing : std::exp(normal);
        }
    };
    return Shaped(numRows, 50, shape, NoisySignal);
}

double ForestValue(double normal, int column, Random&) {
    return column % 2 == 0 ? normal : Rounded(normal, 4 << column % 7);
}

RawData ForestRegression(int numRows) {
    return Shaped(numRows, 20, ForestValue, NoisySignal);
}

RawData ForestClassification(int numRows) {
    const auto label = [](const std::vector<double>& normalV, Random& random) {
        return std::clamp(std::floor(1.5 * NoisySignal(normalV, random) + 2.0), 0.0, 3.0);
    };
    RawData data = Shaped(numRows, 20, ForestValue, label);
    data.header.numClasses = 4;
    return data;
}

// Each query shifts its rows: some queries have better documents than others. Labels are corrected
// for the shift.
RawData Ranking(int numQueries) {
    constexpr int kColumns = 46;
    RawData data = Empty(0, kColumns);
    data.header.numQueries = numQueries;
    Random random(1);
    std::vector<double> normalV(kColumns);
    for (int query = 0; query < numQueries; ++query) {
        const double shift = 0.5 * random.Normal();
        const int numRows = 40 + random.Below(121);
        for (int i = 0; i < numRows; ++i) {
            for (double& normal : normalV) normal = random.Normal() + shift;
            const double relevance = std::floor(NoisySignal(normalV, random) - shift + 1.5);
            data.labelV.push_back(static_cast<float>(std::clamp(relevance, 0.0, 4.0)));
            data.queryV.push_back(query);
            for (int j = 0; j < kColumns; ++j) {
                const double normal = normalV[static_cast<size_t>(j)];
                data.valueV.push_back(
                    static_cast<float>(j % 2 == 0 ? normal : Rounded(normal, 64)));
            }
        }
    }
    data.header.numRows = static_cast<std::int32_t>(data.labelV.size());
    return data;
}

struct Generator {
    const char* name;
    RawData (*make)(int size);
};

constexpr Generator kGenerators[] = {
    {"continuous", Continuous},
    {"coarse", Coarse},
    {"mixed", Mixed},
    {"ranking", Ranking},
    {"forest-regression", ForestRegression},
    {"forest-classification", ForestClassification},
    {"census", Census},
    {"onehot", OneHot},
    {"prices", Prices},
    {"flights", Flights},
    {"physics", Physics},
    {"diamonds", Diamonds},
};

}  // namespace

RawData GenerateWide(int numRows, int numColumns) {
    if (numColumns < 10) throw std::runtime_error("columns: at least 10");
    return Shaped(numRows, numColumns, ContinuousValue, NoisySignal);
}

RawData Generate(const std::string& name, int size) {
    for (const Generator& generator : kGenerators) {
        if (name == generator.name) return generator.make(size);
    }
    throw std::runtime_error("there is no data set \"" + name + "\"");
}

}  // namespace sylvora::bench

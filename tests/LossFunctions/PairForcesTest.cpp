// The kernels of the forces of pairs against the formulas of PairForces.h, bit for bit.
//
// SYLVORA_PAIRS in the environment multiplies the number of random queries.
#include "LossFunctions/PairForces.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdlib>
#include <cstring>
#include <random>
#include <vector>

#include "LossFunctions/PairKernels.h"
#include "god/CorrectRounding.h"
#include "god/ExpLogKernels.h"

namespace {

using sylvora::PairLoss;

typedef std::vector<double> Reals;

const PairLoss kLosses[] = {PairLoss::kCrossEntropy, PairLoss::kHingeSquare};
const double kInfinity = HUGE_VAL;

// One query, or several if there are ids.
struct Queries {
    Reals labelV, scoreV;
    std::vector<int> idV = {};
};

double CrossEntropy(double a, double b, double exponential) {
    return a > b ? 1 / (1 + exponential) : b > a ? -1 / (1 + exponential) : 0;
}

double HingeSquare(double a, double b, double d, double tau) {
    const double margin = tau * std::fabs(a - b);
    if (a > b) return d < margin ? 0.5 * (margin - d) : 0;
    if (b > a) return d > -margin ? 0.5 * (-margin - d) : 0;
    if (d > tau) return 0.5 * (tau - d);
    return d < -tau ? 0.5 * (-tau - d) : 0;
}

Reals Expected(PairLoss loss, double tau, const Queries& query) {
    const size_t numRows = query.labelV.size();
    Reals gradientV(numRows, 0.0), argumentV(numRows), exponentialV(numRows);
    for (size_t i = 0; i < numRows; ++i) {
        const double a = query.labelV[i];
        size_t past = i + 1;
        while (past < numRows && (query.idV.empty() || query.idV[past] == query.idV[i])) ++past;
        for (size_t j = i + 1; j < past; ++j) {
            const double b = query.labelV[j], d = query.scoreV[i] - query.scoreV[j];
            argumentV[j] = (b > a ? -d : d) - tau * std::fabs(a - b);
        }
        sylvora::ExpEach(argumentV.data() + i, exponentialV.data() + i, past - i);
        for (size_t j = i + 1; j < past; ++j) {
            const double b = query.labelV[j], d = query.scoreV[i] - query.scoreV[j];
            const double force = loss == PairLoss::kCrossEntropy
                                     ? CrossEntropy(a, b, exponentialV[j])
                                     : HingeSquare(a, b, d, tau);
            gradientV[i] += force;
            gradientV[j] -= force;
        }
    }
    return gradientV;
}

// NaN equals NaN: which one the compiler's instructions choose is not fixed.
bool IsSame(const Reals& a, const Reals& b) {
    for (size_t i = 0; i < a.size(); ++i) {
        if (std::isnan(a[i]) != std::isnan(b[i])) return false;
        if (!std::isnan(a[i]) && std::memcmp(&a[i], &b[i], sizeof(double)) != 0) return false;
    }
    return true;
}

// Names of kernels that this processor cannot run stand for the fastest one.
void CheckKernels(const Queries& query, double tau) {
    const int numRows = static_cast<int>(query.labelV.size());
    const std::vector<int> idV =
        query.idV.empty() ? std::vector<int>(query.labelV.size(), 7) : query.idV;
    for (const PairLoss loss : kLosses) {
        const Reals expectedV = Expected(loss, tau, query);
        for (const char* name : {"baseline", "avx2", "avx512"}) {
            const sylvora::PairForces forces = {loss, tau, &sylvora::kPairKernels.Choose(name)};
            Reals gradientV(query.labelV.size(), 0.0);
            forces.Add(idV.data(), query.labelV.data(), query.scoreV.data(), numRows,
                       gradientV.data());
            ASSERT_TRUE(IsSame(gradientV, expectedV))
                << forces.kernel->name << ", loss " << static_cast<int>(loss) << ", " << numRows
                << " rows, tau " << tau;
        }
    }
}

unsigned Scaled(unsigned number) {
    const char* factor = std::getenv("SYLVORA_PAIRS");
    return factor == nullptr ? number : number * static_cast<unsigned>(std::atoi(factor));
}

double HostileLabel(std::mt19937& random, int kind) {
    const double grade = static_cast<double>(random() % 5);
    if (kind == 0) return grade;
    if (kind == 1) return 3;
    if (kind == 2) return random() % 10 == 0 ? 1 : 0;
    const double hostileV[] = {NAN, kInfinity, -kInfinity, 1e308, -1e308, 0x1p-1074, 120, -0.0};
    return random() % 3 == 0 ? hostileV[random() % 8] : grade;
}

double HostileScore(std::mt19937& random, int kind) {
    const double normal = std::normal_distribution<double>()(random);
    if (kind == 0) return normal;
    if (kind == 1) return 0.25 * std::floor(normal);
    if (kind == 2) return 1e-17 * normal;
    if (kind == 3) return 64 + 1e-3 * std::floor(normal);  // at the limit of the fast path
    if (kind == 4) return 1000 * normal;
    const double hostileV[] = {1e308, -1e308, kInfinity, -kInfinity, NAN, 0x1p-1074, -0.0, 64, -64};
    return random() % 3 == 0 ? hostileV[random() % 9] : normal;
}

TEST(PairForces, OfHostileQueriesAreTheFormulas) {
    const double tauV[] = {0.5, 0, 3.7, -0.5, 1e6, 1e-307, -1e-307, NAN};
    for (unsigned seed = 0; seed < Scaled(1500) && !HasFatalFailure(); ++seed) {
        std::mt19937 random(seed);
        const int labelKind = static_cast<int>(random() % 4);
        const int scoreKind = static_cast<int>(random() % 6);
        const size_t numRows = random() % (random() % 8 == 0 ? 600 : 40);
        const auto rowsOfQuery = 1 + random() % 40;  // on average
        Queries query;
        int id = 0;
        for (size_t i = 0; i < numRows; ++i) {
            id += random() % rowsOfQuery == 0;
            query.idV.push_back(id);
            query.labelV.push_back(HostileLabel(random, labelKind));
            query.scoreV.push_back(HostileScore(random, scoreKind));
        }
        CheckKernels(query, random() % 2 == 0 ? 0.5 : tauV[random() % 8]);
    }
}

// Exponentials between 2 and 3 that are midpoints of two doubles to the precision of a long double:
// the sum with 1 has the same spacing. They reveal an error bound that is too small.
TEST(PairForces, NearMidpoints) {
    std::mt19937_64 random(3);
    std::uniform_real_distribution<double> place(-60, 60), argument(0.6932, 1.0986);
    for (int turn = 0; turn < 120 && !HasFatalFailure(); ++turn) {
        Queries query = {{1}, {place(random)}};  // each other row is in one pair only
        while (query.labelV.size() < 65) {
            const double score = query.scoreV[0] - argument(random);
            const long double y = std::exp(static_cast<long double>(query.scoreV[0] - score));
            const double near = static_cast<double>(y);
            const double next = std::nextafter(near, y > near ? kInfinity : -kInfinity);
            const long double midpoint = (static_cast<long double>(near) + next) / 2;
            if (std::fabs(y / midpoint - 1) > 0x1p-61L) continue;
            query.labelV.push_back(0);
            query.scoreV.push_back(score);
        }
        CheckKernels(query, 0);
    }
}

// Several million pairs, in queries of up to six blocks.
TEST(PairForces, OfLargeQueriesAreTheFormulas) {
    std::mt19937 random(1);
    for (unsigned turn = 0; turn < Scaled(3) && !HasFatalFailure(); ++turn) {
        for (const int numRows : {2, 255, 256, 257, 264, 512, 700, 1500}) {
            Queries query;
            std::normal_distribution<double> normal(0, turn % 3 == 0 ? 1 : 12);
            for (int i = 0; i < numRows; ++i) {
                query.labelV.push_back(static_cast<double>(random() % 5));
                query.scoreV.push_back(normal(random));
            }
            CheckKernels(query, 0.1 + turn);
        }
    }
}

TEST(PairForces, PowersInTwoParts) {
    std::mt19937 random(2);
    std::uniform_real_distribution<double> uniform(-128, 128);
    Reals xV(10001), headV(xV.size()), restV(xV.size());
    for (double& x : xV) x = uniform(random);
    for (const char* name : sylvora::kInstructionSetNames) {
        const sylvora::ExpLogKernel* kernel = sylvora::kExpLogKernels.Find(name);
        if (kernel == nullptr) continue;
        kernel->splitExp(xV.data(), headV.data(), restV.data(), xV.size());
        for (size_t i = 0; i < xV.size(); ++i) {
            int exponent = 0;
            const double bits = std::frexp(headV[i], &exponent) * 0x1p26;
            ASSERT_EQ(bits, std::floor(bits)) << kernel->name << ' ' << xV[i];
            ASSERT_LE(std::fabs(restV[i]), 0x1p-26) << kernel->name << ' ' << xV[i];
            ASSERT_EQ(headV[i] + headV[i] * restV[i], sylvora::Exp(xV[i]))
                << kernel->name << ' ' << xV[i];
        }
    }
}

}  // namespace

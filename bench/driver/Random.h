// Random numbers of the synthetic data sets.
#ifndef SYLVORA_BENCH_RANDOM_H
#define SYLVORA_BENCH_RANDOM_H

#include <cmath>
#include <random>

namespace sylvora::bench {

// The standard fixes the random engines but not the distributions, which differ between libraries.
// So the distributions are our own.
class Random {
  public:
    explicit Random(unsigned seed) : engine(seed) {}

    double Uniform() { return (static_cast<double>(engine() >> 11) + 0.5) * 0x1p-53; }
    int Below(int bound) { return static_cast<int>(Uniform() * bound); }
    bool Chance(double probability) { return Uniform() < probability; }
    // A standard normal number (G. Box and M. Muller, 1958).
    double Normal() {
        constexpr double kTwoPi = 6.283185307179586;
        const double radius = std::sqrt(-2.0 * std::log(Uniform()));
        return radius * std::cos(kTwoPi * Uniform());
    }

  private:
    std::mt19937_64 engine;
};

}  // namespace sylvora::bench

#endif  // SYLVORA_BENCH_RANDOM_H

// Draws in bulk: holds the generator's lock once for many draws, so that a sampler takes its draws
// from one stream without anybody else's between them.
#ifndef SYLVORA_GOD_RANDOMGENERATOR_H
#define SYLVORA_GOD_RANDOMGENERATOR_H

#include <mutex>

namespace sylvora {

// All that the draws to come depend on.
struct GeneratorState {
    static constexpr int kTableSize = 32;

    long word = 0;  // the caller's
    long secondWord = 123456789;
    long lastOutput = 0;
    long table[kTableSize] = {};

    bool operator==(const GeneratorState& other) const;
};

class Draws {
  public:
    // `seed` is the caller's state word, as for ranz. Only one such Draws lives at a time; others
    // wait.
    explicit Draws(long* seed);
    // Draws from a state of the caller's own; the generator itself stays where it is.
    explicit Draws(GeneratorState& own) : state(own), word(&own.word) {}

    // The state of the generator with the caller's word.
    static GeneratorState StateNow(const long* seed);
    // Takes the generator from `before` to `after`; false, with nothing changed, where it is not
    // at `before`.
    [[nodiscard]] static bool Skip(long* seed, const GeneratorState& before,
                                   const GeneratorState& after);

    // A uniform index into a pool of `n` items.
    int Index(int n);

    // `count` indices, the i-th into a pool of n - i items: those of a partial Fisher-Yates draw.
    void FisherYates(int n, int count, int* indexV);

  private:
    std::unique_lock<std::mutex> lock;
    GeneratorState& state;
    long* word;
};

}  // namespace sylvora

#endif  // SYLVORA_GOD_RANDOMGENERATOR_H

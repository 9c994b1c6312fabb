// Bulk access to the generator of ranz: one lock for many draws, so that no other thread draws in
// between. All draws are from the stream of the calling thread's context (CallContext.h), or from
// the process-wide one if that has none.
#ifndef SYLVORA_GOD_RANDOMGENERATOR_H
#define SYLVORA_GOD_RANDOMGENERATOR_H

#include <mutex>

#include "../RandomStream.h"

namespace sylvora {

// The complete state of the generator: it determines all further draws.
struct GeneratorState {
    static constexpr int kTableSize = 32;

    long word = 0;  // the caller's state word
    long secondWord = 123456789;
    long lastOutput = 0;
    long table[kTableSize] = {};

    bool operator==(const GeneratorState& other) const;
};

class Draws {
  public:
    // Draws from the stream. `seed` is the caller's state word, as for ranz; &gseed stands for the
    // stream's own. Holds the stream's lock while it lives: other threads that draw from it wait.
    explicit Draws(long* seed);
    // Draws from the caller's own state, without a lock. The stream does not change.
    explicit Draws(GeneratorState& own) : state(own), word(&own.word) {}

    // A copy of the stream's state, combined with the caller's state word.
    static GeneratorState StateNow(const long* seed);
    // Moves the stream and the caller's word from `before` to `after`. If they are not
    // at `before`, returns false and changes nothing that a draw depends on.
    [[nodiscard]] static bool Skip(long* seed, const GeneratorState& before,
                                   const GeneratorState& after);

    // A uniform index in [0, n).
    int Index(int n);

    // The indices of a partial Fisher-Yates shuffle: writes `count` of them, the i-th uniform in
    // [0, n - i). Equal to `count` calls of Index, but faster.
    void FisherYates(int n, int count, int* indexV);

  private:
    Draws(RandomStream::State& stream, long* seed);

    std::unique_lock<std::mutex> lock;
    GeneratorState& state;
    long* word;
};

}  // namespace sylvora

#endif  // SYLVORA_GOD_RANDOMGENERATOR_H

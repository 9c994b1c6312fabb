// Draws in bulk: holds the generator's lock once for many draws, so that a sampler takes its draws
// from one stream without anybody else's between them.
#ifndef SYLVORA_GOD_RANDOMGENERATOR_H
#define SYLVORA_GOD_RANDOMGENERATOR_H

#include <mutex>

namespace sylvora {

class Draws {
  public:
    // `seed` is the caller's state word, as for ranz. Only one Draws lives at a time; others wait.
    explicit Draws(long* seed);

    // A uniform index into a pool of `n` items.
    int Index(int n);

    // `count` indices, the i-th into a pool of n - i items: those of a partial Fisher-Yates draw.
    void FisherYates(int n, int count, int* indexV);

  private:
    std::lock_guard<std::mutex> lock;
    long* word;
};

}  // namespace sylvora

#endif  // SYLVORA_GOD_RANDOMGENERATOR_H

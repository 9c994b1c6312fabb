// A random stream of its own for a training.
#ifndef SYLVORA_RANDOMSTREAM_H
#define SYLVORA_RANDOMSTREAM_H

#include <memory>

#include "Libdef.h"

namespace sylvora {

// The state of the generator that ranz (god.h) draws from, with its table. A learner that was given
// a stream draws from it instead of gseed and the process-wide table, and gets the same numbers:
// RandomStream(s) is the stream of gseed = -|s| in a new process. A second training with the same
// stream continues where the first one ended.
//
// Thread safety: draws and Seed are safe from any thread. But trainings that draw from one stream
// at the same time are not repeatable: give each a stream of its own.
class SYLVORA_API RandomStream {
  public:
    explicit RandomStream(long seed);
    ~RandomStream();
    RandomStream(const RandomStream&) = delete;
    RandomStream& operator=(const RandomStream&) = delete;

    // Starts the stream again.
    void Seed(long seed);

    // For the library's own use.
    struct State;
    State& Own() { return *state; }

  private:
    std::unique_ptr<State> state;
};

}  // namespace sylvora

#endif  // SYLVORA_RANDOMSTREAM_H

// What a training by several ranks needs from the system that runs them.
#ifndef SYLVORA_COMMUNICATOR_H
#define SYLVORA_COMMUNICATOR_H

#include <cstddef>

#include "Libdef.h"

namespace sylvora {

// Exchanges bytes between the ranks of a training, which are numbered from 0. MPI, a Dask cluster,
// or threads of one process implement it.
//
// The three exchanges are collective: all ranks make the same calls in the same order. Each returns
// 0 or, if a rank has left or the training was cancelled, -1; from then on every exchange returns
// -1. An exchange must not wait for a rank that is gone: whoever notices that a rank has failed
// makes the waiting calls of the others return. Sizes may exceed 2^31 bytes.
//
// Thread safety: one thread of a rank calls, except for Cancelled, which any thread may call.
class SYLVORA_API Communicator {
  public:
    virtual ~Communicator();

    virtual int Rank() const = 0;
    virtual int Size() const = 0;
    // Every rank gives `bytes` bytes, and gets those of all ranks, in rank order, in all[0, bytes *
    // Size()).
    [[nodiscard]] virtual int AllGather(const void* mine, std::size_t bytes, void* all) = 0;
    // Copies data[0, bytes) of rank `root` to all ranks.
    [[nodiscard]] virtual int Broadcast(void* data, std::size_t bytes, int root) = 0;
    // Every rank gives `bytes` bytes to each rank, in rank order, and gets `bytes` bytes from each.
    [[nodiscard]] virtual int AllToAll(const void* mine, std::size_t bytes, void* all) = 0;
    // Whether to leave now. Asked between exchanges.
    virtual bool Cancelled() = 0;
};

}  // namespace sylvora

#endif  // SYLVORA_COMMUNICATOR_H

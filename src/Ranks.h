// The ranks of a training, and which columns each of them has. See docs/scale-out.md.
#ifndef SYLVORA_RANKS_H
#define SYLVORA_RANKS_H

#include <cstddef>
#include <exception>
#include <type_traits>
#include <utility>
#include <vector>

#include "Communicator.h"
#include "Libdef.h"

namespace sylvora {

// An exchange failed: a rank has left, or the training was cancelled.
class SYLVORA_API RanksLost : public std::exception {
  public:
    const char* what() const noexcept override {
        return "another rank has left the training, or the training was cancelled";
    }
};

// Every rank trains the same trees from the same labels, predictions and random numbers, but
// searches only the columns that it owns. Of a column that another rank owns, it has a column of
// zeros, which offers no split.
//
// Borrows the communicator. Not thread-safe. The exchanges throw RanksLost. Their values are copied
// as bytes, so all ranks must run on machines with the same data layout.
class SYLVORA_API Ranks {
  public:
    // ownerV has the rank of each column; the same on all ranks.
    Ranks(Communicator& communicator, std::vector<int> owners)
        : peers(communicator), ownerV(std::move(owners)) {}

    int Rank() const { return peers.Rank(); }
    int Size() const { return peers.Size(); }
    int NumColumns() const { return static_cast<int>(ownerV.size()); }
    int OwnerOf(int column) const { return ownerV[static_cast<std::size_t>(column)]; }
    bool Owns(int column) const { return OwnerOf(column) == Rank(); }

    // The values of all ranks, in rank order.
    template <typename Value>
    std::vector<Value> Gather(const Value& mine) {
        return GatherEach(std::vector<Value>(1, mine));
    }
    // The same for several values of each rank, as many on all ranks: those of rank 0 first.
    template <typename Value>
    std::vector<Value> GatherEach(const std::vector<Value>& mineV) {
        static_assert(std::is_trivially_copyable_v<Value>);
        std::vector<Value> allV(mineV.size() * static_cast<std::size_t>(Size()));
        AllGather(mineV.data(), mineV.size() * sizeof(Value), allV.data());
        return allV;
    }
    // Copies the values of `root` to all ranks, which have as many.
    template <typename Value>
    void Broadcast(Value* values, std::size_t count, int root) {
        static_assert(std::is_trivially_copyable_v<Value>);
        BroadcastBytes(values, count * sizeof(Value), root);
    }

  private:
    void AllGather(const void* mine, std::size_t bytes, void* all);
    void BroadcastBytes(void* data, std::size_t bytes, int root);

    Communicator& peers;
    const std::vector<int> ownerV;
};

}  // namespace sylvora

#endif  // SYLVORA_RANKS_H

// The exchanges between ranks; see Ranks.h.
#include "../Ranks.h"

namespace sylvora {

Communicator::~Communicator() = default;

void Ranks::AllGather(const void* mine, std::size_t bytes, void* all) {
    if (peers.AllGather(mine, bytes, all) != 0) throw RanksLost();
}

void Ranks::BroadcastBytes(void* data, std::size_t bytes, int root) {
    if (peers.Broadcast(data, bytes, root) != 0) throw RanksLost();
}

}  // namespace sylvora

// Exchanges by MPI's non-blocking collectives; see MpiCommunicator.h.
#include "MpiCommunicator.h"

#include <algorithm>
#include <chrono>
#include <cstring>
#include <mutex>
#include <optional>

namespace sylvora::mpi {
namespace {

// Not set to 0, so that memory that is never used is never taken.
std::unique_ptr<char[]> NewBuffer(std::size_t bytes) {
    return std::unique_ptr<char[]>(new char[bytes]);
}

const char* At(const void* base, std::size_t offset) {
    return static_cast<const char*>(base) + offset;
}

char* At(void* base, std::size_t offset) {
    return static_cast<char*>(base) + offset;
}

}  // namespace

MpiCommunicator::MpiCommunicator(RankLink& rankLink, std::size_t mostBytes)
    : link(rankLink),
      pieceOfRank(std::max(mostBytes / static_cast<std::size_t>(rankLink.Size()), std::size_t{1})),
      sent(NewBuffer(pieceOfRank * static_cast<std::size_t>(rankLink.Size()))),
      received(NewBuffer(pieceOfRank * static_cast<std::size_t>(rankLink.Size()))) {}

int MpiCommunicator::AllGather(const void* mine, std::size_t bytes, void* all) {
    for (std::size_t begin = 0; begin < bytes; begin += pieceOfRank) {
        const std::size_t piece = std::min(pieceOfRank, bytes - begin);
        const int count = static_cast<int>(piece);
        std::memcpy(sent.get(), At(mine, begin), piece);
        const int status = Exchange([&](MPI_Request* request) {
            return MPI_Iallgather(sent.get(), count, MPI_BYTE, received.get(), count, MPI_BYTE,
                                  MPI_COMM_WORLD, request);
        });
        if (status != 0) return -1;
        for (std::size_t r = 0; r < static_cast<std::size_t>(Size()); ++r) {
            std::memcpy(At(all, r * bytes + begin), received.get() + r * piece, piece);
        }
    }
    return 0;
}

int MpiCommunicator::Broadcast(void* data, std::size_t bytes, int root) {
    const std::size_t mostBytes = pieceOfRank * static_cast<std::size_t>(Size());
    for (std::size_t begin = 0; begin < bytes; begin += mostBytes) {
        const std::size_t piece = std::min(mostBytes, bytes - begin);
        if (Rank() == root) std::memcpy(sent.get(), At(data, begin), piece);
        const int status = Exchange([&](MPI_Request* request) {
            return MPI_Ibcast(sent.get(), static_cast<int>(piece), MPI_BYTE, root, MPI_COMM_WORLD,
                              request);
        });
        if (status != 0) return -1;
        if (Rank() != root) std::memcpy(At(data, begin), sent.get(), piece);
    }
    return 0;
}

int MpiCommunicator::AllToAll(const void* mine, std::size_t bytes, void* all) {
    const auto numRanks = static_cast<std::size_t>(Size());
    for (std::size_t begin = 0; begin < bytes; begin += pieceOfRank) {
        const std::size_t piece = std::min(pieceOfRank, bytes - begin);
        const int count = static_cast<int>(piece);
        for (std::size_t r = 0; r < numRanks; ++r) {
            std::memcpy(sent.get() + r * piece, At(mine, r * bytes + begin), piece);
        }
        const int status = Exchange([&](MPI_Request* request) {
            return MPI_Ialltoall(sent.get(), count, MPI_BYTE, received.get(), count, MPI_BYTE,
                                 MPI_COMM_WORLD, request);
        });
        if (status != 0) return -1;
        for (std::size_t r = 0; r < numRanks; ++r) {
            std::memcpy(At(all, r * bytes + begin), received.get() + r * piece, piece);
        }
    }
    return 0;
}

// Calls start(request) and waits until the exchange has ended or a rank has left.
template <typename Start>
int MpiCommunicator::Exchange(const Start& start) {
    MPI_Request request = MPI_REQUEST_NULL;
    if (!link.IsLost()) {
        const std::lock_guard<std::mutex> lock(link.Mutex());
        if (start(&request) != MPI_SUCCESS) link.Lose();
    }
    if (request != MPI_REQUEST_NULL) return WaitFor(request);
    link.NoteRefusal(false);
    return -1;
}

// A rank that has left may have done so after this exchange, which then still ends.
int MpiCommunicator::WaitFor(MPI_Request& request) {
    constexpr std::chrono::milliseconds kPatience{500};
    std::optional<Pause> lost;
    for (const Pause pause; !lost || lost->Waited() < kPatience; pause()) {
        if (!lost && link.IsLost()) lost.emplace();
        int fEnded = 0;
        const std::lock_guard<std::mutex> lock(link.Mutex());
        if (MPI_Test(&request, &fEnded, MPI_STATUS_IGNORE) != MPI_SUCCESS) link.Lose();
        if (fEnded != 0) return 0;
    }
    link.NoteRefusal(true);
    return -1;
}

}  // namespace sylvora::mpi

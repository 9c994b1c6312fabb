// The exchanges of a training by ranks that are processes of an MPI job.
#ifndef SYLVORA_MPI_MPICOMMUNICATOR_H
#define SYLVORA_MPI_MPICOMMUNICATOR_H

#include <mpi.h>

#include <cstddef>
#include <memory>

#include "Communicator.h"
#include "RankLink.h"

namespace sylvora::mpi {

// An exchange is made in pieces, so that its counts fit into an int, and with buffers of its own,
// so that MPI never writes to the caller's memory after a rank has left.
class MpiCommunicator : public Communicator {
  public:
    static constexpr std::size_t kPieceBytes = std::size_t{1} << 24;

    // Borrows the link. A piece has at most `mostBytes` bytes of all ranks together,
    // but at least one of each. Throws std::bad_alloc.
    explicit MpiCommunicator(RankLink& rankLink, std::size_t mostBytes = kPieceBytes);

    int Rank() const override { return link.Rank(); }
    int Size() const override { return link.Size(); }
    [[nodiscard]] int AllGather(const void* mine, std::size_t bytes, void* all) override;
    [[nodiscard]] int Broadcast(void* data, std::size_t bytes, int root) override;
    [[nodiscard]] int AllToAll(const void* mine, std::size_t bytes, void* all) override;
    bool Cancelled() override { return link.IsLost(); }

  private:
    template <typename Start>
    int Exchange(const Start& start);
    int WaitFor(MPI_Request& request);

    RankLink& link;
    const std::size_t pieceOfRank;  // bytes
    const std::unique_ptr<char[]> sent, received;
};

}  // namespace sylvora::mpi

#endif  // SYLVORA_MPI_MPICOMMUNICATOR_H

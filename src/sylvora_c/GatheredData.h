// Data that the ranks of a training have gathered, as a handle of the C interface holds them.
#ifndef SYLVORA_SYLVORA_C_GATHEREDDATA_H
#define SYLVORA_SYLVORA_C_GATHEREDDATA_H

#include <memory>

#include "../Communicator.h"
#include "../OwnColumns.h"
#include "../Ranks.h"
#include "../sylvora_c.h"

namespace sylvora::c {

// The functions of a program as a communicator.
class ProgramRanks : public Communicator {
  public:
    explicit ProgramRanks(const sylvora_communicator& given) : functions(given) {}

    int Rank() const override { return functions.rank; }
    int Size() const override { return functions.num_ranks; }
    int AllGather(const void* mine, size_t bytes, void* all) override {
        return Done(functions.allgather(functions.context, mine, bytes, all));
    }
    int Broadcast(void* data, size_t bytes, int root) override {
        return Done(functions.broadcast(functions.context, data, bytes, root));
    }
    int AllToAll(const void* mine, size_t bytes, void* all) override {
        return Done(functions.alltoall(functions.context, mine, bytes, all));
    }
    bool Cancelled() override { return functions.cancelled(functions.context) != 0; }

  private:
    static int Done(int status) { return status == 0 ? 0 : -1; }

    const sylvora_communicator functions;
};

// The columns of this rank, and the way to the other ranks.
struct GatheredData {
    explicit GatheredData(const sylvora_communicator& given) : communicator(given) {}

    // For one training, or one exchange: the ranks and the columns of each.
    Ranks MakeRanks() { return {communicator, columns->Owners()}; }

    ProgramRanks communicator;
    std::unique_ptr<OwnColumns> columns;
};

}  // namespace sylvora::c

#endif  // SYLVORA_SYLVORA_C_GATHEREDDATA_H

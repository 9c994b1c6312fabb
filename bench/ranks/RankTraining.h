// What RankRounds.cpp and MpiRounds.cpp train, and how they measure it.
#ifndef SYLVORA_BENCH_RANKS_RANKTRAINING_H
#define SYLVORA_BENCH_RANKS_RANKTRAINING_H

#include <cstddef>
#include <cstdint>
#include <vector>

#include "Communicator.h"
#include "DataSet.h"
#include "Ranks.h"

namespace sylvora::bench {

// Uniform floats; the label depends on ten columns.
class Table {
  public:
    // With the values of the columns that `rank` owns; all columns if `rank` is -1.
    Table(size_t rows, const std::vector<int>& ownerV, int rank);

    size_t NumRows() const { return labelV.size(); }
    const std::vector<double>& Labels() const { return labelV; }
    // The columns as they are at a rank: those that it does not own are zeros. All if `ranks` is
    // null.
    std::vector<DataColumn> Columns(const Ranks* ranks) const;

  private:
    std::vector<std::vector<float>> columnV;
    std::vector<double> labelV;
    std::vector<std::uint8_t> zeroV;
};

// The owners of the columns, which are dealt out in turn.
std::vector<int> OwnersInTurn(size_t columns, int numRanks);

// Means over the rounds from the second one on, in milliseconds; CPU time is that of the process.
struct RoundFigures {
    double wall = 0.0, cpu = 0.0;
    // With a TimedCommunicator. Of an exchange, the time from when the last rank calls until the
    // last one returns; and how long ranks wait for the last one to call, the mean of all ranks.
    double exchange = 0.0, waiting = 0.0;
    double calls = 0.0;
    double bytes = 0.0;  // sent by all ranks
};

// Notes when each exchange begins and ends, by a clock that all ranks of a machine share.
class TimedCommunicator : public Communicator {
  public:
    explicit TimedCommunicator(Communicator& other) : ranks(other) {}

    int Rank() const override { return ranks.Rank(); }
    int Size() const override { return ranks.Size(); }
    int AllGather(const void* mine, size_t bytes, void* all) override;
    int Broadcast(void* data, size_t bytes, int root) override;
    int AllToAll(const void* mine, size_t bytes, void* all) override;
    bool Cancelled() override { return ranks.Cancelled(); }

    // The rounds that are measured begin or end.
    void MarkRounds() { markV.push_back(callV.size()); }
    // Adds up the exchanges between the two marks, at all ranks; collective. Returns false if an
    // exchange fails.
    [[nodiscard]] bool AddUp(RoundFigures& sums);

  private:
    struct Call {
        double begin, end;  // ms
        double bytes;       // sent by this rank
    };
    template <typename Exchange>
    int Note(size_t bytes, const Exchange& exchange);

    Communicator& ranks;
    std::vector<Call> callV;
    std::vector<size_t> markV;
};

// Trains a GBDT of depth 6. With a communicator, all its ranks call. Returns false if it fails.
[[nodiscard]] bool Train(const Table& table, int numRounds, int numThread,
                         const std::vector<int>& ownerV, TimedCommunicator* communicator,
                         RoundFigures& figures);

// For output: " 12.3 ms, CPU 45.6 ms" and, of several ranks, what they exchange.
void Print(const RoundFigures& figures, bool fRanks);

}  // namespace sylvora::bench

#endif  // SYLVORA_BENCH_RANKS_RANKTRAINING_H

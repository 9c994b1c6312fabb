// How the ranks of a training agree on splits. Each rank has searched the columns that it owns; one
// of them has the split that the reference implementation would find in all columns.
#ifndef SYLVORA_ENGINE_TRAIN_SPLITEXCHANGE_H
#define SYLVORA_ENGINE_TRAIN_SPLITEXCHANGE_H

#include <cstddef>
#include <cstdint>
#include <functional>
#include <type_traits>
#include <vector>

#include "Ranks.h"

namespace sylvora {
namespace engine {

// The best split of a node in the columns of one rank.
struct RankBest {
    double score = -1.0;  // -1: there is none
    // How far the score may be from the reference implementation's score of the same split.
    double error = 0.0;
    double balance = 0.0;  // classification only; see ListCandidate
    int slot = -1;         // needed only with fReferenceScore
    // Score and slot are those of the reference implementation's best split in these columns.
    int fReferenceScore = 0;

    bool Found() const { return score >= 0.0; }
    // The reference implementation's order: the score, then the balance, then the slot.
    bool IsBefore(const RankBest& other) const {
        if (score != other.score) return score > other.score;
        return balance != other.balance ? balance < other.balance : slot < other.slot;
    }
};

// For one thread of each rank, which make the same calls in the same order. Every call throws
// RanksLost, and std::bad_alloc.
class SplitExchange {
  public:
    static constexpr int kNone = -1;

    explicit SplitExchange(Ranks& trainingRanks) : ranks(trainingRanks) {}

    // The highest values of all ranks, which have as many; all are numbers.
    std::vector<double> Highest(const std::vector<double>& ownV);

    // Finds this rank's best splits of some nodes of the batch by reference scores; a split for
    // each, in the same order.
    typedef std::function<std::vector<RankBest>(const std::vector<size_t>& nodeV)> FindScores;
    // Chooses for each node of a batch the rank that has its split; kNone if no rank has one.
    // `ownV` has this rank's best splits. Calls findReferenceScores for the nodes that this rank
    // may win, but whose scores do not decide; at most once.
    std::vector<int> ChooseRanks(const std::vector<RankBest>& ownV,
                                 const FindScores& findReferenceScores);

    // The sides of a node's rows as bits: bit i % 8 of byte i / 8 is 1 if row i goes left.
    static size_t NumBytes(int numRows) { return (static_cast<size_t>(numRows) + 7) / 8; }
    static void Pack(const uint8_t* fLeftV, int numRows, uint8_t* bits);
    static void Unpack(const uint8_t* bits, int numRows, uint8_t* fLeftV);
    static int CountLeft(const uint8_t* bits, int numRows);

    // Copies what the ranks have made for their nodes to all ranks. Node b is of rank rankV[b], or
    // of none, and has the record recordV[b] and the bytes bytesV[b][0, numBytesV[b]). A rank fills
    // them in for its own nodes, and gets them for the others.
    template <typename Record>
    void Share(const std::vector<int>& rankV, std::vector<Record>& recordV,
               const std::vector<uint8_t*>& bytesV, const std::vector<size_t>& numBytesV) {
        static_assert(std::is_trivially_copyable_v<Record>);
        ShareBytes(rankV, reinterpret_cast<uint8_t*>(recordV.data()), sizeof(Record), bytesV,
                   numBytesV);
    }

    bool IsOwn(int rank) const { return rank == ranks.Rank(); }

  private:
    void ShareBytes(const std::vector<int>& rankV, uint8_t* records, size_t recordBytes,
                    const std::vector<uint8_t*>& bytesV, const std::vector<size_t>& numBytesV);

    Ranks& ranks;
};

}  // namespace engine
}  // namespace sylvora

#endif  // SYLVORA_ENGINE_TRAIN_SPLITEXCHANGE_H

// One rank's part in a training by several ranks, beside the growth of the trees.
#ifndef SYLVORA_TREELEARNER_RANKRUN_H
#define SYLVORA_TREELEARNER_RANKRUN_H

#include <string>
#include <vector>

#include "../Ranks.h"
#include "../TreeLearner.h"
#include "base/LargeArray.h"

// Lives as long as one call of Boosting, in learner.rankRun. The calls are collective, for the
// thread that trains, and throw RanksLost. Those that return a status return 0, or -1 after a
// message; all ranks return the same.
class TreeLearner::RankRun {
  public:
    RankRun(TreeLearner& treeLearner, sylvora::Ranks& trainingRanks)
        : learner(treeLearner), ranks(trainingRanks) {}

    // Whether this rank writes the files of the run.
    bool IsFirst() const { return ranks.Rank() == 0; }
    sylvora::Ranks& Peers() { return ranks; }

    // Checks that the ranks begin with the same data, and collects the means of the columns.
    [[nodiscard]] int Begin();
    // Whether all ranks say so, or any of them.
    bool All(bool fMine);
    bool Any(bool fMine) { return !All(!fMine); }
    // Replaces `bytes` by those of rank 0.
    void ShareBytes(std::string& bytes);
    // A value per column, of which each rank has those of its own columns: all of them.
    template <typename Value>
    std::vector<Value> GatherColumns(const std::vector<Value>& ownV) {
        const std::vector<Value> allV = ranks.GatherEach(ownV);
        std::vector<Value> ofOwnersV;
        for (int column = 0; column < ranks.NumColumns(); ++column) {
            const size_t owner = static_cast<size_t>(ranks.OwnerOf(column));
            ofOwnersV.push_back(allV[owner * ownV.size() + static_cast<size_t>(column)]);
        }
        return ofOwnersV;
    }
    bool Owns(int column) const { return ranks.Owns(column); }
    // After step `done`, a round or a tree of a forest: checks that all ranks have the same
    // predictions and random stream.
    [[nodiscard]] int CheckStep(const char* unit, int done);
    // The same for where early stopping stands after a round: ranks that stopped after different
    // rounds would wait for each other.
    [[nodiscard]] int CheckStop(int round, bool fOver);

    // Finds the output of the round's first tree for every row, for UpdatePrediction.
    void FindOutputs();
    double OutputOf(int row) const { return outputV[static_cast<size_t>(row)]; }

  private:
    int CheckStart();
    int RankThatDiffers(const std::vector<uint64_t>& mineV);

    TreeLearner& learner;
    sylvora::Ranks& ranks;
    sylvora::LargeArray<double> outputV;  // by row
};

#endif  // SYLVORA_TREELEARNER_RANKRUN_H

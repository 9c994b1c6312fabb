// What a program may do with some groups, or with single trees, of a model whose trees are packed.
#ifndef SYLVORA_TREELEARNER_MODELPARTS_H
#define SYLVORA_TREELEARNER_MODELPARTS_H

#include <cstddef>
#include <string>

#include "../DataBlock.h"
#include "../ModelText.h"

class TreeLearner;

namespace sylvora {

// All that return an int return 0, or -1 after a message; the result arguments and the learner are
// then as they were. Blocks are read as OnlineTestingBatch reads them, and `maxThreads` is what it
// is there. Functions with a const learner may run at the same time as any others of them.
class ModelParts {
  public:
    // Adds the outputs of the groups [first, end) of a regression to scores[0, numRows), in order:
    // shrink times the mean of the trees. From 0 and over all groups, in one call or in several,
    // this gives the scores of OnlineTestingBatch bit for bit.
    struct Groups {
        long long first, end;
    };
    [[nodiscard]] static int AddGroups(const TreeLearner& learner, const DataBlock& block,
                                       Groups groups, double* scores, int maxThreads);
    // Writes the number of the leaf that row r reaches in tree t, counted over all groups, to
    // leaves[r * numTrees + t].
    [[nodiscard]] static int FindLeaves(const TreeLearner& learner, const DataBlock& block,
                                        int* leaves, int maxThreads);
    // Writes the share of the trees of all groups that vote for class c, for row r of a
    // classification, to shares[r * numClass + c].
    [[nodiscard]] static int CountVotes(const TreeLearner& learner, const DataBlock& block,
                                        double* shares, int maxThreads);

    // Drops all groups but the first `numGroups`, at least one.
    [[nodiscard]] static int Cut(TreeLearner& learner, long long numGroups);
    // Sets the depth of each tree to that of its last node, as training does; reading a model does
    // not keep what the file says. Saved again, a model of a training is then the same file.
    static void DeriveDepths(TreeLearner& learner);
    // The text, with 17 digits and a description, of the model that a training under way would have
    // if it ended here. The trees of a forest that are grown already are its group. `description`
    // gets the covers, unless the learner keeps none. To be called by a progress function.
    [[nodiscard]] static int SaveSoFar(TreeLearner& learner, ModelDescription& description,
                                       std::string& text);

  private:
    class Work;
};

}  // namespace sylvora

#endif  // SYLVORA_TREELEARNER_MODELPARTS_H

// Weights that the user sets: the engine against the reference implementation, and a debug report
// that must not change a tree.
//
// SYLVORA_DIFFERENTIAL in the environment multiplies the number of data sets.
#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <string>

#include "HostileSets.h"

namespace {

using hostile::ExpectSame;
using hostile::Maker;
using hostile::Outcome;
using hostile::Set;

// Weights from 0 to 5, with a few negative and a few large ones.
void SetWeights(TreeLearner& learner, unsigned seed) {
    std::mt19937 random(seed);
    for (int i = 0; i < learner.sampleSize; ++i) {
        int weight = static_cast<int>(random() % 6);
        if (random() % 40 == 0) weight = -7;
        if (seed % 3 == 0 && random() % 20 == 0) weight = 1000000;
        learner.numPairDistinctQueV[i] = weight;
    }
}

void StartWeighted(TreeLearner& learner) {
    SetWeights(learner, static_cast<unsigned>(learner.sampleSize));
}

// The engine may already have sampled the next tree's rows, with the previous weights.
int ChangeWeights(void* context, int done, int) {
    TreeLearner& learner = *static_cast<TreeLearner*>(context);
    if (done % 3 == 0) {
        std::fill_n(learner.numPairDistinctQueV, learner.sampleSize, 1);
    } else {
        SetWeights(learner, static_cast<unsigned>(done));
    }
    return 0;
}

void ExpectEqual(Set set, unsigned seed) {
    std::string reference;
    for (const int numThread : {1, 4}) {
        set.cfg.fDebug = false;
        set.cfg.numThread = numThread;  // a model of ranking may depend on it
        reference = Outcome(set, "1", "");
        for (const char* tuning : {"", "smallNode=4 chunkRows=8 listPercent=101",
                                   "smallNode=4 listPercent=101 leastRows=2147483647"}) {
            ExpectSame(set, reference, tuning, seed);
        }
    }
    set.cfg.fDebug = true;  // CheckCfg resets it for a forest
    set.cfg.fileDebug = "/dev/null";
    ExpectSame(set, reference, "", seed);
}

TEST(WeightsDifferential, EngineAndDebugReportGrowTheSameTrees) {
    for (unsigned seed = 1; seed <= hostile::Scaled(240) && !HasFatalFailure(); ++seed) {
        Set set = seed % 2 == 0 ? Maker(seed).MakeListed(120) : Maker(seed).Make();
        if (seed % 8 == 1) set = Maker(seed).MakeLarger(300);
        set.cfg.numTree = std::max(set.cfg.numTree, 4);
        if (seed % 5 != 0) set.prepared = StartWeighted;
        if (seed % 5 < 2) set.progress = ChangeWeights;
        ExpectEqual(set, seed);
    }
}

// Nodes sum weights as ints.
TEST(WeightsDifferential, SumsThatNoIntHoldsAreRefused) {
    Set set = Maker(1).MakeLarger(300);
    set.cfg.numThread = 2;
    set.cfg.valSmpRt = 1.0;
    set.prepared = [](TreeLearner& learner) {
        std::fill_n(learner.numPairDistinctQueV, learner.sampleSize, 0);
        std::fill_n(learner.numPairDistinctQueV, 2, 1 << 30);
    };
    for (const char* reference : {"0", "1"}) {
        EXPECT_NE(Outcome(set, reference, "")
                      .find("ERROR: The weights of the tree's 2 rows add up to 2147483648, more "
                            "than 2147483647: use smaller weights!\n"),
                  std::string::npos);
    }
    set.prepared = [](TreeLearner& learner) {
        std::fill_n(learner.numPairDistinctQueV, learner.sampleSize, 0);
        std::fill_n(learner.numPairDistinctQueV, 2, (1 << 30) - 1);
    };
    EXPECT_TRUE(Outcome(set, "0", "") == Outcome(set, "1", ""));
    EXPECT_EQ(Outcome(set, "0", "").find("ERROR"), std::string::npos);
}

}  // namespace

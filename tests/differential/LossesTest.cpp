// Losses that set the values of nodes: the engine against the reference implementation, with
// weights, sampled rows and several threads.
//
// SYLVORA_DIFFERENTIAL in the environment multiplies the number of data sets.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <random>

#include "HostileSets.h"

namespace {

using hostile::ExpectSame;
using hostile::Maker;
using hostile::Outcome;
using hostile::Set;

const char* const kLosses[] = {"LogLoss", "Absolute", "Huber", "Quantile", "Square"};

// Labels for the loss: finite, and two classes for the log loss.
void Adapt(Set& set, unsigned seed) {
    CheckCfgCLS& c = set.cfg;
    c.modelType = "GBDT";
    c.lossFunc = kLosses[seed % 5];
    c.quantile = seed % 2 == 0 ? 0.5 : 0.8;
    c.huberDelta = seed % 3 == 0 ? 1e-3 : 0.7;
    set.queries.clear();
    if (c.lossFunc != "LogLoss") return;
    const double low = seed % 2 == 0 ? 0 : -1;
    for (size_t i = 0; i < set.labels.size(); ++i) {
        set.labels[i] = i == 1 || (i > 1 && set.labels[i] > 0.5) ? 1 : low;
    }
}

// Weights from 0 to 4; some for all rows the same.
void SetWeights(TreeLearner& learner) {
    std::mt19937 random(static_cast<unsigned>(learner.sampleSize));
    VecInt weights(static_cast<size_t>(learner.sampleSize), 3);
    for (int& weight : weights) {
        if (learner.sampleSize % 4 != 0) weight = static_cast<int>(random() % 5);
    }
    weights[0] = weights[weights.size() > 1] = 1;  // both classes of the log loss
    ASSERT_EQ(learner.setWeights(weights.data(), learner.sampleSize), 0);
}

TEST(LossesDifferential, EngineEqualsReference) {
    unsigned numTrained = 0;
    for (unsigned seed = 1; seed <= hostile::Scaled(250) && !HasFatalFailure(); ++seed) {
        Set set = seed % 10 == 9 ? Maker(seed).MakeLarger(3000) : Maker(seed).Make();
        if (set.labels.size() < 2) continue;
        Adapt(set, seed);
        if (seed % 3 != 0) set.prepared = SetWeights;
        set.cfg.numThread = 1;
        const std::string reference = Outcome(set, "1", "");
        int status = 0;
        reference.copy(reinterpret_cast<char*>(&status), sizeof status);
        numTrained += status == 0;
        for (const int numThread : {1, 4}) {
            set.cfg.numThread = numThread;
            for (const char* tuning : {"", "smallNode=4 chunkRows=8"}) {
                ExpectSame(set, reference, tuning, seed);
            }
            ASSERT_TRUE(Outcome(set, "1", "") == reference) << "data set " << seed;
        }
    }
    EXPECT_GT(numTrained, hostile::Scaled(220));
}

}  // namespace

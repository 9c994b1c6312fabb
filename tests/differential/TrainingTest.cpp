// The engine against the reference implementation, on small hostile data sets and through every
// code path of the engine. Nodes, the sums of their rows, predictions and the random generator's
// state must be equal bit for bit.
//
// SYLVORA_DIFFERENTIAL in the environment multiplies the number of data sets, and the rows of the
// larger ones.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <string>

#include "HostileSets.h"
#include "god.h"

namespace {

using hostile::ExpectSame;
using hostile::Maker;
using hostile::Outcome;
using hostile::Set;

TEST(TrainingDifferential, EngineEqualsReference) {
    static const char* const kTunings[] = {
        "",
        "smallNode=0",
        "smallNode=0 mostBins=16 cellCost=0 fewKeys=0",
        "smallNode=8 mostBins=4 cellCost=0 chunkRows=4",
        "tinyNode=0 smallNode=20",
        "smallNode=0 mostBins=2 fewKeys=4 cellCost=1 rankBits=2",
        "smallNode=4 mostBins=8 leastRows=2147483647"};  // integers as in the largest trees
    for (unsigned seed = 1; seed <= hostile::Scaled(600) && !HasFatalFailure(); ++seed) {
        const Set set = Maker(seed).Make();
        const std::string reference = Outcome(set, "1", "");
        for (const char* tuning : kTunings) ExpectSame(set, reference, tuning, seed);
    }
}

// Enough rows for bins of several ranks, and for several workers per node; 200,000 rows if
// SYLVORA_DIFFERENTIAL is 5 or more.
TEST(TrainingDifferential, EngineEqualsReferenceOnLargerSets) {
    static const char* const kTunings[] = {
        "", "smallNode=0 fewKeys=0 cellCost=0 chunkRows=500 rankBits=3", "leastRows=2147483647"};
    const int numRows = static_cast<int>(std::clamp(hostile::Scaled(40000), 20000u, 200000u));
    const unsigned numLarge = 2 + hostile::Scaled(1);
    for (unsigned seed = 1; seed <= 3 * numLarge && !HasFatalFailure(); ++seed) {
        const bool fLarge = seed <= numLarge;
        Set set = Maker(seed).MakeLarger(fLarge ? numRows : 6000, seed % 3 == 0);
        const std::string reference = Outcome(set, "1", "");
        for (const int numThread : {1, 3, 8}) {
            set.cfg.numThread = numThread;
            for (const char* tuning : kTunings) ExpectSame(set, reference, tuning, seed);
        }
    }
}

// Changes everything that the engine may already have used to sample the next tree's rows.
int Meddle(void* context, int done, int) {
    TreeLearner& learner = *static_cast<TreeLearner*>(context);
    learner.valSmpRt = done % 3 == 0 ? 0.5 : 0.9;
    if (done == 3 && learner.CfgInfo.modelType == "GBRank") learner.CfgInfo.randomMode = "QUERY";
    if (done % 2 == 0) static_cast<void>(ranz(&gseed));
    return 0;
}

TEST(TrainingDifferential, OddSettingsAndCallbacks) {
    struct Oddity {
        const char* what;
        void (*apply)(Set& set);
    };
    static const Oddity kOddities[] = {
        {"a ratio of NaN", [](Set& set) { set.cfg.ratio = std::nan(""); }},
        {"a negative ratio",
         [](Set& set) { set.unchecked = [](CheckCfgCLS& cfg) { cfg.ratio = -2; }; }},
        {"no depth", [](Set& set) { set.unchecked = [](CheckCfgCLS& cfg) { cfg.maxDepth = 0; }; }},
        {"a meddling callback", [](Set& set) { set.progress = Meddle, set.cfg.numTree = 7; }},
    };
    for (const Oddity& oddity : kOddities) {
        for (unsigned seed = 1; seed <= 12 && !HasFatalFailure(); ++seed) {
            SCOPED_TRACE(oddity.what);
            Set set = seed % 3 == 0 ? Maker(seed).MakeListed(80) : Maker(seed).MakeLarger(300);
            oddity.apply(set);
            const std::string reference = Outcome(set, "1", "");
            for (const int numThread : {1, 3}) {
                set.cfg.numThread = numThread;
                ExpectSame(set, reference, "smallNode=8", seed);
            }
        }
    }
}

}  // namespace

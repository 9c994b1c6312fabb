// The engine against the plain form: small hostile data sets, every way through the engine, and
// nothing may differ in a single bit: nodes, their rows' sums, predictions, the random stream.
//
// SYLVORA_DIFFERENTIAL in the environment multiplies the number of data sets, and the rows of the
// larger ones.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <string>

#include "HostileSets.h"
#include "god.h"

namespace {

using hostile::Maker;
using hostile::Outcome;
using hostile::Set;

void ExpectSame(const Set& set, const std::string& plain, const char* tuning, unsigned seed) {
    ASSERT_TRUE(Outcome(set, "0", tuning) == plain)
        << "data set " << seed << ", " << set.cfg.modelType << ", tuning \"" << tuning
        << "\", threads " << set.cfg.numThread << ", rows " << set.rows.size() << ", columns "
        << set.rows[0].size();
}

TEST(TrainingDifferential, EngineEqualsPlainForm) {
    static const char* const kTunings[] = {
        "", "smallNode=0", "smallNode=0 mostBins=16 directPercent=0 fewKeys=0",
        "smallNode=8 mostBins=4 directPercent=0 chunkRows=4",
        "smallNode=0 mostBins=2 fewKeys=4 directPercent=40 rankBits=2"};
    for (unsigned seed = 1; seed <= hostile::Scaled(600) && !HasFatalFailure(); ++seed) {
        const Set set = Maker(seed).Make();
        const std::string plain = Outcome(set, "1", "");
        for (const char* tuning : kTunings) ExpectSame(set, plain, tuning, seed);
    }
    unsetenv("SYLVORA_PLAIN");
    unsetenv("SYLVORA_TUNING");
}

// Enough rows for bytes that stand for several bins, and for workers to share a node; 200,000 with
// SYLVORA_DIFFERENTIAL=5 and more.
TEST(TrainingDifferential, EngineEqualsPlainFormOnLargerSets) {
    static const char* const kTunings[] = {"",
                                           "smallNode=0 fewKeys=0 directPercent=0 chunkRows=500 "
                                           "rankBits=3"};
    const int numRows = static_cast<int>(std::clamp(hostile::Scaled(40000), 20000u, 200000u));
    const unsigned numLarge = 2 + hostile::Scaled(1);
    for (unsigned seed = 1; seed <= 3 * numLarge && !HasFatalFailure(); ++seed) {
        const bool fLarge = seed <= numLarge;
        Set set = Maker(seed).MakeLarger(fLarge ? numRows : 6000, seed % 3 == 0);
        const std::string plain = Outcome(set, "1", "");
        for (const int numThread : {1, 3, 8}) {
            set.cfg.numThread = numThread;
            for (const char* tuning : kTunings) ExpectSame(set, plain, tuning, seed);
        }
    }
    unsetenv("SYLVORA_PLAIN");
    unsetenv("SYLVORA_TUNING");
}

// Meddles with all that rows for the next tree may have been drawn ahead with.
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
            const std::string plain = Outcome(set, "1", "");
            for (const int numThread : {1, 3}) {
                set.cfg.numThread = numThread;
                ExpectSame(set, plain, "smallNode=8", seed);
            }
        }
    }
    unsetenv("SYLVORA_PLAIN");
    unsetenv("SYLVORA_TUNING");
}

}  // namespace

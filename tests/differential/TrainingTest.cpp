// The engine against the plain form: small hostile data sets, every way through the engine, and
// nothing may differ in a single bit: nodes, their rows' sums, predictions, the random stream.
//
// SYLVORA_DIFFERENTIAL=N in the environment multiplies the number of data sets.
#include <gtest/gtest.h>

#include <cstdlib>
#include <string>

#include "HostileSets.h"

namespace {

using hostile::Maker;
using hostile::Outcome;
using hostile::Set;

TEST(TrainingDifferential, EngineEqualsPlainForm) {
    static const char* const kTunings[] = {"", "smallNode=0",
                                           "smallNode=0 mostBins=16 directPercent=0 fewKeys=0",
                                           "smallNode=8 mostBins=4 directPercent=0",
                                           "smallNode=0 mostBins=2 fewKeys=4 directPercent=40"};
    const char* factor = std::getenv("SYLVORA_DIFFERENTIAL");
    const unsigned times = factor != nullptr ? static_cast<unsigned>(std::atoi(factor)) : 1u;
    const unsigned numSets = 600 * times;
    for (unsigned seed = 1; seed <= numSets; ++seed) {
        const Set set = Maker(seed).Make();
        const std::string plain = Outcome(set, "1", "");
        for (const char* tuning : kTunings) {
            ASSERT_TRUE(Outcome(set, "0", tuning) == plain)
                << "data set " << seed << ", " << set.cfg.modelType << ", tuning \"" << tuning
                << "\", rows " << set.rows.size() << ", columns " << set.rows[0].size();
        }
    }
    unsetenv("SYLVORA_PLAIN");
    unsetenv("SYLVORA_TUNING");
}

}  // namespace

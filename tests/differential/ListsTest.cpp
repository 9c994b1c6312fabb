// The growth on sorted lists against the plain form: classification and forests, with any number of
// threads, alone and in teams.
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

struct Way {
    int numThread;
    const char* tuning;
};

void ExpectEqualForms(Set set, unsigned seed) {
    static const Way kWays[] = {{1, ""},
                                {3, "teamRows=0"},
                                {8, "teamRows=30"},
                                {1, "listPercent=1000"},
                                {3, "listPercent=0 teamRows=10"}};
    const std::string plain = Outcome(set, "1", "");
    for (const Way& way : kWays) {
        if (way.numThread == 8 && seed % 8 != 0) continue;  // more threads than processors: slow
        set.cfg.numThread = way.numThread;
        ASSERT_TRUE(Outcome(set, "0", way.tuning) == plain)
            << "data set " << seed << ", " << set.cfg.modelType << " " << set.cfg.fRegCls << ", "
            << way.numThread << " threads, tuning \"" << way.tuning << "\", rows "
            << set.rows.size() << ", columns " << set.rows[0].size();
    }
}

void ExpectEqualForms(unsigned numSets, int mostRows) {
    for (unsigned seed = 1; seed <= numSets && !testing::Test::HasFatalFailure(); ++seed) {
        ExpectEqualForms(Maker(seed).MakeListed(mostRows), seed);
    }
    unsetenv("SYLVORA_PLAIN");
    unsetenv("SYLVORA_TUNING");
}

TEST(ListsDifferential, EqualPlainForm) {
    const char* factor = std::getenv("SYLVORA_DIFFERENTIAL");
    ExpectEqualForms(400 * (factor != nullptr ? static_cast<unsigned>(std::atoi(factor)) : 1), 300);
}

TEST(ListsDifferential, EqualPlainFormOnLargerSets) {
    ExpectEqualForms(3, 9000);
}

}  // namespace

// The growth on sorted lists against the plain form: classification and forests, with any number of
// threads, alone and in teams.
//
// SYLVORA_DIFFERENTIAL in the environment multiplies the number of data sets.
#include <gtest/gtest.h>

#include <cstdlib>
#include <random>
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
    ExpectEqualForms(hostile::Scaled(400), 300);
}

TEST(ListsDifferential, EqualPlainFormOnLargerSets) {
    ExpectEqualForms(3, 9000);
}

// A column that is its own mirror image: every cut has a twin in the same list with the same score
// but for rounding, and ties leave it to the plain form to say which rounds higher.
TEST(ListsDifferential, EqualPlainFormOnMirroredColumns) {
    for (unsigned seed = 1; seed <= 100 && !testing::Test::HasFatalFailure(); ++seed) {
        std::mt19937 random(seed);
        Set set;
        for (int i = 0; i < 12; ++i) {
            const int value = static_cast<int>(random() % 3);
            const double label = std::normal_distribution<>()(random);
            for (const int side : {value, 5 - value}) {
                set.rows.push_back({static_cast<double>(side)});
                set.labels.push_back(label);
            }
        }
        set.cfg.modelType = "RandomForest";
        set.cfg.fRegCls = "REG";
        set.cfg.numTree = 2;
        set.cfg.ratio = set.cfg.valSmpRt = 1.0;
        set.cfg.fSetThread = true;
        set.cfg.fileModel = "/dev/null";
        ExpectEqualForms(set, seed);
    }
    unsetenv("SYLVORA_PLAIN");
    unsetenv("SYLVORA_TUNING");
}

}  // namespace

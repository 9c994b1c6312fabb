// Tree growth on sorted lists against the reference implementation: classification and forests,
// with any number of threads, with one worker per node and several.
//
// SYLVORA_DIFFERENTIAL in the environment multiplies the number of data sets.
#include <gtest/gtest.h>

#include <random>
#include <string>

#include "HostileSets.h"

namespace {

using hostile::ExpectSame;
using hostile::Maker;
using hostile::Outcome;
using hostile::Set;

struct Variant {
    int numThread;
    const char* tuning;
};

void ExpectEqualReference(Set set, unsigned seed) {
    static const Variant kVariants[] = {{1, ""},
                                        {3, "teamRows=0"},
                                        {8, "teamRows=30"},
                                        {1, "listPercent=1000"},
                                        {3, "listPercent=0 teamRows=10"}};
    const std::string reference = Outcome(set, "1", "");
    for (const Variant& variant : kVariants) {
        if (variant.numThread == 8 && seed % 8 != 0)
            continue;  // more threads than processors: slow
        set.cfg.numThread = variant.numThread;
        ExpectSame(set, reference, variant.tuning, seed);
    }
}

void ExpectEqualReference(unsigned numSets, int mostRows) {
    for (unsigned seed = 1; seed <= numSets && !testing::Test::HasFatalFailure(); ++seed) {
        ExpectEqualReference(Maker(seed).MakeListed(mostRows), seed);
    }
}

TEST(ListsDifferential, EqualReference) {
    ExpectEqualReference(hostile::Scaled(400), 300);
}

TEST(ListsDifferential, EqualReferenceOnLargerSets) {
    ExpectEqualReference(3, 9000);
}

// In a column that is its own mirror image, each candidate has a mirrored one whose score differs
// only by rounding. The reference implementation decides which of these near-ties rounds higher.
TEST(ListsDifferential, EqualReferenceOnMirroredColumns) {
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
        ExpectEqualReference(set, seed);
    }
}

}  // namespace

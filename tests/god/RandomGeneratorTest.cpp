// The random generator: its streams for known seeds, its range for any seed, and bulk draws.
#include "god/RandomGenerator.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <limits>
#include <vector>

#include "RandomStream.h"
#include "claim.h"
#include "god.h"
#include "god/CallContext.h"

namespace {

std::vector<double> Draw(long seed, size_t numDraws) {
    long word = seed;
    std::vector<double> draws(numDraws);
    for (double& draw : draws) draw = ranz(&word);
    return draws;
}

// Computed with Python's integers from the two congruences, word * 40014 mod 2147483563 and
// word * 40692 mod 2147483399, and a table of the first one's steps 8 to 39 that is never
// refreshed: output = table[previous / 67108862] - second, plus 2147483562 where that is below 1,
// divided by 2147483563.
TEST(RandomGenerator, KnownStreams) {
    struct Case {
        long seed;
        double first, second, thousandth;
    };
    const Case cases[] = {
        {-1, 0.2853808990946861, 0.2533581892659171, 0.7779993829922506},
        {-42, 0.564124261937366, 0.9174718744983474, 0.003790649735464355},
        {-1000000000, 0.35732070979301833, 0.6102191334909882, 0.019193968564033194},
    };
    for (const Case& c : cases) {
        const std::vector<double> draws = Draw(c.seed, 1000);
        EXPECT_EQ(draws[0], c.first) << c.seed;
        EXPECT_EQ(draws[1], c.second) << c.seed;
        EXPECT_EQ(draws[999], c.thousandth) << c.seed;
    }
    EXPECT_EQ(Draw(0, 100), Draw(-1, 100));
}

// A positive state word before any initialisation draws from a table of zeros. Runs in a new
// process, where the shared table is still empty.
TEST(RandomGeneratorDeathTest, StartsWithoutInitialisation) {
    testing::FLAGS_gtest_death_test_style = "threadsafe";
    const std::vector<double> expected = {0.6554163483485531, 0.20099518545185716,
                                          0.8936223876466522};
    EXPECT_EXIT(std::exit(Draw(5, 3) == expected ? 0 : 1), testing::ExitedWithCode(0), "");
}

TEST(RandomGenerator, AnySeedStaysInRange) {
    for (const long seed :
         {std::numeric_limits<long>::min(), std::numeric_limits<long>::max(), -(1L << 53),
          -1700000000000L, -(1L << 34), -2L * 2147483563, -2147483563L, 1L << 40}) {
        for (const double draw : Draw(seed, 2000)) {
            ASSERT_TRUE(draw > 0.0 && draw <= 0.99999988) << seed << ": " << draw;
        }
    }
}

// In the scope of a stream &gseed stands for its word. Its numbers are those of gseed in a new
// process: the table is its own, too, as a positive word shows.
TEST(RandomGenerator, OwnStreamsStartAsInANewProcess) {
    constexpr long kLeast = std::numeric_limits<long>::min();
    const std::vector<double> unseeded = {0.6554163483485531, 0.20099518545185716,
                                          0.8936223876466522};
    gseed = 33;
    for (const long seed : {0L, 1L, -1L, 42L, -42L, 1L << 40, kLeast, kLeast + 1}) {
        sylvora::RandomStream stream(seed);
        const sylvora::CallContext context = {&stream, nullptr, nullptr, nullptr};
        const std::vector<double> expected = Draw(seed > 0 ? -seed : seed, 100);
        for (int again = 0; again < 2; ++again) {
            const sylvora::ContextScope scope(&context);
            std::vector<double> drawn;
            while (drawn.size() < 100) {
                drawn.push_back(ranz(&gseed));
                const sylvora::ContextScope none(nullptr);
                Draw(-8, 2);
            }
            EXPECT_EQ(drawn, expected) << seed;
            stream.Seed(seed);
            EXPECT_EQ(Draw(5, 3), unseeded);
            stream.Seed(seed);
        }
    }
    EXPECT_EQ(gseed, 33);
}

// FisherYates advances the state differently from ranz; draws and final state must be the same.
TEST(RandomGenerator, DrawsInBulkAsOneByOne) {
    for (const long seed : {0L, -1L, -12345L, -2147483563L, -2147483564L, -9999999999L}) {
        for (const int n : {1, 5, 1000, 30000}) {
            long single = seed;
            long bulk = seed;
            std::vector<int> expected;
            for (int i = 0; i < n; ++i) {
                expected.push_back(std::min(static_cast<int>((n - i) * ranz(&single)), n - i - 1));
            }
            const double next = ranz(&single);
            std::vector<int> drawn(static_cast<size_t>(n));
            sylvora::Draws(&bulk).FisherYates(n, n, drawn.data());
            EXPECT_EQ(drawn, expected) << seed;
            EXPECT_EQ(ranz(&bulk), next) << seed;
            EXPECT_EQ(bulk, single) << seed;
        }
    }
}

}  // namespace

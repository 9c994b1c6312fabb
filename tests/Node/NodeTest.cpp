// A node without its search: output, sampling of columns and partition.
#include <cmath>
#include <limits>

#include "../Support.h"
#include "Fixture.h"

namespace {

using namespace sylvora::tests;

TEST(Node, OutputsTheMajorityClass) {
    const std::tuple<VecDle, int, double, const char*> cases[] = {
        {{0, 1, 2.9}, 0, 0, "TOSPLIT"}, {{2, 1, 1, 2}, 0, 1, "TOSPLIT"},
        {{0, 2, 2}, 0, 2, "TOSPLIT"},   {{1.2, 1.9}, 0, 1, "TERMINAL"},
        {{-0.5, 0}, 0, 0, "TERMINAL"},  {{0, 3}, -1, -1000, "TOSPLIT"},
        {{-1, 0}, -1, -1000, "TOSPLIT"}};
    for (const auto& [labels, status, expected, nodeStatus] : cases) {
        Table table(VecDle(labels.size()), labels);
        Root node(table, true);
        const auto seen = Observe([&] { return node.ComputeOutput(); });
        EXPECT_EQ(seen.status, status);
        EXPECT_EQ(seen.err.empty(), status == 0) << seen.err;
        EXPECT_EQ(node.avgPredict, expected);
        EXPECT_EQ(node.status, nodeStatus);
    }
}

template <int kColumn, int kStatus>
int Sampler(int, int*& selF, double*&, int, int, bool&) {
    selF[1] = kColumn;
    return kStatus;
}

TEST(Node, RefusesWhatAUserSamplerMustNotReturn) {
    const std::pair<SamplingFeatureType, int> cases[] = {{Sampler<4, 0>, 0},
                                                         {Sampler<-1, 0>, 0},
                                                         {Sampler<0, 1>, -1},
                                                         {Sampler<5, 0>, -1},
                                                         {Sampler<-2, 0>, -1}};
    for (const auto& [sampler, expected] : cases) {
        Table table(VecVecDle{VecDle(5)}, {0}, {1});
        Root node(table);
        const auto seen = Observe([&, s = sampler] { return node.Sample(s, -1); });
        EXPECT_EQ(seen.status, expected);
        EXPECT_EQ(seen.err.empty(), expected == 0);
        if (expected == 0) {
            EXPECT_EQ(node.drawnV[0], -1) << "the sampler left it empty";
        }
    }
}

TEST(Node, PartitionsWithTwoCursors) {
    const double inf = std::numeric_limits<double>::infinity();
    const double up = std::nextafter(1.0, 2.0);  // its midpoint with 1 rounds to one of the two
    const std::tuple<VecDle, double, int, VecInt> cases[] = {
        {{5, 1, 4, 2, 3, 9}, 3, 3, {3, 1, 4, 0, 2, 5}},
        {{up, up, 1}, up, 1, {0, 1, 2}},
        {{2, up, 1}, up, 1, {1, 0, 2}},
        {{1e308, -1e308, 1.7e308}, inf, 2, {0, 1, 2}},
        {{-1e308, 1e308, -1.7e308}, -inf, 1, {0, 1, 2}},
        {{NAN, 1, 2, 0}, 1, 2, {3, 1, 2, 0}},
        {{2, 1, NAN, 0}, 1, 2, {2, 1, 0, 3}},
        {{3, 2, 1}, 0, 0, {0, 1, 2}},
        {{3, 2, 1}, 3, 3, {0, 1, 2}}};
    for (const auto& [column, threshold, countL, expected] : cases) {
        Table table(column, VecDle(column.size()));
        Root node(table);
        node.splitFea = 0;
        node.splitElemFea = threshold;
        node.countL = countL;
        int* indexV = table.indexV.data();
        EXPECT_EQ(node.DataSplit(table.rowV.data(), indexV), 0);
        EXPECT_EQ(table.indexV, expected) << "threshold " << threshold;
        EXPECT_EQ(node.status, countL % 3 == 0 && column.size() == 3 ? "TERMINAL" : "INTERMEDIATE");
    }
}

}  // namespace

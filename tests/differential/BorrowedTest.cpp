// Training on borrowed blocks against training on copied rows: the same nodes, sums, predictions,
// means and random numbers, bit for bit, in every layout and for every model type.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <memory>
#include <numeric>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "DataSet.h"
#include "HostileSets.h"
#include "Layouts.h"
#include "base/BlockReader.h"

namespace {

using hostile::Layout;
using hostile::Maker;
using hostile::Outcome;
using hostile::Set;
using sylvora::DataSet;

// Borrowed values must be finite, and their sums as well.
void MakeFinite(Set& set) {
    for (VecDle& row : set.rows) {
        for (double& value : row) value = std::clamp(value, -1e300, 1e300);
    }
}

Set MakeSet(unsigned seed) {
    Set set = seed % 2 == 0 ? Maker(seed).Make() : Maker(seed).MakeListed(150);
    set.cfg.numThread = seed % 3 == 0 ? 8 : 1;
    MakeFinite(set);
    return set;
}

std::shared_ptr<const DataSet> SetOf(const Layout& layout) {
    std::shared_ptr<const DataSet> data = DataSet::Make(layout.Block());
    EXPECT_NE(data, nullptr);
    return data;
}

std::string Borrowed(Set set, const std::shared_ptr<const DataSet>& data, const char* tuning = "") {
    set.give = [&](TreeLearner& learner) {
        return learner.DataBorrow(data, set.labels.data(), static_cast<int>(set.labels.size()),
                                  set.queries.data(), static_cast<int>(set.queries.size()));
    };
    return Outcome(set, "0", tuning);
}

TEST(Borrowed, EveryLayoutEqualsCopiedRows) {
    static const char* const kTunings[] = {"", "smallNode=0 mostBins=16 cellCost=0 fewKeys=0",
                                           "smallNode=8 mostBins=4 cellCost=0 chunkRows=4"};
    for (unsigned seed = 1; seed <= hostile::Scaled(160) && !HasFailure(); ++seed) {
        Set set = MakeSet(seed);
        for (int kind = 0; kind < Layout::kNumKinds; ++kind) {
            SCOPED_TRACE(testing::Message() << "seed " << seed << ", layout " << kind);
            if (kind == Layout::kFloats) {
                for (VecDle& row : set.rows) {
                    for (double& value : row)
                        value =
                            static_cast<double>(static_cast<float>(std::clamp(value, -1e30, 1e30)));
                }
            }
            const Layout layout(set.rows, static_cast<Layout::Kind>(kind));
            const char* const tuning = kTunings[(seed + static_cast<unsigned>(kind)) % 3];
            EXPECT_TRUE(Borrowed(set, SetOf(layout), tuning) == Outcome(set, "0", tuning));
        }
        const Layout layout(set.rows, Layout::kColumnMajor);
        Set reference = set;  // the rows are copied
        reference.give = [&](TreeLearner& learner) {
            return learner.DataBorrow(SetOf(layout), set.labels.data(),
                                      static_cast<int>(set.labels.size()), set.queries.data(),
                                      static_cast<int>(set.queries.size()));
        };
        EXPECT_TRUE(Outcome(reference, "1", "") == Outcome(set, "1", "")) << "seed " << seed;
    }
}

// Codes stay when the rows change, and are used by trainings of all kinds, at once and in turn.
TEST(Borrowed, SubsetsEqualTheirRows) {
    for (unsigned seed = 1; seed <= hostile::Scaled(80) && !HasFailure(); ++seed) {
        SCOPED_TRACE(seed);
        Set set = MakeSet(seed);
        std::mt19937 random(seed);
        const auto below = [&random](size_t n) { return random() % n; };
        // The set's rows, among others, in another order, and as a subset of a subset.
        VecVecDle wholeV;
        VecInt placeV;
        for (const VecDle& row : set.rows) {
            if (below(3) == 0) wholeV.push_back(set.rows[below(set.rows.size())]);
            placeV.push_back(static_cast<int>(wholeV.size()));
            wholeV.push_back(row);
        }
        VecInt newPlaceV(wholeV.size());
        std::iota(newPlaceV.begin(), newPlaceV.end(), 0);
        if (seed % 4 != 0) std::shuffle(newPlaceV.begin(), newPlaceV.end(), random);
        VecVecDle shuffledV(wholeV.size());
        for (size_t i = 0; i < wholeV.size(); ++i) {
            shuffledV[static_cast<size_t>(newPlaceV[i])] = wholeV[i];
        }
        for (int& place : placeV) place = newPlaceV[static_cast<size_t>(place)];
        const Layout layout(shuffledV, static_cast<Layout::Kind>(seed % Layout::kFloats));
        const auto whole = SetOf(layout);
        VecInt reversedV(placeV.rbegin(), placeV.rend());
        const auto reversed =
            DataSet::Subset(whole, reversedV.data(), static_cast<int>(reversedV.size()));
        VecInt backV(placeV.size());
        std::iota(backV.rbegin(), backV.rend(), 0);
        const auto again = DataSet::Subset(reversed, backV.data(), static_cast<int>(backV.size()));
        const auto direct = DataSet::Subset(whole, placeV.data(), static_cast<int>(placeV.size()));
        const std::string expected = Outcome(set, "0", "smallNode=0 mostBins=8 rankBits=2");
        for (const auto& data : {direct, again}) {
            ASSERT_NE(data, nullptr);
            EXPECT_TRUE(Borrowed(set, data, "smallNode=0 mostBins=8 rankBits=2") == expected);
        }
    }
}

TEST(Borrowed, BlocksScoreLikeRows) {
    for (unsigned seed = 1; seed <= 60 && !HasFailure(); ++seed) {
        Set set = MakeSet(seed);
        sylvora::tests::Messages messages;
        TreeLearner learner(set.cfg);
        ASSERT_EQ(set.cfg.CheckCfg(), 0);
        TreeLearner trained(set.cfg);
        ASSERT_EQ(trained.DataInput(set.labels, set.rows, 0, set.queries, {}), 0);
        if (trained.ParamInit() != 0 || trained.Boosting() != 0) continue;
        VecDle flatV;
        for (const VecDle& row : set.rows) flatV.insert(flatV.end(), row.begin(), row.end());
        VecDle expectedV(set.rows.size()), scoreV(set.rows.size());
        ASSERT_EQ(trained.OnlineTestingBatch(flatV.data(), set.rows.size(), set.rows[0].size(),
                                             expectedV.data(), 1),
                  0);
        for (int kind = 0; kind < Layout::kNumKinds; ++kind) {
            if (kind == Layout::kFloats) continue;
            const Layout layout(set.rows, static_cast<Layout::Kind>(kind));
            ASSERT_EQ(trained.OnlineTestingBatch(layout.Block(), scoreV.data(), 2), 0);
            EXPECT_TRUE(
                std::memcmp(scoreV.data(), expectedV.data(), scoreV.size() * sizeof(double)) == 0)
                << "seed " << seed << ", layout " << kind;
        }
    }
}

TEST(Borrowed, RefusesWhatCannotBeTrainedOn) {
    Set set = Maker(5).MakeLarger(50);
    MakeFinite(set);
    const Layout layout(set.rows, Layout::kRowMajor);
    const auto data = SetOf(layout);
    VecDle nanV(50, 1.0);
    nanV[7] = std::nan("");
    Set infinite = set;
    infinite.rows[3][2] = INFINITY;
    const Layout infiniteLayout(infinite.rows, Layout::kRowMajor);
    struct Case {
        std::shared_ptr<const DataSet> data;
        const double* labels;
        int numLabels, numQueries;
        const char* message;
    };
    const VecInt queryV(50, 0);
    set.cfg.modelType = "GBRank";
    set.cfg.lossFunc = "CrossEntropy";
    const Case kCases[] = {{nullptr, set.labels.data(), 50, 50, "no data set"},
                           {data, nullptr, 50, 50, "null pointer"},
                           {data, set.labels.data(), 49, 50, "49 labels"},
                           {data, set.labels.data(), 50, 51, "51 query ids"},
                           {data, nanV.data(), 50, 50, "label of row 7"},
                           {SetOf(infiniteLayout), set.labels.data(), 50, 50, "row 3, column 2"}};
    for (const Case& at : kCases) {
        sylvora::tests::Messages messages;
        TreeLearner learner(set.cfg);
        EXPECT_EQ(
            learner.DataBorrow(at.data, at.labels, at.numLabels, queryV.data(), at.numQueries), -1);
        EXPECT_NE(messages.Take().find(at.message), std::string::npos) << at.message;
    }
}

// Several trainings that need the codes of one set, and of its subsets, at the same time.
TEST(Borrowed, TrainingsShareASet) {
    Set set = Maker(5).MakeLarger(3000);
    MakeFinite(set);
    set.cfg.fSetThread = true;
    set.cfg.numThread = 2;
    set.cfg.fileModel.clear();
    ASSERT_EQ(set.cfg.CheckCfg(), 0);
    const Layout layout(set.rows, Layout::kRowMajor);
    const auto whole = SetOf(layout);
    VecInt halfV(1500);
    std::iota(halfV.begin(), halfV.end(), 700);
    const auto half = DataSet::Subset(whole, halfV.data(), 1500);
    const auto train = [&](bool fHalf, VecDle& predictionV) {
        TreeLearner learner(set.cfg);
        sylvora::RandomStream stream(7);
        learner.trainingOptions.stream = &stream;
        const int numRows = fHalf ? 1500 : 3000;
        const double* const labels = set.labels.data() + (fHalf ? 700 : 0);
        if (learner.DataBorrow(fHalf ? half : whole, labels, numRows, nullptr, 0) != 0 ||
            learner.ParamInit() != 0 || learner.Boosting() != 0) {
            return;
        }
        predictionV.assign(learner.predictV, learner.predictV + numRows);
    };
    VecVecDle predictionVV(6);
    std::vector<std::thread> threadV;
    for (size_t t = 0; t < predictionVV.size(); ++t) {
        threadV.emplace_back([&, t] { train(t % 2 == 1, predictionVV[t]); });
    }
    for (std::thread& thread : threadV) thread.join();
    for (size_t t = 0; t < predictionVV.size(); ++t) {
        VecDle aloneV;
        train(t % 2 == 1, aloneV);
        ASSERT_FALSE(aloneV.empty());
        EXPECT_EQ(predictionVV[t], aloneV) << t;
    }
}

}  // namespace

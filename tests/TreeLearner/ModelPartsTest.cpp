// Groups and single trees of a model: outputs, leaves, votes, cuts.
#include "TreeLearner/ModelParts.h"

#include <cstdlib>
#include <string>
#include <vector>

#include "../Support.h"
#include "../engine/score/RandomEnsemble.h"
#include "TreeLearner.h"
#include "TreeLearner/EnsembleView.h"

namespace sylvora::tests {
namespace {

// A model with packed trees, with or without its compiled form, and rows to score.
struct Loaded {
    Loaded(const Shape& shape, bool fPlain, unsigned seed = 5)
        : ensemble(shape, seed), width(static_cast<size_t>(shape.dimFea)) {
        setenv("SYLVORA_PLAIN", fPlain ? "1" : "0", 1);
        learner.setPackedTrees(true);
        const std::string text = ModelText(ensemble.source);
        EXPECT_EQ(sylvora::ModelText::Load(text.data(), text.size(), learner, nullptr), 0);
        unsetenv("SYLVORA_PLAIN");
    }

    // The first rows, in a block.
    DataBlock Rows(size_t numRows) {
        valueV = ensemble.Rows(numRows, width + 1);
        const std::int64_t stride = static_cast<std::int64_t>(width) + 1;
        return RowsOf(valueV.data(), static_cast<std::int64_t>(numRows), stride, stride);
    }
    long long NumGroups() const { return learner.getGroupNum(); }
    size_t NumTrees() const { return static_cast<size_t>(learner.getTreeNum()); }
    VecDle Scores(const DataBlock& block) {
        VecDle scoreV(static_cast<size_t>(block.numRows));
        EXPECT_EQ(learner.OnlineTestingBatch(block, scoreV.data(), 1), 0);
        return scoreV;
    }

    RandomEnsemble ensemble;
    const size_t width;
    TreeLearner learner;
    VecDle valueV;
};

// Few and many groups of one or several trees, trees that cannot be coded, rows much wider than
// what the trees test.
std::vector<Shape> Regressions() {
    return {{"boosted", 300},
            {"groups", 20, 6, 0.2, 5, 1000, {3, 0, 1, 20}},
            {"forest", 1, 6, 0.2, 5, 1000, {40}},
            {"deep", 20, 30, 0.4},
            {"wide", 12, 5, 0.2, 5000},
            {"many thresholds", 60, 8, 0.0, 40, 100000, {2, 1, 1}}};
}
std::vector<Shape> Classifications() {
    return {{"votes", 8, 6, 0.2, 5, 1000, {25, 4, 0, 1}, 3},
            {"many classes", 4, 6, 0.2, 5, 1000, {25, 4, 0, 1}, 5000}};
}

// In one call, group by group, and in random ranges, for any number of rows and threads.
TEST(ModelParts, GroupsAddUpToTheScoresInEveryBit) {
    for (const Shape& shape : Regressions()) {
        for (const bool fPlain : {false, true}) {
            SCOPED_TRACE(std::string(shape.name) + (fPlain ? " plain" : ""));
            Loaded model(shape, fPlain);
            for (const size_t numRows : {size_t{1}, size_t{15}, size_t{700}}) {
                const DataBlock block = model.Rows(numRows);
                const std::string expected = Bytes(model.Scores(block));
                for (const long long most : {model.NumGroups(), 1LL, 9LL, 150LL}) {
                    VecDle sumV(numRows, 0.0);
                    for (long long first = 0; first < model.NumGroups();) {
                        const long long step =
                            most == 1 || most == model.NumGroups()
                                ? most
                                : model.ensemble.Below(static_cast<int>(most)) + 1;
                        const long long end = std::min(first + step, model.NumGroups());
                        ASSERT_EQ(ModelParts::AddGroups(model.learner, block, {first, end},
                                                        sumV.data(), most == 9 ? 3 : 1),
                                  0);
                        first = end;
                    }
                    ASSERT_EQ(Bytes(sumV), expected) << numRows << " rows, " << most << " groups";
                }
            }
        }
    }
}

// The leaf of a row, from the nodes as they are.
int LeafOf(const TreeView& tree, const double* row) {
    int k = 0;
    while (!tree.Node(static_cast<size_t>(k)).IsLeaf()) {
        const engine::PackedNode node = tree.Node(static_cast<size_t>(k));
        k = row[node.splitFea] <= node.splitElemFea ? node.lson : node.rson;
    }
    return k;
}

TEST(ModelParts, LeavesAndVotesAreThoseOfTheWalks) {
    std::vector<Shape> shapeV = Regressions();
    for (const Shape& shape : Classifications()) shapeV.push_back(shape);
    for (const Shape& shape : shapeV) {
        for (const bool fPlain : {false, true}) {
            SCOPED_TRACE(std::string(shape.name) + (fPlain ? " plain" : ""));
            Loaded model(shape, fPlain);
            const EnsembleView trees(model.learner);
            for (const size_t numRows : {size_t{3}, size_t{700}}) {
                const DataBlock block = model.Rows(numRows);
                const size_t numClasses = static_cast<size_t>(shape.numClass);
                std::vector<int> leafV(numRows * model.NumTrees(), -1);
                VecDle shareV(numRows * numClasses, -1.0), expectedV(shareV.size(), 0.0);
                ASSERT_EQ(ModelParts::FindLeaves(model.learner, block, leafV.data(), 3), 0);
                for (size_t i = 0; i < numRows; ++i) {
                    VecDle row(model.width);
                    for (size_t c = 0; c < model.width; ++c) {
                        const double value = model.valueV[i * (model.width + 1) + c];
                        row[c] = std::isnan(value) ? kMissingValue : value;
                    }
                    size_t at = i * model.NumTrees();
                    for (size_t g = 0; g < trees.NumGroups(); ++g) {
                        for (size_t t = 0; t < trees.GroupSize(g); ++t, ++at) {
                            const TreeView tree = trees.Tree(g, t);
                            ASSERT_EQ(leafV[at], LeafOf(tree, row.data()));
                            const double value =
                                tree.Node(static_cast<size_t>(leafV[at])).avgPredict;
                            if (numClasses == 0) continue;
                            expectedV[i * numClasses + static_cast<size_t>(value)] += 1.0;
                        }
                    }
                }
                for (double& count : expectedV) count /= static_cast<double>(model.NumTrees());
                if (numClasses == 0) continue;
                ASSERT_EQ(ModelParts::CountVotes(model.learner, block, shareV.data(), 3), 0);
                ASSERT_EQ(shareV, expectedV);
            }
        }
    }
}

// A cut model is the text with fewer groups; it is compiled again.
TEST(ModelParts, ACutModelIsTheSmallerOne) {
    for (const Shape& shape : Regressions()) {
        SCOPED_TRACE(shape.name);
        Loaded whole(shape, false), cut(shape, false);
        const long long half = (whole.NumGroups() + 1) / 2;
        const DataBlock block = whole.Rows(100);
        VecDle expectedV(100, 0.0);
        ASSERT_EQ(ModelParts::AddGroups(whole.learner, block, {0, half}, expectedV.data(), 1), 0);
        ASSERT_EQ(ModelParts::Cut(cut.learner, half), 0);
        EXPECT_EQ(cut.NumGroups(), half);
        EXPECT_EQ(Bytes(cut.Scores(block)), Bytes(expectedV));
        std::string text;
        TreeLearner again;
        ASSERT_EQ(sylvora::ModelText::Save(cut.learner, 17, nullptr, text), 0);
        ASSERT_EQ(sylvora::ModelText::Load(text.data(), text.size(), again, nullptr), 0);
        VecDle scoreV(100);
        ASSERT_EQ(again.OnlineTestingBatch(block, scoreV.data(), 1), 0);
        EXPECT_EQ(Bytes(scoreV), Bytes(expectedV));
    }
}

// One line each, and results that stay as they were.
TEST(ModelParts, WhatCannotBeDoneIsRefused) {
    const Shape regression = {"", 4};
    Shape classes = Classifications()[0];
    Loaded boosted(regression, false), votes(classes, false);
    const DataBlock block = boosted.Rows(30), rows = votes.Rows(30);
    DataBlock narrow = block, strict = block;
    narrow.numColumns = 4;
    strict.fNanMissing = false;
    boosted.valueV[2] = std::nan("");
    VecDle result(100, 7.0);
    std::vector<int> leafV(1000, 7);
    double* const to = result.data();
    TreeLearner& model = boosted.learner;
    const auto refused = [&](const std::function<int()>& call, const char* text) {
        const Outcome seen = Observe(call);
        EXPECT_EQ(seen.status, -1) << text;
        EXPECT_NE(seen.err.find(text), std::string::npos) << seen.err;
        EXPECT_EQ(std::count(seen.err.begin(), seen.err.end(), '\n'), 1) << seen.err;
    };
    using Parts = ModelParts;
    refused([&] { return Parts::AddGroups(model, block, {-1, 2}, to, 1); }, "no groups -1 to 2");
    refused([&] { return Parts::AddGroups(model, block, {3, 2}, to, 1); }, "no groups 3 to 2");
    refused([&] { return Parts::AddGroups(model, block, {0, 5}, to, 1); }, "the model has 4");
    refused([&] { return Parts::AddGroups(model, narrow, {0, 1}, to, 1); }, "has 4 columns");
    refused([&] { return Parts::AddGroups(model, strict, {0, 1}, to, 1); }, "row 0, column 2");
    refused([&] { return Parts::FindLeaves(model, strict, leafV.data(), 1); }, "row 0, column 2");
    refused([&] { return Parts::FindLeaves(model, block, nullptr, 1); }, "null");
    refused([&] { return Parts::CountVotes(model, block, to, 1); }, "regression");
    refused([&] { return Parts::AddGroups(votes.learner, rows, {0, 1}, to, 1); }, "classification");
    refused([&] { return Parts::Cut(model, 0); }, "to 0 groups");
    refused([&] { return Parts::Cut(model, 5); }, "to 5 groups");
    // Loading does not know how many classes there are for sure; scoring refuses such a leaf, too.
    classes.numClass = 3;
    votes.learner.numClass = 1;
    refused([&] { return Parts::CountVotes(votes.learner, rows, to, 1); }, "not one of the 1");
    TreeLearner none;
    refused([&] { return Parts::FindLeaves(none, block, leafV.data(), 1); }, "Wrong tree size");
    EXPECT_EQ(result, VecDle(100, 7.0));
    EXPECT_EQ(leafV, std::vector<int>(1000, 7));
}

}  // namespace
}  // namespace sylvora::tests

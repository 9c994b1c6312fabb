// Whole trees: what limits them, that all ways to grow agree, what they write down, and the walk.
#include <cmath>
#include <memory>

#include "../Node/Bench.h"
#include "../Support.h"
#include "Tree.h"

namespace {

using namespace sylvora::tests;

CheckCfgCLS Settings(const char* modelType, const char* fRegCls, int maxLeaf = 1000,
                     int maxDepth = 20, int numBound = 1) {
    CheckCfgCLS cfg;
    cfg.modelType = modelType;
    cfg.fRegCls = fRegCls;
    cfg.maxLeaf = maxLeaf;
    cfg.maxDepth = maxDepth;
    cfg.numBound = numBound;
    cfg.numClass = kNumClass;
    cfg.ratio = 1.0;
    return cfg;
}

// A tree grown on all rows of the table, which are reordered.
struct Grown {
    Grown(Table& table, CheckCfgCLS cfg, int numThread = kOne,
          SamplingFeatureType sampler = nullptr, const std::string& fileDebug = "",
          fea_debuginfo_t* totals = nullptr) {
        cfg.numThread = numThread;
        tree = std::make_unique<TreeCR>(cfg, sampler);
        std::ofstream debug;
        if (!fileDebug.empty()) debug.open(fileDebug);
        const int numRows = static_cast<int>(table.indexV.size());
        EXPECT_EQ(tree->Init(static_cast<int>(table.valueVV[0].size()), numRows, numRows), 0);
        long seed = -5;
        int* indexV = table.indexV.data();
        const auto grow = numThread == kOne ? &TreeCR::GrowOne : &TreeCR::GrowHalf;
        status = (tree.get()->*grow)(table.rowV.data(), table.gradV.data(), table.weightV.data(),
                                     indexV, false, debug, totals, &seed);
    }
    std::unique_ptr<TreeCR> tree;
    int status;
};

std::string Describe(const TreeCR& tree) {
    std::ostringstream text;
    text << tree.depth << ' ' << tree.numLeaf << '\n';
    for (const NodeCR* node : tree.NodeV) {
        text << node->status << ' ' << node->splitFea << ' ' << node->splitElemFea << ' '
             << node->lson << ' ' << node->rson << ' ' << node->startDoc << ' ' << node->countDoc
             << ' ' << node->depth << ' ' << node->avgPredict << '\n';
    }
    return text.str();
}

TEST(Growth, StopsAtItsLimits) {
    const VecDle stairs = {0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15};
    const struct {
        const char* modelType;
        int maxLeaf, maxDepth, numBound, numLeaf, depth;
    } cases[] = {{"GBDT", 99, 9, 1, 16, 4},        {"GBDT", 2, 9, 1, 2, 1},
                 {"GBDT", 3, 9, 1, 3, 2},          {"GBRank", 1, 9, 1, 2, 1},
                 {"GBDT", 99, 1, 1, 2, 1},         {"CART", 99, 3, 1, 8, 3},
                 {"CART", 99, 9, 16, 2, 1},        {"GBDT", 99, 9, 4, 4, 2},
                 {"RandomForest", 2, 1, 1, 16, 4}, {"RandomForest", 2, 1, 7, 4, 2}};
    for (const auto& c : cases) {
        Table table(stairs, stairs);
        const Grown grown(table, Settings(c.modelType, "REG", c.maxLeaf, c.maxDepth, c.numBound));
        EXPECT_EQ(grown.status, 0);
        EXPECT_EQ(std::pair(grown.tree->numLeaf, grown.tree->depth), std::pair(c.numLeaf, c.depth))
            << c.modelType << ' ' << c.maxLeaf;
    }
}

// Every row reaches the leaf whose slice holds it.
void CheckLeaves(TreeCR& tree, const Table& table) {
    for (const NodeCR* node : tree.NodeV) {
        for (int i = node->startDoc; i < node->startDoc + node->countDoc; ++i) {
            const size_t row = static_cast<size_t>(table.indexV[static_cast<size_t>(i)]);
            if (node->status != "TERMINAL") continue;
            EXPECT_EQ(tree.Predict(table.rowV[row]), node->avgPredict);
        }
    }
}

TEST(Growth, IsTheSameForAnyNumberOfThreads) {
    std::mt19937 random(63);
    for (int run = 0; run < 40; ++run) {
        const bool fClasses = run % 2 == 1;
        const CheckCfgCLS cfg =
            Settings(run % 3 == 0 ? "RandomForest" : "CART", fClasses ? "CLS" : "REG", 2 + run % 13,
                     1 + run % 7, 1 + run % 4);
        const Table fresh(random, 30 + run, 1 + run % 6, fClasses);
        std::string expected;
        for (const int numThread : {kOne, 1, 2, 3, 8}) {
            Table table(fresh.valueVV, fresh.gradV, fresh.weightV);
            const Grown grown(table, cfg, numThread);
            ASSERT_EQ(grown.status, 0);
            CheckLeaves(*grown.tree, table);
            if (numThread == kOne) expected = Describe(*grown.tree);
            EXPECT_EQ(Describe(*grown.tree), expected) << "run " << run;
        }
    }
}

TEST(Growth, WritesDownItsSplitNodes) {
    const TempFolder folder;
    const std::string file = folder.Path("debug.txt");
    CheckCfgCLS cfg = Settings("GBDT", "REG", 3);
    cfg.fPrint = true;
    Table table({{0, 7}, {1, 7}, {2, 7}, {3, 7}}, {-3, -1, 1, 3}, {1, 1, 2, 1});
    VecInt candidateV(2), selectedV(2);
    VecDle criteriaV(2);
    fea_debuginfo_t totals = {candidateV.data(), selectedV.data(), criteriaV.data()};
    const auto seen = Observe([&] { return Grown(table, cfg, 2, nullptr, file, &totals).status; });
    EXPECT_EQ(seen.status, 0);
    EXPECT_EQ(seen.out, "Tree grow complete, depth:2, #leaves:3\n");
    EXPECT_EQ(ReadFile(file), "2\n0 1 \n0 1 \n0 1.5 13.3333 0 4\n0 0.5 10 -2 2\n");
    EXPECT_EQ(candidateV, (VecInt{2, 2}));
    EXPECT_EQ(selectedV, (VecInt{2, 0}));
    EXPECT_NEAR(criteriaV[0], 8 + 16 / 3.0 + 10, 1e-12);
}

int FailBelowTheRoot(int, int*& selF, double*&, int, int depth, bool&) {
    selF[0] = 0;
    return depth;
}

TEST(Growth, EndsWithTheMessagesOfAFailure) {
    Table table({0, 1, 2, 3}, {0, 1, 2, 7});
    const auto sampler = Observe(
        [&] { return Grown(table, Settings("GBDT", "REG"), kOne, FailBelowTheRoot).status; });
    EXPECT_EQ(sampler.status, -1);
    EXPECT_EQ(sampler.err,
              "ERROR: Failed when sampling feature!\nERROR: Failed to sampling feature!\n");
    const auto label = Observe([&] { return Grown(table, Settings("CART", "CLS")).status; });
    EXPECT_EQ(label.status, -1);
    EXPECT_NE(label.err.find("7 found!\nERROR: Failed to get grad sum of a node!\n"),
              std::string::npos);
}

TEST(Growth, ANodeWithoutACutBecomesALeafWithItsValue) {
    Table table({4, 4, 4}, {1, 2, 6});
    EXPECT_EQ(Describe(*Grown(table, Settings("CART", "REG")).tree),
              "0 1\nTERMINAL -1 -1 -1 -1 0 3 0 3\n");
}

TEST(Prediction, SendsEqualValuesLeftAndNaNRight) {
    Table table({0, 2}, {-1, 1});
    const Grown grown(table, Settings("CART", "REG"));
    for (const auto& [value, expected] : {std::pair(1.0, -1.0), {0.9, -1}, {1.1, 1}, {NAN, 1}}) {
        double row[] = {value};
        EXPECT_EQ(grown.tree->Predict(row), expected) << value;
    }
}

}  // namespace

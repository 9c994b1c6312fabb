// Whole trees: debug records, failures and prediction.
#include <cmath>
#include <memory>

#include "../Node/Fixture.h"
#include "../Support.h"
#include "Tree.h"

namespace {

using namespace sylvora::tests;

CheckCfgCLS Settings(const char* modelType, const char* fRegCls, int maxLeaf = 1000) {
    CheckCfgCLS cfg;
    cfg.modelType = modelType;
    cfg.fRegCls = fRegCls;
    cfg.maxLeaf = maxLeaf;
    cfg.maxDepth = 20;
    cfg.numBound = 1;
    cfg.numClass = kNumClass;
    cfg.ratio = 1.0;
    return cfg;
}

// A tree grown on all rows of the table. Permutes the table's row index.
struct Grown {
    Grown(Table& table, CheckCfgCLS cfg, int numThread = kCallingThread,
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
        const auto grow = numThread == kCallingThread ? &TreeCR::GrowOne : &TreeCR::GrowHalf;
        status = (tree.get()->*grow)(table.rowV.data(), table.gradV.data(), table.weightV.data(),
                                     indexV, false, debug, totals, &seed);
    }
    std::unique_ptr<TreeCR> tree;
    int status;
};

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
    const auto sampler = Observe([&] {
        return Grown(table, Settings("GBDT", "REG"), kCallingThread, FailBelowTheRoot).status;
    });
    EXPECT_EQ(sampler.status, -1);
    EXPECT_EQ(sampler.err,
              "ERROR: Failed when sampling feature!\nERROR: Failed to sampling feature!\n");
    const auto label = Observe([&] { return Grown(table, Settings("CART", "CLS")).status; });
    EXPECT_EQ(label.status, -1);
    EXPECT_NE(label.err.find("7 found!\nERROR: Failed to get grad sum of a node!\n"),
              std::string::npos);
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

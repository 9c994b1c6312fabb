// Validation: for given settings, the status, the messages and the settings afterwards.
#include <gtest/gtest.h>

#include <limits>
#include <sstream>
#include <string>

#include "../Support.h"
#include "CheckIn.h"
#include "CheckIn/Parameters.h"

namespace {

using namespace sylvora::tests;

// Calls use(row, value) for each "key=value" of a list.
template <typename Use>
void ForEachSetting(const std::string& settings, Use use) {
    std::istringstream in(settings);
    for (std::string setting; in >> setting;) {
        const size_t at = setting.find('=');
        const sylvora::ParameterRow* row = sylvora::FindParameter(setting.substr(0, at));
        ASSERT_NE(row, nullptr) << setting;
        use(*row, setting.substr(at + 1));
    }
}

CheckCfgCLS Make(const std::string& settings) {
    CheckCfgCLS cfg;
    ForEachSetting(settings, [&](const auto& row, const std::string& value) {
        EXPECT_TRUE(AssignParameter(row, value, cfg)) << row.name;
    });
    return cfg;
}

void Expect(const std::string& settings, const CheckCfgCLS& cfg) {
    ForEachSetting(settings, [&](const auto& row, const std::string& value) {
        EXPECT_EQ(ParameterValue(row, cfg), value) << row.name;
    });
}

TEST(Validation, Table) {
    struct Case {
        const char* given;  // after numThread=1
        int status;
        const char* err;
        const char* after;
    };
    const char specify[] =
        "ERROR: In RandomForest and CART algorithm, please specified the \"fRegCls\" arg!\n";
    const char rankLoss[] =
        "ERROR: Only \"CrossEntropy(default)\" and \"HingeSquareRank\"  can be applied for "
        "GBRank!\n";
    const Case cases[] = {
        {"modelType=GBDT sizeGroup=9 randomMode=QUERY", 0, "",
         "lossFunc=Square fRegCls=REG sizeGroup=1 numTree=500 valShrink=0.09 randomMode=DOC"},
        {"modelType=GBDT fRegCls=CLS lossFunc=Hinge", 0,
         "WARNING: fRegCls should be \"REG\" when using GBDT!\n", "fRegCls=REG lossFunc=Hinge"},
        {"modelType=GBDT lossFunc=Label", -1,
         "ERROR: loss function \"Label\" can not be applied when using GBDT!\n", "fRegCls=REG"},
        {"modelType=GBDT lossFunc=HingeSquareRank fRegCls=CLS", -1,
         "ERROR: loss function \"HingeSquareRank\" can not be applied when using GBDT!\n",
         "fRegCls=CLS"},
        {"modelType=GBDT lossFunc=USER", 0, "", ""},
        {"modelType=GBRank randomMode=QUERY", 0, "",
         "lossFunc=CrossEntropy fRegCls=REG randomMode=QUERY"},
        {"modelType=GBRank fRegCls=CLS lossFunc=HingeSquareRank", 0,
         "WARNING: fRegCls should be \"REG\" when using GBRank!\n", "fRegCls=REG"},
        {"modelType=GBRank lossFunc=Square fRegCls=CLS", -1, rankLoss, "fRegCls=CLS"},
        {"modelType=RandomForest numTree=300 fRegCls=CLS fileDebug=d randomMode=QUERY", 0, "",
         "numTree=1 sizeGroup=300 valShrink=1 lossFunc=Label randomMode=DOC"},
        {"modelType=RandomForest", -1, specify, "numTree=1 sizeGroup=500 lossFunc=-1"},
        {"modelType=RandomForest fRegCls=REG lossFunc=Square", 0,
         "WARNING: Loss function \"Square\" is ignored when using RandomForest!\n",
         "lossFunc=Label"},
        {"modelType=CART fRegCls=REG lossFunc=odd", 0,
         "Notice: In CART, only one tree will be used!\n"
         "WARNING: Loss function \"odd\" is ignored when using CART!\n",
         "numTree=1 sizeGroup=1 valShrink=1 lossFunc=Label"},
        {"modelType=CART numTree=1 fRegCls=CLS lossFunc=Label", 0, "", ""},
        {"modelType=CART numTree=1", -1, specify, "valShrink=1"},
        {"modelType=GBDT fRegCls=reg", -1, "ERROR: No such fRegCls: \"reg\"!\n", ""},
        {"", -1, specify, "sizeGroup=1"},
        {"modelType=Tree fRegCls=REG", -1, "ERROR: No such model type \"Tree\"!\n", ""},
        {"modelType=Tree fRegCls=CLS lossFunc=Square", 0, "", "fRegCls=CLS"},
        {"modelType=Tree fRegCls=CLS lossFunc=odd", -1, "ERROR: No such loss function: odd!\n", ""},
        {"modelType=RandomForest numTree=0 sizeGroup=9", -1, "ERROR: Illegal numTree: \"0\"!\n",
         "sizeGroup=9 valShrink=0.09"},
        {"modelType=GBDT valSmpRt=1 ratio=1 numThread=256", 0, "", ""},
        {"modelType=GBDT valSmpRt=0", -1, "ERROR: Illegal data sampling ratio, valSmpRt: 0!\n", ""},
        {"modelType=GBDT valSmpRt=1.5", -1, "ERROR: Illegal data sampling ratio, valSmpRt: 1.5!\n",
         ""},
        {"modelType=GBDT ratio=-0.25", -1, "ERROR: Illegal feature sampling ratio: -0.25!\n", ""},
        {"modelType=GBDT ratio=1e7", -1, "ERROR: Illegal feature sampling ratio: 1e+07!\n", ""},
        {"modelType=GBDT maxLeaf=0", -1, "ERROR: Illegal max leaf, maxLeaf: 0!\n", ""},
        {"modelType=GBDT maxDepth=-1", -1, "ERROR: Illegal max depth, maxDepth: -1!\n", ""},
        {"modelType=GBDT numBound=0", -1, "ERROR: Illegal numBound: 0!\n", ""},
        {"modelType=GBDT numThread=0", -1, "ERROR: Illegal numThread: 0!\n", ""},
        {"modelType=GBDT numThread=257", -1,
         "ERROR: No larger than 256 numThreads is allowed for tree models training!\n", ""},
        {"modelType=GBDT randomMode=doc", -1, "ERROR: No such random mode, randomMode: doc!\n", ""},
        {"modelType=GBDT absent=zero", 0, "", "absent=zero"},
        {"modelType=GBDT absent=0 randomMode=QUERY", -1,
         "ERROR: No such absent: \"0\", it is missing or zero!\n", "randomMode=DOC"},
        {"modelType=GBDT lossFunc=LogLoss", 0, "", "fRegCls=REG huberDelta=1 quantile=0.5"},
        {"modelType=GBDT lossFunc=Absolute", 0, "", ""},
        {"modelType=GBDT lossFunc=Huber huberDelta=1e-9", 0, "", ""},
        {"modelType=GBDT lossFunc=Quantile quantile=0.9", 0, "", ""},
        {"modelType=GBRank lossFunc=LogLoss", -1, "ERROR: No such loss function: LogLoss!\n", ""},
        {"modelType=Tree fRegCls=REG lossFunc=Huber", -1, "ERROR: No such loss function: Huber!\n",
         ""},
        {"modelType=CART numTree=1 fRegCls=REG lossFunc=LogLoss", 0,
         "WARNING: Loss function \"LogLoss\" is ignored when using CART!\n", "lossFunc=Label"},
        {"modelType=GBDT huberDelta=0", -1,
         "ERROR: Illegal huberDelta: 0, it must be finite and above 0!\n", ""},
        {"modelType=GBDT huberDelta=1e999", -1,
         "ERROR: Illegal huberDelta: inf, it must be finite and above 0!\n", ""},
        {"modelType=GBDT quantile=1", -1,
         "ERROR: Illegal quantile: 1, it must be between 0 and 1!\n", ""},
        {"modelType=GBDT quantile=0 absent=none", -1,
         "ERROR: No such absent: \"none\", it is missing or zero!\n", "quantile=0"},
        {"modelType=GBRank earlyStop=9 evalEvery=1", 0, "", ""},
        {"modelType=GBDT earlyStop=-1 evalEvery=-1", -1,
         "ERROR: Illegal earlyStop: -1, it must be 0 or more!\n", ""},
        {"modelType=GBDT evalEvery=-1", -1, "ERROR: Illegal evalEvery: -1, it must be 0 or more!\n",
         ""},
        {"modelType=GBDT checkpointEvery=-1", -1,
         "ERROR: Illegal checkpointEvery: -1, it must be 0 or more!\n", ""},
        {"modelType=GBDT checkpoint=c fTestRealTime=true", -1,
         "ERROR: checkpoint c: does not go together with fTestRealTime, which reports on every "
         "round; leave out one of them!\n",
         ""},
        {"modelType=RandomForest fRegCls=REG checkpoint=c fileDebug=d", 0, "", ""},
        {"modelType=RandomForest fRegCls=REG earlyStop=1", -1,
         "ERROR: earlyStop needs the rounds of GBDT or GBRank, a RandomForest has none!\n",
         "lossFunc=Label"},
        {"modelType=CART fRegCls=REG numTree=1 earlyStop=1", -1,
         "ERROR: earlyStop needs the rounds of GBDT or GBRank, a CART has none!\n", ""},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.given);
        CheckCfgCLS cfg = Make(std::string("numThread=1 ") + c.given);
        const Outcome outcome = Observe([&] { return cfg.CheckCfg(); });
        EXPECT_EQ(outcome.status, c.status);
        EXPECT_EQ(outcome.err, c.err);
        Expect(c.after, cfg);
        EXPECT_EQ(cfg.fQID, cfg.modelType == "GBRank");
        EXPECT_FALSE(cfg.fDebug);  // only the case of a forest sets fileDebug, which it ignores
    }
}

TEST(Validation, ThreadNoticeNanAndSecondCall) {
    CheckCfgCLS cfg = Make("modelType=RandomForest fRegCls=REG numTree=3");
    cfg.ratio = cfg.valSmpRt = std::numeric_limits<double>::quiet_NaN();
    const std::string notice =
        "NOTICE: Thread number have not been set, using single thread for training!\n";
    EXPECT_EQ(Observe([&] { return cfg.CheckCfg(); }).err, notice);
    Expect("numTree=1 sizeGroup=3", cfg);
    EXPECT_EQ(Observe([&] { return cfg.CheckCfg(); }).status, 0);
    Expect("numTree=1 sizeGroup=1 numThread=1", cfg);
}

}  // namespace

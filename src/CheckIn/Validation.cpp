// Validates a parameter set and normalises it for the model type. The rules run in a fixed order.
// The first one that fails ends the check; changes made by earlier rules stay.
#include "Validation.h"

#include <algorithm>
#include <cmath>
#include <iterator>
#include <string>

#include "../CheckIn.h"
#include "../god/Report.h"

namespace {

using sylvora::Fail;
using sylvora::Warn;

constexpr int kMaxThreads = 256;

bool IsForest(const CheckCfgCLS& c) {
    return c.modelType == "RandomForest";
}
bool IsSingleTree(const CheckCfgCLS& c) {
    return c.modelType == "CART";
}
bool IsBoosted(const CheckCfgCLS& c) {
    return c.modelType == "GBDT" || c.modelType == "GBRank";
}

// A forest is one round of all its trees, a CART model one round of one tree.
int CheckTreeCount(CheckCfgCLS& c) {
    if (c.numTree <= 0) return Fail("ERROR: Illegal numTree: \"", c.numTree, "\"!\n");
    c.sizeGroup = 1;
    if (IsForest(c)) {
        c.sizeGroup = c.numTree;
        c.numTree = 1;
        c.valShrink = 1.0;
    }
    if (IsSingleTree(c)) {
        c.valShrink = 1.0;
        if (c.numTree != 1) {
            c.numTree = 1;
            Warn("Notice: In CART, only one tree will be used!\n");
        }
    }
    return 0;
}

int CheckTask(CheckCfgCLS& c) {
    if (c.fRegCls == "-1") {
        if (!IsBoosted(c)) {
            return Fail(
                "ERROR: In RandomForest and CART algorithm, please specified the \"fRegCls\" "
                "arg!\n");
        }
        c.fRegCls = "REG";
    }
    if (c.fRegCls != "REG" && c.fRegCls != "CLS") {
        return Fail("ERROR: No such fRegCls: \"", c.fRegCls, "\"!\n");
    }
    if (IsForest(c)) c.fDebug = false;
    return 0;
}

int ChooseLoss(CheckCfgCLS& c) {
    if (IsForest(c) || IsSingleTree(c)) {
        if (c.lossFunc != "-1" && c.lossFunc != "Label") {
            Warn("WARNING: Loss function \"", c.lossFunc, "\" is ignored when using ", c.modelType,
                 "!\n");
        }
        c.lossFunc = "Label";
    } else if (c.lossFunc == "-1") {
        if (!IsBoosted(c)) return Fail("ERROR: No such model type \"", c.modelType, "\"!\n");
        c.lossFunc = c.modelType == "GBRank" ? "CrossEntropy" : "Square";
    }
    // Deliberate: an unknown model type is accepted if a loss is given.
    static const char* const kLosses[] = {"CrossEntropy", "Square",          "Hinge",
                                          "Label",        "Logistic",        "HingeSquare",
                                          "Exponential",  "HingeSquareRank", "USER"};
    static const char* const kBoostedLosses[] = {"LogLoss", "Absolute", "Huber", "Quantile"};
    const auto isAmong = [&c](const auto& losses) {
        return std::find(std::begin(losses), std::end(losses), c.lossFunc) != std::end(losses);
    };
    if (!isAmong(kLosses) && !(c.modelType == "GBDT" && isAmong(kBoostedLosses))) {
        return Fail("ERROR: No such loss function: ", c.lossFunc, "!\n");
    }
    return 0;
}

int CheckBoostedLoss(CheckCfgCLS& c) {
    const bool fRankLoss = c.lossFunc == "CrossEntropy" || c.lossFunc == "HingeSquareRank";
    if (c.modelType == "GBDT" && (fRankLoss || c.lossFunc == "Label")) {
        return Fail("ERROR: loss function \"", c.lossFunc,
                    "\" can not be applied when using GBDT!\n");
    }
    if (c.modelType == "GBRank" && !fRankLoss) {
        return Fail(
            "ERROR: Only \"CrossEntropy(default)\" and \"HingeSquareRank\"  can be applied for "
            "GBRank!\n");
    }
    if (IsBoosted(c) && c.fRegCls != "REG") {
        Warn("WARNING: fRegCls should be \"REG\" when using ", c.modelType, "!\n");
        c.fRegCls = "REG";
    }
    return 0;
}

// Deliberately written so that NaN is accepted.
bool IsInvalidRatio(double ratio) {
    return ratio <= 0 || ratio > 1;
}

int CheckRanges(const CheckCfgCLS& c) {
    if (IsInvalidRatio(c.valSmpRt)) {
        return Fail("ERROR: Illegal data sampling ratio, valSmpRt: ", c.valSmpRt, "!\n");
    }
    if (IsInvalidRatio(c.ratio)) {
        return Fail("ERROR: Illegal feature sampling ratio: ", c.ratio, "!\n");
    }
    if (c.maxLeaf <= 0) return Fail("ERROR: Illegal max leaf, maxLeaf: ", c.maxLeaf, "!\n");
    if (c.maxDepth <= 0) return Fail("ERROR: Illegal max depth, maxDepth: ", c.maxDepth, "!\n");
    if (c.numBound <= 0) return Fail("ERROR: Illegal numBound: ", c.numBound, "!\n");
    return 0;
}

int CheckThreads(const CheckCfgCLS& c) {
    if (!c.fSetThread) {
        Warn("NOTICE: Thread number have not been set, using single thread for training!\n");
        return 0;
    }
    if (c.numThread < 1) return Fail("ERROR: Illegal numThread: ", c.numThread, "!\n");
    if (c.numThread > kMaxThreads) {
        return Fail("ERROR: No larger than 256 numThreads is allowed for tree models training!\n");
    }
    return 0;
}

int CheckRandomMode(CheckCfgCLS& c) {
    if (c.randomMode != "QUERY" && c.randomMode != "DOC") {
        return Fail("ERROR: No such random mode, randomMode: ", c.randomMode, "!\n");
    }
    if (c.modelType != "GBRank") c.randomMode = "DOC";
    return 0;
}

int CheckDigits(const CheckCfgCLS& c) {
    if (c.digits == 6 || c.digits == 17) return 0;
    return Fail("ERROR: Illegal digits: ", c.digits, ", it must be 6 or 17!\n");
}

int CheckEvaluation(const CheckCfgCLS& c) {
    if (c.earlyStop < 0) {
        return Fail("ERROR: Illegal earlyStop: ", c.earlyStop, ", it must be 0 or more!\n");
    }
    if (c.earlyStop > 0 && (IsForest(c) || IsSingleTree(c))) {
        return Fail("ERROR: earlyStop needs the rounds of GBDT or GBRank, a ", c.modelType,
                    " has none!\n");
    }
    if (c.evalEvery < 0) {
        return Fail("ERROR: Illegal evalEvery: ", c.evalEvery, ", it must be 0 or more!\n");
    }
    return 0;
}

}  // namespace

int sylvora::CheckAbsent(const CheckCfgCLS& cfg) {
    if (cfg.absent == "missing" || cfg.absent == "zero") return 0;
    return Fail("ERROR: No such absent: \"", cfg.absent, "\", it is missing or zero!\n");
}

int sylvora::CheckLossParameters(const CheckCfgCLS& c) {
    if (!(c.huberDelta > 0 && std::isfinite(c.huberDelta))) {
        return Fail("ERROR: Illegal huberDelta: ", c.huberDelta,
                    ", it must be finite and above 0!\n");
    }
    if (!(c.quantile > 0 && c.quantile < 1)) {
        return Fail("ERROR: Illegal quantile: ", c.quantile, ", it must be between 0 and 1!\n");
    }
    return 0;
}

// Both reports would lack the rounds before the checkpoint.
int sylvora::CheckCheckpoint(const CheckCfgCLS& c) {
    if (c.checkpointEvery < 0) {
        return Fail("ERROR: Illegal checkpointEvery: ", c.checkpointEvery,
                    ", it must be 0 or more!\n");
    }
    if (c.fileCheckpoint.empty() || !(c.fDebug || c.fTestRealTime)) return 0;
    return Fail("ERROR: checkpoint ", c.fileCheckpoint, ": does not go together with ",
                c.fDebug ? "fileDebug" : "fTestRealTime",
                ", which reports on every round; leave out one of them!\n");
}

int CheckCfgCLS::CheckCfg() {
    return sylvora::Guarded([&] {
        fQID = modelType == "GBRank";
        const bool fValid =
            CheckTreeCount(*this) == 0 && CheckTask(*this) == 0 && ChooseLoss(*this) == 0 &&
            CheckBoostedLoss(*this) == 0 && CheckRanges(*this) == 0 && CheckThreads(*this) == 0 &&
            CheckRandomMode(*this) == 0 && CheckDigits(*this) == 0 &&
            sylvora::CheckAbsent(*this) == 0 && sylvora::CheckLossParameters(*this) == 0 &&
            CheckEvaluation(*this) == 0 && sylvora::CheckCheckpoint(*this) == 0;
        return fValid ? 0 : -1;
    });
}

// A fixed default keeps every run repeatable.
double CheckCfgCLS::getRandomSeed() const {
    return fSetSeed ? tms_seed : 1.0;
}

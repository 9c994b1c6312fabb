// Mode train: from data files to a model file, and to the model's test metrics.
#include <algorithm>
#include <cmath>
#include <cstring>
#include <deque>
#include <filesystem>
#include <limits>
#include <system_error>
#include <utility>
#include <vector>

#include "Metrics.h"
#include "Modes.h"
#include "Paths.h"
#include "Progress.h"
#include "Scoring.h"
#include "StopSignals.h"
#include "TreeLearner.h"
#include "claim.h"
#include "god/Report.h"
#include "reading/DataFile.h"
#include "reading/DataSet.h"
#include "reading/EarlyRows.h"
#include "reading/ReadingNotices.h"

namespace sylvora::frontend {
namespace {

enum SetType { kTraining = 0, kTest = 1, kDevelopment = 2 };

struct RunSet {
    DataFile file;
    SetType type;
    DataSet data;
};

// Of the files that the library writes after each round: the first, the last, whose name is the
// longest, and those that end in the same number as another file of the command, which they could
// overwrite.
std::vector<NamedPath> ResultFiles(const Command& command) {
    const CheckCfgCLS& cfg = command.cfg;
    if (!cfg.fTestRealTime) return {};
    const char* part = cfg.fRegCls == "CLS" ? ".test" : ".train";
    const std::string base = cfg.pathOutput + cfg.fileResultBase + part + ".txt.";
    std::vector<NamedPath> resultV = {{"fileResultBase", base + "1"},
                                      {"fileResultBase", base + std::to_string(cfg.numTree)}};
    for (const std::string& other : {command.fileCfg, cfg.fileTrain, cfg.fileTest, cfg.fileDev,
                                     cfg.fileTran, cfg.fileModel, cfg.fileDebug, cfg.filePred}) {
        const std::string number = other.substr(other.find_last_not_of("0123456789") + 1);
        if (!number.empty()) resultV.push_back({"fileResultBase", base + number});
    }
    return resultV;
}

int CheckPaths(const Command& command) {
    const CheckCfgCLS& cfg = command.cfg;
    if (RequirePath({"fileTrain", cfg.fileTrain}, "the training data") != 0 ||
        RequirePath({"fileModel", cfg.fileModel}, "the model file to write") != 0) {
        return -1;
    }
    const bool fScores = !cfg.fileTest.empty();
    std::error_code unknown;
    if (fScores && std::filesystem::exists(cfg.fileModel, unknown) &&
        !std::filesystem::is_regular_file(cfg.fileModel, unknown) &&
        !std::filesystem::is_directory(cfg.fileModel, unknown)) {
        return Fail(
            "ERROR: fileModel ", cfg.fileModel,
            ": is no regular file, and the model is read again to score fileTest; leave out "
            "fileTest\n");
    }
    if (!fScores && !cfg.filePred.empty()) {
        Warn("WARNING: filePred ", cfg.filePred, ": stays as it is without fileTest\n");
    }
    std::vector<NamedPath> outputV = ResultFiles(command);
    outputV.insert(outputV.begin(), {{"fileModel", cfg.fileModel},
                                     {"fileDebug", cfg.fDebug ? cfg.fileDebug : ""},
                                     {"filePred", fScores ? cfg.filePred : ""}});
    return CheckFiles(command, outputV);
}

// What the library would take, but the command cannot do or the model file cannot hold.
int CheckSettings(const CheckCfgCLS& cfg) {
    if (cfg.lossFunc == "USER") {
        return Fail(
            "ERROR: lossFunc USER: only a program that links the library can supply a loss\n");
    }
    if (cfg.modelType.empty() || cfg.modelType.find_first_of(" \t\n\v\f\r") != std::string::npos) {
        return Fail("ERROR: modelType \"", cfg.modelType, "\": must be one word, such as GBDT\n");
    }
    if (!std::isfinite(cfg.valTau)) return Fail("ERROR: valTau ", cfg.valTau, ": is not finite\n");
    if (!std::isfinite(static_cast<float>(cfg.valShrink))) {
        return Fail("ERROR: valShrink ", cfg.valShrink, ": is too large for a model file\n");
    }
    return 0;
}

// The seeds of the run: slot 0 draws with gseed, and the library multiplies tms_seed by the number
// of the other slots; both must be a long.
int Seed(CheckCfgCLS& cfg) {
    cfg.tms_seed = cfg.getRandomSeed();
    constexpr double kBound = -static_cast<double>(std::numeric_limits<long>::min());
    const double largest = std::fabs(cfg.tms_seed) * std::max(cfg.sizeGroup - 1, 1);
    if (!(largest < kBound)) {
        return Fail("ERROR: randomSeed ", cfg.tms_seed,
                    ": is too large: in size, and times the trees of a forest, it must be below ",
                    kBound, "\n");
    }
    gseed = -static_cast<long>(std::fabs(cfg.tms_seed));
    return 0;
}

std::vector<RunSet> NameSets(const CheckCfgCLS& cfg) {
    std::vector<RunSet> setV;
    const auto add = [&setV](const char* parameter, const std::string& path, SetType type) {
        if (!path.empty()) setV.push_back({DataFile(parameter, path), type, {}});
    };
    add("fileTrain", cfg.fileTrain, kTraining);
    add("fileTest", cfg.fileTest, kTest);
    add("fileDev", cfg.fileDev, kDevelopment);
    return setV;
}

// All rows of a run are as wide as the widest of any file.
int ReadSets(std::vector<RunSet>& setV, const CheckCfgCLS& cfg) {
    ReadingThreads threads(AskedThreads(cfg));
    std::vector<DataFile*> fileV;
    std::deque<EarlyRows> earlyV;
    long numRows = 0;
    int dim = 0;
    const double absent = AbsentValue(cfg);
    const double memory = EarlyRows::MostMemory() / static_cast<double>(setV.size());
    for (RunSet& set : setV) {
        EarlyRows& early = earlyV.emplace_back(RowRules{RowsOf(dim, absent), true}, memory);
        if (set.file.Scan(threads, early) != 0) return -1;
        numRows += set.file.NumRows();
        fileV.push_back(&set.file);
        dim = WidestRow(fileV, 0);
    }
    // The means of the columns, and what the growth keeps beside each value of the training rows.
    const long numExtra = 1 + setV.front().file.NumRows();
    if (CheckMemory(fileV, numRows, dim, numExtra) != 0) return -1;
    const SetRules rules = {{RowsOf(dim, absent), true}, cfg.modelType == "GBRank"};
    for (RunSet& set : setV) {
        if (ReadSet(set.file, rules, earlyV.front(), threads, set.data) != 0) return -1;
        earlyV.pop_front();
    }
    // One is enough: the files of a run are alike.
    for (const RunSet& set : setV) {
        if (NoticeAbsent(cfg, set.file, dim, set.data.counts)) break;
    }
    return 0;
}

int LoadData(const CheckCfgCLS& cfg, TreeLearner& learner) {
    std::vector<RunSet> setV = NameSets(cfg);
    if (ReadSets(setV, cfg) != 0) return -1;
    // The training set comes last, because it settles the learner's dimension and classes.
    std::rotate(setV.begin(), setV.begin() + 1, setV.end());
    for (RunSet& set : setV) {
        if (HandOver(set.data, set.file, set.type, learner) != 0) return -1;
    }
    return 0;
}

int RefuseSample(double valSmpRt, int count, const char* unit) {
    return Fail("ERROR: valSmpRt ", valSmpRt, " of ", count, " ", unit,
                " is none: no tree could be grown; take more than ", 1.0 / count, "\n");
}

// A single query is left to the library, which cannot sample by queries then and says so.
int CheckSample(const TreeLearner& learner) {
    const auto isNone = [&learner](int count) { return std::trunc(count * learner.valSmpRt) < 1; };
    const int numRows = learner.sampleSize;
    if (isNone(numRows)) return RefuseSample(learner.valSmpRt, numRows, "rows");
    if (learner.CfgInfo.randomMode != "QUERY") return 0;
    const int numQueries = learner.queryIdV[numRows - 1] + 1;
    if (numQueries == 1 || !isNone(numQueries)) return 0;
    return RefuseSample(learner.valSmpRt, numQueries, "queries");
}

int CheckClasses(const CheckCfgCLS& cfg, const TreeLearner& learner) {
    for (int i = 0; cfg.fRegCls == "CLS" && i < learner.sampleSize; ++i) {
        const double label = MapLabel(learner.tranMap, learner.labelV[i]);
        if (std::trunc(label) >= 0) continue;
        return Fail("ERROR: fileTrain ", cfg.fileTrain, ": label ", label,
                    " is no class: classes are 0, 1, 2, ...; labelTran can rename labels\n");
    }
    return 0;
}

int Grow(const CheckCfgCLS& cfg, TreeLearner& learner) {
    // After the training data, whose classes bound the labels of the map.
    if (ReadLabelMap(cfg.fileTran, learner) != 0) return -1;
    if (CheckClasses(cfg, learner) != 0 || CheckSample(learner) != 0 || learner.ParamInit() != 0)
        return -1;
    const StopLater later;  // between two rounds
    ProgressLine progress(learner);
    return learner.Boosting();
}

// What a run loses beside the model: the library goes on without its reports.
int CheckReports(const CheckCfgCLS& cfg, const TreeLearner& trained) {
    if (cfg.fDebug && trained.of_debug.fail()) {
        return Fail("ERROR: fileDebug ", cfg.fileDebug,
                    ": could not be written in full: ", std::strerror(trained.getDebugError()),
                    "\n");
    }
    return trained.getLostResult().empty() ? 0 : -1;
}

// Scores the test data of a trained learner with the model that it wrote.
int ScoreTest(const TreeLearner& trained, TreeLearner& model, ScoredSet& set) {
    Scorer scorer(model, trained.dimFea, AskedThreads(trained.CfgInfo), set.scoreV);
    VecDle rowV;
    for (int i = 0; i < trained.testSize;) {
        const int end = i + static_cast<int>(std::min(scorer.BatchRows(),
                                                      static_cast<size_t>(trained.testSize - i)));
        const size_t numRows = static_cast<size_t>(end - i);
        rowV.clear();
        for (; i < end; ++i) {
            const double* const row = trained.featureTestVV[i];
            rowV.insert(rowV.end(), row, row + trained.dimFea);
            set.labelV.push_back(MapLabel(trained.tranMap, trained.labelTestV[i]));
        }
        if (scorer.Score(rowV.data(), numRows) != 0) return -1;
    }
    if (trained.queryIdTestV != nullptr) {
        set.queryIdV.assign(trained.queryIdTestV, trained.queryIdTestV + trained.testSize);
    }
    return 0;
}

// Says so where the model file, with few digits, is not the ensemble that was trained.
int ReportRounding(const CheckCfgCLS& cfg, const TreeLearner& trained) {
    constexpr int kFewDigits = 6;
    rounding_effect_t effect;
    if (cfg.digits != kFewDigits) return 0;
    if (trained.MeasureRounding(effect, AskedThreads(cfg)) != 0) return -1;
    if (!effect.fCrossed) return 0;
    Warn("Notice: fileModel ", cfg.fileModel, ": thresholds are rounded to six digits, with which ",
         effect.fAtLeast ? "at least " : "", 100.0 * effect.numRows / trained.sampleSize,
         " % of the training rows reach another leaf and a score changes by up to ",
         effect.largestChange, "; digits = 17 writes them in full\n");
    return 0;
}

int ReportTest(const CheckCfgCLS& cfg, TreeLearner& trained) {
    static_cast<void>(trained.ReleaseTrees());  // makes room for the model as it was written
    TreeLearner model;
    ScoredSet set;
    if (LoadModel(cfg.fileModel, model) != 0 || ScoreTest(trained, model, set) != 0) return -1;
    PrintMetrics(model, set);
    return cfg.filePred.empty() ? 0 : WriteScores(cfg.filePred, set.scoreV);
}

}  // namespace

int Train(Command& command) {
    CheckCfgCLS& cfg = command.cfg;
    if (cfg.CheckCfg() != 0 || CheckSettings(cfg) != 0 || CheckPaths(command) != 0 ||
        Seed(cfg) != 0) {
        return -1;
    }
    TreeLearner learner(cfg);
    learner.setVerification(true);
    learner.setPackedTrees(true);
    if (LoadData(cfg, learner) != 0 || Grow(cfg, learner) != 0) return -1;
    if (IsStopWanted()) return Fail("Notice: Stopped by a signal, after the model was written!\n");
    const int reports = CheckReports(cfg, learner);
    if (ReportRounding(cfg, learner) != 0) return -1;
    if (!cfg.fileTest.empty() && ReportTest(cfg, learner) != 0) return -1;
    return reports;
}

}  // namespace sylvora::frontend

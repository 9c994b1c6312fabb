// Mode train: reads the data files, trains, writes the model file and prints its test metrics.
#include <algorithm>
#include <cmath>
#include <cstring>
#include <filesystem>
#include <limits>
#include <memory>
#include <system_error>
#include <utility>
#include <vector>

#include "Checkpoint/Checkpoint.h"
#include "Evaluation/NamedMetrics.h"
#include "Metrics.h"
#include "Modes.h"
#include "Paths.h"
#include "Progress.h"
#include "RankSettings.h"
#include "Ranks.h"
#include "Scoring.h"
#include "StopSignals.h"
#include "TreeLearner.h"
#include "TreeLearner/RoundedNumber.h"
#include "claim.h"
#include "god/Report.h"
#include "reading/DataSet.h"
#include "reading/RankedSets.h"
#include "reading/ReadingThreads.h"
#include "reading/RunSets.h"

namespace sylvora::frontend {
namespace {

// The per-round result files to check: the first, the last (which has the longest name), and those
// whose round number ends another file name of the command, so that they could overwrite that file.
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

// Evaluation and development data need each other.
int CheckDevelopment(const CheckCfgCLS& cfg) {
    const bool fEvaluates = cfg.earlyStop > 0 || cfg.evalEvery > 0;
    if (cfg.fileDev.empty() && fEvaluates) {
        const bool fStops = cfg.earlyStop > 0;
        return Fail("ERROR: ", fStops ? "earlyStop " : "evalEvery ",
                    fStops ? cfg.earlyStop : cfg.evalEvery,
                    ": needs development data to evaluate; set fileDev\n");
    }
    if (!cfg.fileDev.empty() && !fEvaluates) {
        Warn("Notice: fileDev ", cfg.fileDev,
             ": is read but not used; evalEvery prints its metrics, earlyStop stops by them\n");
    }
    return 0;
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
        Warn("WARNING: filePred ", cfg.filePred, ": is not written without fileTest\n");
    }
    if (CheckDevelopment(cfg) != 0) return -1;
    if (!command.IsWriter()) return CheckFiles(command, {});
    std::vector<NamedPath> outputV = ResultFiles(command);
    outputV.insert(outputV.begin(), {{"fileModel", cfg.fileModel},
                                     {"checkpoint", cfg.fileCheckpoint},
                                     {"fileDebug", cfg.fDebug ? cfg.fileDebug : ""},
                                     {"filePred", fScores ? cfg.filePred : ""}});
    return CheckFiles(command, outputV);
}

// Finds a wrong file before the data are read. The rest is checked when the training begins.
int CheckCheckpointFile(const std::string& path) {
    Fingerprint fingerprint;
    const std::string fault = path.empty() ? "" : ReadCheckpointHead(path, fingerprint);
    return fault.empty() ? 0 : Fail("ERROR: checkpoint ", path, ": ", fault, "!\n");
}

// Refuses settings that the library accepts, but that the command cannot carry out or the model
// file cannot represent.
int CheckSettings(const Command& command) {
    const CheckCfgCLS& cfg = command.cfg;
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

// Sets the seeds of the run. Slot 0 draws with gseed; slot k > 0 of a forest with tms_seed times k.
// Both must fit into a long.
int Seed(CheckCfgCLS& cfg) {
    cfg.tms_seed = cfg.getRandomSeed();
    constexpr double kBound = -static_cast<double>(std::numeric_limits<long>::min());
    const double largest = std::fabs(cfg.tms_seed) * std::max(cfg.sizeGroup - 1, 1);
    if (!(largest < kBound)) {
        return Fail(
            "ERROR: randomSeed ", cfg.tms_seed,
            ": is too large: its absolute value, times the trees of a forest, must be below ",
            kBound, "\n");
    }
    gseed = -static_cast<long>(std::fabs(cfg.tms_seed));
    return 0;
}

// Reads the training set by all ranks; each gets the columns that it owns.
int LoadColumns(Communicator& communicator, RankedSet& training, TreeLearner& learner,
                std::vector<RunSet>& setV) {
    ReadingThreads threads(AskedThreads(learner.CfgInfo));
    if (ReadSets(setV, learner.CfgInfo, threads, communicator, training) != 0) return -1;
    learner.trainingOptions.ranks = training.ranks.get();
    for (size_t i = 1; i < setV.size(); ++i) {
        if (HandOver(setV[i].data, setV[i].file, setV[i].type, learner) != 0) return -1;
    }
    if (HandOver(training, setV[0].file, learner) != 0) return -1;
    return WaitForAll(communicator);
}

int LoadData(const Command& command, RankedSet& training, TreeLearner& learner) {
    std::vector<RunSet> setV = NameSets(command.cfg);
    if (command.ranks != nullptr) return LoadColumns(*command.ranks, training, learner, setV);
    if (ReadSets(setV, command.cfg) != 0) return -1;
    // The training set goes last, because it determines the learner's dimension and classes.
    std::rotate(setV.begin(), setV.begin() + 1, setV.end());
    for (RunSet& set : setV) {
        if (HandOver(set.data, set.file, set.type, learner) != 0) return -1;
    }
    return 0;
}

int RefuseSample(double valSmpRt, int count, const char* unit) {
    return Fail("ERROR: valSmpRt ", valSmpRt, " of ", count, " ", unit,
                " is less than one, so no tree can be grown; set it above ", 1.0 / count, "\n");
}

// Refuses a sampling rate that draws no row or query. The case of a single query is left to the
// library, which reports it.
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
        return Fail(
            "ERROR: fileTrain ", cfg.fileTrain, ": label ", label,
            " is not a class: classes are 0, 1, 2, ...; labelTran can map labels to them\n");
    }
    return 0;
}

int Grow(const Command& command, TreeLearner& learner) {
    const CheckCfgCLS& cfg = command.cfg;
    // Needs the training data, whose number of classes bounds the labels of the map.
    if (ReadLabelMap(cfg.fileTran, learner) != 0) return -1;
    if (CheckClasses(cfg, learner) != 0 || CheckSample(learner) != 0 || learner.ParamInit() != 0)
        return -1;
    // Without a table, only the metric that stops the run is worth its time.
    if (cfg.earlyStop > 0 && cfg.evalEvery == 0) {
        learner.trainingOptions.metricV = {
            DefaultStopMetric({cfg.modelType, cfg.lossFunc, cfg.fRegCls == "CLS", cfg.quantile})};
    }
    const StopLater later;  // a signal now ends the training between two rounds
    ProgressLine progress(learner, command.ranks);
    return learner.Boosting();
}

// Checks that the debug report and the result files are complete. The library continues a training
// when it cannot write them.
int CheckReports(const CheckCfgCLS& cfg, const TreeLearner& trained) {
    if (cfg.fDebug && trained.of_debug.fail()) {
        return Fail("ERROR: fileDebug ", cfg.fileDebug,
                    ": could not be written in full: ", std::strerror(trained.getDebugError()),
                    "\n");
    }
    return trained.getLostResult().empty() ? 0 : -1;
}

// Scores the test rows of `trained` with `model`, the model loaded from the written file.
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

// Writes a notice if rounding thresholds to six digits sends training rows to other leaves.
int ReportRounding(const CheckCfgCLS& cfg, const TreeLearner& trained) {
    rounding_effect_t effect;
    if (cfg.digits != kFewDigits) return 0;
    if (trained.MeasureRounding(effect, AskedThreads(cfg)) != 0) return -1;
    if (!effect.fCrossed) return 0;
    Warn("Notice: fileModel ", cfg.fileModel, ": thresholds are rounded to six digits, so ",
         effect.fAtLeast ? "at least " : "", 100.0 * effect.numRows / trained.sampleSize,
         " % of the training rows reach another leaf and a score changes by up to ",
         effect.largestChange, "; digits = 17 writes them in full\n");
    return 0;
}

// Prints which round early stopping chose, if it was on.
void PrintBestRound(const TreeLearner& trained) {
    const EvaluationRecord& record = trained.getEvaluation();
    if (record.bestRound == 0) return;
    Print("best round ", record.bestRound, ": ", record.stopSet, " ", record.stopMetric, " ",
          record.bestValue, "\n");
}

int ReportTest(const CheckCfgCLS& cfg, TreeLearner& trained) {
    // Frees memory for the model that is loaded next.
    static_cast<void>(trained.ReleaseTrees());
    TreeLearner model;
    ScoredSet set;
    if (LoadModel(cfg.fileModel, model) != 0 || ScoreTest(trained, model, set) != 0) return -1;
    PrintMetrics(model, set);
    return cfg.filePred.empty() ? 0 : WriteScores(cfg.filePred, set.scoreV);
}

// Prints what is known about the trained model. A rank has too few columns to measure the rounding.
int Report(const Command& command, TreeLearner& trained) {
    const CheckCfgCLS& cfg = command.cfg;
    PrintBestRound(trained);
    const int reports = CheckReports(cfg, trained);
    if (command.ranks == nullptr && ReportRounding(cfg, trained) != 0) return -1;
    if (!cfg.fileTest.empty() && ReportTest(cfg, trained) != 0) return -1;
    return reports;
}

}  // namespace

int Train(Command& command) {
    CheckCfgCLS& cfg = command.cfg;
    if (cfg.CheckCfg() != 0 || CheckSettings(command) != 0 || CheckPaths(command) != 0 ||
        (command.IsWriter() && CheckCheckpointFile(cfg.fileCheckpoint) != 0) || Seed(cfg) != 0) {
        return -1;
    }
    RankedSet training;
    TreeLearner learner(cfg);
    learner.setVerification(true);
    learner.setPackedTrees(true);
    if (LoadData(command, training, learner) != 0 || Grow(command, learner) != 0) return -1;
    if (IsStopWanted()) return Fail("Notice: Stopped by a signal, after the model was written!\n");
    return command.IsWriter() ? Report(command, learner) : 0;
}

}  // namespace sylvora::frontend

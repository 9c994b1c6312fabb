// Mode analyze: reports what each column contributes to the scores of a data file.
#include <string>

#include "CheckIn/Validation.h"
#include "Modes.h"
#include "Paths.h"
#include "Scoring.h"
#include "StopSignals.h"
#include "god/Report.h"
#include "reading/DataFile.h"
#include "reading/DataSet.h"
#include "reading/EarlyRows.h"
#include "reading/ReadingNotices.h"

namespace sylvora::frontend {
namespace {

int CheckPaths(const Command& command, const std::string& fileReport) {
    const CheckCfgCLS& cfg = command.cfg;
    if (RequirePath({"fileModel", cfg.fileModel}, "the model to analyse") != 0 ||
        RequirePath({"fileTest", cfg.fileTest}, "the data to analyse it on") != 0) {
        return -1;
    }
    return CheckFiles(command, {{"filePred", fileReport}});
}

// Reads fileTest with the model's columns; larger ids in the file are ignored.
int LoadTest(const CheckCfgCLS& cfg, TreeLearner& model) {
    DataFile file("fileTest", cfg.fileTest);
    DataSet set;
    ReadingThreads threads(AskedThreads(cfg));
    const int dim = model.getFeatureDim();
    const double absent = AbsentValue(cfg);
    constexpr bool kFinite = false;
    EarlyRows early({FirstColumnsOf(dim, dim, absent), kFinite});
    if (file.Scan(threads, early) != 0) return -1;
    if (CheckMemory({&file}, file.NumRows(), dim) != 0) return -1;
    const SetRules rules = {{FirstColumnsOf(dim, file.LargestId(), absent), kFinite},
                            model.CfgInfo.modelType == "GBRank"};
    if (ReadSet(file, rules, early, threads, set) != 0) return -1;
    NoticeLargerIds(file, dim, set.counts);
    NoticeAbsent(cfg, file, dim, set.counts);
    constexpr int kTest = 1;
    return HandOver(set, file, kTest, model);
}

// Refuses a model without trees: any text that begins with 0 loads as one, and its report would
// look like a valid report.
int CheckTrees(const CheckCfgCLS& cfg, const TreeLearner& model) {
    if (model.getTreeNum() > 0) return 0;
    return Fail("ERROR: fileModel ", cfg.fileModel, ": has no trees\n");
}

int AskForStop(void* /*context*/, int /*done*/, int /*total*/) {
    return IsStopWanted() ? 1 : 0;
}

int WriteReport(TreeLearner& model, const std::string& fileReport) {
    const StopLater later;
    model.setProgress(AskForStop, nullptr);
    if (model.FeatureAnalysis(fileReport) == 0) return 0;
    return Fail("ERROR: filePred ", fileReport, ": the report was not written\n");
}

}  // namespace

int Analyze(const Command& command) {
    const CheckCfgCLS& cfg = command.cfg;
    const std::string fileReport =
        cfg.filePred.empty() ? cfg.fileModel + ".features" : cfg.filePred;
    if (CheckAbsent(cfg) != 0 || CheckPaths(command, fileReport) != 0) return -1;
    TreeLearner model;
    if (LoadModelOf(cfg, model) != 0 || CheckTrees(cfg, model) != 0 || LoadTest(cfg, model) != 0)
        return -1;
    return WriteReport(model, fileReport);
}

}  // namespace sylvora::frontend

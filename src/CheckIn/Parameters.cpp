// The table of parameters; see Parameters.h.
#include "Parameters.h"

#include "../god/NumberParsing.h"
#include "../god/Report.h"

namespace sylvora {
namespace {

typedef CheckCfgCLS C;
constexpr bool kOption = true;  // may also be set on the command line
constexpr bool kFileOnly = false;

const char kDigit[] = " is not a digit!\n";
const char kInteger[] = " is not a integer!\n";
const char kNumber[] = " is not a number!\n";

ParameterRow File(const char* name, std::string C::*member, bool fOption, const char* meaning,
                  bool C::*given = nullptr) {
    return {name, member, given, fOption, true, "", "", "a file name", meaning};
}

ParameterRow Text(const char* name, std::string C::*member, bool fOption, const char* range,
                  const char* meaning, bool C::*given = nullptr) {
    return {name, member, given, fOption, false, "", "", range, meaning};
}

ParameterRow Switch(const char* name, bool C::*member, const char* meaning) {
    return {name, member, nullptr, kFileOnly, false, "", "", "true, True, false, False", meaning};
}

template <typename Number>
ParameterRow Numeric(const char* name, Number C::*member, bool fOption, const char* range,
                     const char* meaning) {
    return {name, member, nullptr, fOption, false, kDigit, kDigit, range, meaning};
}

// Model, loss and files.
std::vector<ParameterRow> RowsOfModelAndFiles() {
    return {
        Text("mode", &C::mode, kOption, "train (or empty), predict, analyze",
             "What the command does."),
        Text("modelType", &C::modelType, kOption, "GBDT, GBRank, RandomForest, CART",
             "Type of the model."),
        Text("fRegCls", &C::fRegCls, kOption, "REG, CLS",
             "Regression or classification. GBDT and GBRank always use REG; RandomForest and CART "
             "need a value."),
        Text("lossFunc", &C::lossFunc, kOption,
             "GBDT: Square, Logistic, HingeSquare, Exponential, LogLoss, Absolute, Huber, "
             "Quantile, USER (programs only); GBRank: CrossEntropy, HingeSquareRank; RandomForest, "
             "CART: Label",
             "Loss to minimise. If not given (-1), the first one listed for the model type."),
        File("fileTrain", &C::fileTrain, kOption, "Training data."),
        File("fileTest", &C::fileTest, kOption, "Test data."),
        File("fileDev", &C::fileDev, kFileOnly, "Development data; see evalEvery and earlyStop."),
        File("labelTran", &C::fileTran, kOption,
             "Label map: each line has two numbers, the label in the data and the label to use "
             "instead.",
             &C::fLabelTran),
        File("fileModel", &C::fileModel, kOption, "Model file to write (train) or to load."),
        File("filePred", &C::filePred, kOption,
             "Output file: scores of the test data, or the report of mode analyze."),
        File("fileDebug", &C::fileDebug, kOption,
             "Debug report, also copied into the model file. Not for RandomForest.", &C::fDebug),
        File("fileResult", &C::fileOut, kFileOnly, "Accepted but not used."),
        File("virScore", &C::fileVirScore, kFileOnly, "Accepted but not used."),
        Text("pathOutput", &C::pathOutput, kFileOnly, "a prefix such as out/",
             "Prefix of fileResultBase; no slash is added between them."),
        Text("fileResultBase", &C::fileResultBase, kFileOnly, "a file name",
             "Base name of the result files; see fTestRealTime."),
    };
}

// The course of a training, and what came later.
std::vector<ParameterRow> RowsOfTraining() {
    return {
        Numeric("numTree", &C::numTree, kOption, "1 or more",
                "Number of boosting rounds, or of trees in a RandomForest."),
        Numeric("valShrink", &C::valShrink, kOption, "a real",
                "Shrinkage (learning rate). RandomForest and CART always use 1."),
        Numeric("maxDepth", &C::maxDepth, kOption, "1 or more",
                "Maximum depth of a tree. Ignored for RandomForest."),
        Numeric("maxLeaf", &C::maxLeaf, kOption, "1 or more",
                "Maximum number of leaves of a tree. Ignored for RandomForest."),
        Numeric("numBound", &C::numBound, kOption, "1 or more",
                "A node other than the root is not split if it has at most this many rows."),
        Numeric("valSmpRt", &C::valSmpRt, kOption, "(0, 1]",
                "Fraction of the rows sampled for each tree."),
        Numeric("ratio", &C::ratio, kOption, "(0, 1]",
                "Fraction of the features sampled at each node."),
        Text("randomMode", &C::randomMode, kOption, "DOC, QUERY",
             "What row sampling draws: single rows (DOC) or whole queries (QUERY, GBRank only)."),
        Numeric("valTau", &C::valTau, kOption, "a real", "Margin of the ranking losses."),
        {"randomSeed", &C::tms_seed, &C::fSetSeed, kOption, false, kNumber, kDigit, "a real",
         "Seed of the random generator."},
        {"numThread", &C::numThread, &C::fSetThread, kOption, false, kDigit, kInteger, "1 to 256",
         "Number of threads. If not given, training uses one thread, and reading and scoring use "
         "all usable processors."},
        Switch("fPrint", &C::fPrint, "Print progress, and each parameter when it is read."),
        Switch("fTestRealTime", &C::fTestRealTime, "Write a result file after every round."),
        Numeric("sizeGroup", &C::sizeGroup, kFileOnly, "an integer",
                "Trees per round. Always computed from the model type."),
        Numeric("temperature", &C::temperature, kFileOnly, "a real", "Accepted but not used."),
        Numeric("scanShrinkCutoff", &C::scanShrinkCutoff, kFileOnly, "an integer",
                "Accepted but not used."),
        Numeric("testCutoff", &C::testCutoff, kFileOnly, "an integer", "Accepted but not used."),
        Switch("fPrintLeafDistribution", &C::fPrintLeafDistribution, "Accepted but not used."),
        Switch("fDynamicStepLength", &C::fSetDynStep, "Accepted but not used."),
        Switch("fSingleTreeLayer", &C::fSingleTreeLayer, "Accepted but not used."),
        Switch("fDev", &C::fDev, "Accepted but not used."),
        Numeric(
            "digits", &C::digits, kOption, "6, 17",
            "Significant digits of reals in the model file. With 17 all numbers are exact, so the "
            "loaded model gives the same scores as the trained one."),
        Text("absent", &C::absent, kOption, "missing, zero",
             "Value of a feature id that a data line omits: the missing value (-2147483648), or 0. "
             "If not given, a notice warns when a file omits most of its values.",
             &C::fSetAbsent),
        Numeric("huberDelta", &C::huberDelta, kOption, "above 0, finite",
                "Loss Huber: the residual from which on the loss grows linearly."),
        Numeric("quantile", &C::quantile, kOption, "(0, 1)",
                "Loss Quantile: the share of labels below the prediction."),
    };
}

// Evaluation during a training, and checkpoints.
std::vector<ParameterRow> RowsOfEvaluation() {
    return {
        Numeric("earlyStop", &C::earlyStop, kOption, "0 or more",
                "Rounds without a better metric on the development data that end a boosting; the "
                "model is then cut to its best round. 0: off."),
        Numeric("evalEvery", &C::evalEvery, kOption, "0 or more",
                "Print the metrics of the development data every so many rounds. 0: never."),
        File(
            "checkpoint", &C::fileCheckpoint, kOption,
            "Training only: file that keeps its state. If it exists, the training goes on from it, "
            "and the model is the one of a training that never stopped. Not with fileDebug or "
            "fTestRealTime."),
        Numeric("checkpointEvery", &C::checkpointEvery, kOption, "0 or more",
                "Rounds of boosting, or trees of a RandomForest, from one writing of the "
                "checkpoint to the next. 0: as many as keep its cost near a twentieth of the time "
                "or below. It is also written at the end."),
    };
}

bool Assign(std::string& value, const std::string& text) {
    value = text;
    return true;
}

bool Assign(bool& value, const std::string& text) {
    const bool fTrue = text == "true" || text == "True";
    if (!fTrue && text != "false" && text != "False") return false;
    value = fTrue;
    return true;
}

template <typename Number>
bool Assign(Number& value, const std::string& text) {
    return ParseNumber(text, value);
}

std::string Show(const std::string& value) {
    return value;
}
std::string Show(bool value) {
    return value ? "true" : "false";
}
template <typename Number>
std::string Show(Number value) {
    return sylvora::Text(value);
}

}  // namespace

const std::vector<ParameterRow>& ParameterTable() {
    static const std::vector<ParameterRow> table = [] {
        std::vector<ParameterRow> rowV = RowsOfModelAndFiles();
        const std::vector<ParameterRow> later = RowsOfTraining();
        rowV.insert(rowV.end(), later.begin(), later.end());
        const std::vector<ParameterRow> evaluation = RowsOfEvaluation();
        rowV.insert(rowV.end(), evaluation.begin(), evaluation.end());
        return rowV;
    }();
    return table;
}

const ParameterRow* FindParameter(const std::string& name) {
    for (const ParameterRow& row : ParameterTable()) {
        if (name == row.name) return &row;
    }
    return nullptr;
}

bool AssignParameter(const ParameterRow& row, const std::string& text, CheckCfgCLS& cfg) {
    const auto assign = [&](auto member) { return Assign(cfg.*member, text); };
    if (!std::visit(assign, row.member)) return false;
    if (row.given != nullptr) cfg.*row.given = true;
    return true;
}

std::string ParameterValue(const ParameterRow& row, const CheckCfgCLS& cfg) {
    return std::visit([&](auto member) { return Show(cfg.*member); }, row.member);
}

}  // namespace sylvora

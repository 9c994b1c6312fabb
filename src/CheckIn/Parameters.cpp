// The table of parameters.
#include "Parameters.h"

#include "../god/NumberParsing.h"
#include "../god/Report.h"

namespace sylvora {
namespace {

typedef CheckCfgCLS C;
constexpr bool kOption = true;  // has a command-line option too
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
ParameterRow Figure(const char* name, Number C::*member, bool fOption, const char* range,
                    const char* meaning) {
    return {name, member, nullptr, fOption, false, kDigit, kDigit, range, meaning};
}

std::vector<ParameterRow> BuildTable() {
    return {
        Text("mode", &C::mode, kOption, "train (or empty), predict, analyze",
             "What the command does."),
        Text("modelType", &C::modelType, kOption, "GBDT, GBRank, RandomForest, CART",
             "Kind of ensemble."),
        Text("fRegCls", &C::fRegCls, kOption, "REG, CLS",
             "Task; always REG for GBDT and GBRank, must be given for RandomForest and CART."),
        Text("lossFunc", &C::lossFunc, kOption,
             "GBDT: Square, Logistic, HingeSquare, Exponential, USER (programs only); GBRank: "
             "CrossEntropy, "
             "HingeSquareRank; RandomForest, CART: Label",
             "Loss to minimise; not given (-1): the first of its model type."),
        File("fileTrain", &C::fileTrain, kOption, "Training data."),
        File("fileTest", &C::fileTest, kOption, "Test data."),
        File("fileDev", &C::fileDev, kFileOnly, "Development data."),
        File("labelTran", &C::fileTran, kOption,
             "Label map: lines of two numbers, the label in the data and the label to use.",
             &C::fLabelTran),
        File("fileModel", &C::fileModel, kOption, "Model file to write or to load."),
        File("filePred", &C::filePred, kOption,
             "Scores of the test data; in mode analyze the report."),
        File("fileDebug", &C::fileDebug, kOption,
             "Debug report, also copied into the model file (not for RandomForest).", &C::fDebug),
        File("fileResult", &C::fileOut, kFileOnly, "Result file; kept, not used."),
        File("virScore", &C::fileVirScore, kFileOnly, "Virtual scores; kept, not used."),
        Text("pathOutput", &C::pathOutput, kFileOnly, "a prefix such as out/",
             "Put directly before fileResultBase."),
        Text("fileResultBase", &C::fileResultBase, kFileOnly, "a file name",
             "Base name of the result files that fTestRealTime writes."),
        Figure("numTree", &C::numTree, kOption, "1 or more",
               "Rounds of boosting, or trees of a forest."),
        Figure("valShrink", &C::valShrink, kOption, "a real",
               "Shrinkage (learning rate); 1 for RandomForest and CART."),
        Figure("maxDepth", &C::maxDepth, kOption, "1 or more",
               "Greatest depth of a tree; not for RandomForest."),
        Figure("maxLeaf", &C::maxLeaf, kOption, "1 or more",
               "Greatest number of leaves of a tree; not for RandomForest."),
        Figure("numBound", &C::numBound, kOption, "1 or more",
               "A node below the root with at most so many rows is a leaf."),
        Figure("valSmpRt", &C::valSmpRt, kOption, "(0, 1]", "Share of the rows drawn per tree."),
        Figure("ratio", &C::ratio, kOption, "(0, 1]", "Share of the columns drawn per node."),
        Text("randomMode", &C::randomMode, kOption, "DOC, QUERY",
             "Unit of row sampling; QUERY draws whole queries (GBRank only)."),
        Figure("valTau", &C::valTau, kOption, "a real", "Margin of the ranking losses."),
        {"randomSeed", &C::tms_seed, &C::fSetSeed, kOption, false, kNumber, kDigit, "a real",
         "Seed of the random generator; not given: 1."},
        {"numThread", &C::numThread, &C::fSetThread, kOption, false, kDigit, kInteger, "1 to 256",
         "Worker threads. Not given: one trains, all usable processors read data and score."},
        Switch("fPrint", &C::fPrint, "Print progress and every parameter as it is read."),
        Switch("fTestRealTime", &C::fTestRealTime, "Write a result file after every round."),
        Figure("sizeGroup", &C::sizeGroup, kFileOnly, "an integer",
               "Trees per round; always set from the model type."),
        Figure("temperature", &C::temperature, kFileOnly, "a real", "Kept, not used."),
        Figure("scanShrinkCutoff", &C::scanShrinkCutoff, kFileOnly, "an integer",
               "Kept, not used."),
        Figure("testCutoff", &C::testCutoff, kFileOnly, "an integer", "Kept, not used."),
        Switch("fPrintLeafDistribution", &C::fPrintLeafDistribution, "Kept, not used."),
        Switch("fDynamicStepLength", &C::fSetDynStep, "Kept, not used."),
        Switch("fSingleTreeLayer", &C::fSingleTreeLayer, "Kept, not used."),
        Switch("fDev", &C::fDev, "Kept, not used."),
        Figure(
            "digits", &C::digits, kOption, "6, 17",
            "Significant digits of reals in the model file; with 17 every number is exact, and the "
            "loaded model scores as in memory."),
        Text("absent", &C::absent, kOption, "missing, zero",
             "What an id stands for that a data line leaves out: a missing value (-2147483648), or "
             "0. Not given: missing, with a notice where most values of a file are left out.",
             &C::fSetAbsent),
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
    static const std::vector<ParameterRow> table = BuildTable();
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

// The table of parameters, and the readers of the configuration file and the command line.
#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

#include "../Support.h"
#include "CheckIn.h"
#include "CheckIn/Parameters.h"

namespace {

using sylvora::ParameterMember;
using sylvora::ParameterRow;
using namespace sylvora::tests;

typedef CheckCfgCLS C;

// Every key and its member, stated independently of the table, because users' files rely on them.
const std::vector<std::pair<std::string, ParameterMember>> kOptions = {
    {"fileModel", &C::fileModel},
    {"fileTrain", &C::fileTrain},
    {"fileDebug", &C::fileDebug},
    {"labelTran", &C::fileTran},
    {"fileTest", &C::fileTest},
    {"mode", &C::mode},
    {"filePred", &C::filePred},
    {"numTree", &C::numTree},
    {"numThread", &C::numThread},
    {"randomSeed", &C::tms_seed},
    {"valSmpRt", &C::valSmpRt},
    {"ratio", &C::ratio},
    {"fRegCls", &C::fRegCls},
    {"valShrink", &C::valShrink},
    {"maxLeaf", &C::maxLeaf},
    {"maxDepth", &C::maxDepth},
    {"numBound", &C::numBound},
    {"valTau", &C::valTau},
    {"randomMode", &C::randomMode},
    {"lossFunc", &C::lossFunc},
    {"modelType", &C::modelType},
    {"digits", &C::digits},
    {"absent", &C::absent},
    {"huberDelta", &C::huberDelta},
    {"quantile", &C::quantile},
    {"earlyStop", &C::earlyStop},
    {"evalEvery", &C::evalEvery},
    {"checkpoint", &C::fileCheckpoint},
    {"checkpointEvery", &C::checkpointEvery}};
const std::vector<std::pair<std::string, ParameterMember>> kFileOnly = {
    {"fPrint", &C::fPrint},
    {"fileDev", &C::fileDev},
    {"virScore", &C::fileVirScore},
    {"fileResult", &C::fileOut},
    {"pathOutput", &C::pathOutput},
    {"fileResultBase", &C::fileResultBase},
    {"scanShrinkCutoff", &C::scanShrinkCutoff},
    {"testCutoff", &C::testCutoff},
    {"sizeGroup", &C::sizeGroup},
    {"temperature", &C::temperature},
    {"fPrintLeafDistribution", &C::fPrintLeafDistribution},
    {"fDynamicStepLength", &C::fSetDynStep},
    {"fSingleTreeLayer", &C::fSingleTreeLayer},
    {"fDev", &C::fDev},
    {"fTestRealTime", &C::fTestRealTime}};

bool IsSwitch(const ParameterMember& member) {
    return std::holds_alternative<bool C::*>(member);
}

std::string ValueOf(const ParameterMember& member, const C& cfg) {
    ParameterRow row = sylvora::ParameterTable().front();
    row.member = member;
    return sylvora::ParameterValue(row, cfg);
}

// Reads a command line whose configuration file holds `text`.
Outcome Read(C& cfg, const std::string& text, std::vector<std::string> arguments) {
    const TempFolder folder;
    arguments.insert(arguments.begin(), {"sylvora", folder.Write("cfg", text)});
    std::vector<char*> argv;
    for (std::string& argument : arguments) argv.push_back(argument.data());
    argv.push_back(nullptr);
    return Observe([&] { return cfg.ReadCfg(static_cast<int>(arguments.size()), argv.data()); });
}

TEST(Parameters, EveryKeyFillsItsMember) {
    EXPECT_EQ(sylvora::ParameterTable().size(), kOptions.size() + kFileOnly.size());
    std::string text;
    std::vector<std::string> arguments;
    int value = 10;
    for (const auto* keys : {&kOptions, &kFileOnly}) {
        for (const auto& [key, member] : *keys) {
            text += key + " = " + (IsSwitch(member) ? "True" : std::to_string(++value)) + "\n";
            if (keys == &kOptions) arguments.insert(arguments.end(), {"-" + key, "7"});
        }
    }
    C cfg;
    ASSERT_EQ(Read(cfg, text, {}).status, 0);
    value = 10;
    for (const auto* keys : {&kOptions, &kFileOnly}) {
        for (const auto& [key, member] : *keys) {
            EXPECT_EQ(ValueOf(member, cfg), IsSwitch(member) ? "true" : std::to_string(++value))
                << key;
        }
    }
    EXPECT_TRUE(cfg.fDebug && cfg.fLabelTran && cfg.fSetSeed && cfg.fSetThread && cfg.fSetAbsent);
    ASSERT_EQ(Read(cfg, "", arguments).status, 0);
    for (const auto& [key, member] : kOptions) EXPECT_EQ(ValueOf(member, cfg), "7") << key;
    for (const auto& [key, member] : kFileOnly) {
        const Outcome outcome = Read(cfg, "", {"-" + key, "7"});
        EXPECT_EQ(outcome.status, -1);
        EXPECT_EQ(outcome.err, "ERROR: Unrecognized command line argument: -" + key + "!\n");
    }
}

// Of members without a key; those of the others are in docs/parameters.md, which is compared.
TEST(Parameters, Defaults) {
    const C cfg;
    EXPECT_EQ(cfg.pathOut, "./");
    EXPECT_FALSE(cfg.fDebug || cfg.fLabelTran || cfg.fSetSeed || cfg.fSetThread || cfg.fSetAbsent ||
                 cfg.fQID);
    EXPECT_EQ(cfg.getRandomSeed(), 1.0);
}

TEST(Readers, Table) {
    struct Case {
        std::string text;  // of the file, after a line that sets numTree to 30
        std::vector<std::string> arguments;
        std::string err, out;
        int numTree;  // the value after reading
    };
    const std::string longValue(4096, 'x');
    const std::string failed = "ERROR: Failed to read config file!\n";
    const auto badLine = [&](const std::string& place) {
        return "ERROR: wrong config line format at " + place + "\n" + failed;
    };
    const auto unknown = [](const std::string& argument) {
        return "ERROR: Unrecognized command line argument: " + argument + "!\n";
    };
    const Case cases[] = {
        {"", {}, "", "", 30},
        {"# numTree = 1\n\nx\n \t\n  y\nnumTree = 7 = 8\r\n\t numTree  =  9", {}, "", "", 9},
        {"depth = 5\nnumTree = 2e3\n", {}, "", "", 2},
        {"numTree = 7\n # 1 2\n", {}, badLine("3 : # 1 2"), "", 7},
        {"\n\nnumTree=100\n", {}, badLine("4 : numTree=100"), "", 30},
        {"numTree =\n", {}, badLine("2 : numTree ="), "", 30},
        {"  numTree == 7\n", {}, badLine("2 : numTree == 7"), "", 30},
        {"numTree = 1.5\nnumTree = 3", {}, "ERROR: numTree is not a digit!\n" + failed, "", 30},
        {"numThread = x", {}, "ERROR: numThread is not a digit!\n" + failed, "", 30},
        {"randomSeed = x", {}, "ERROR: randomSeed is not a number!\n" + failed, "", 30},
        {"fDev = TRUE", {}, "Error: value is illegal: fDev!\n" + failed, "", 30},
        {"# " + longValue + "\nnumTree = 3\n", {}, "", "", 3},
        {"fileTrain = " + longValue, {}, badLine("2 : more than 4095 characters"), "", 30},
        {"", {"-numTree", "4", "-numTree", "2e3"}, "", "", 2},
        {"", {"-fileTrain", "-numTree"}, "", "", 30},
        {"", {"-numTree", "5", "-mode"}, "ERROR: No input for arg: -mode\n", "", 5},
        {"", {"-numTree", "1.5"}, "ERROR: -numTree is not a digit!\n", "", 30},
        {"", {"-numThread", "x"}, "ERROR: -numThread is not a integer!\n", "", 30},
        {"", {"-randomSeed", "x"}, "ERROR: -randomSeed is not a digit!\n", "", 30},
        {"", {"numTree", "4"}, unknown("numTree"), "", 30},
        {"", {"-NumTree", "4"}, unknown("-NumTree"), "", 30},
        {"", {"", "4"}, unknown(""), "", 30},
        {"fPrint = True\nfileDev = d\nnone = 1\nfileResultBase = r\nratio = .",
         {},
         "ERROR: ratio is not a digit!\n" + failed,
         "read: fileDev\n\td\nread: fileResultBase\tr\n",
         30},
        {"fPrint = true\nfDev = true\nvalTau = 1e0",
         {"-fileTrain", "f", "-numTree", "x"},
         "ERROR: -numTree is not a digit!\n",
         "read: fDev\ttrue\nread: valTau\t1e0\nChecking command line ...\nread: -fileTrain\tf\n",
         30},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.text + " " + testing::PrintToString(c.arguments));
        C cfg;
        const Outcome outcome = Read(cfg, "numTree = 30\n" + c.text, c.arguments);
        EXPECT_EQ(outcome.status, c.err.empty() ? 0 : -1);
        EXPECT_EQ(outcome.err, c.err);
        EXPECT_EQ(outcome.out, c.out);
        EXPECT_EQ(cfg.numTree, c.numTree);
        EXPECT_FALSE(cfg.fSetSeed || cfg.fSetThread);
    }
}

TEST(Readers, NeedAFile) {
    C cfg;
    char name[] = "sylvora", folder[] = "/";
    char* argv[] = {name, folder, nullptr};
    EXPECT_EQ(Observe([&] { return cfg.ReadCfg(2, argv); }).err,
              "Error: can not open /\nERROR: Failed to read config file!\n");
    argv[1] = nullptr;
    EXPECT_EQ(Observe([&] { return cfg.ReadCfg(1, argv); }).status, -1);
}

}  // namespace

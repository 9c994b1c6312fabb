// The model file: written, read, damaged.
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <unistd.h>

#include <csignal>
#include <string>

#include "ModelText.h"

namespace {

using namespace sylvora::tests;

// Two groups, three classes, two columns; every number in the form in which it is written.
const std::string kModel =
    "2 3 2\n"
    "0.25 1 20 4 5 0.5 Label DOC CART\n"
    "1e-05 4.94066e-324 \n"
    "idxTreeArray: 0 size: 2 shrink: 0.1\n"
    "0 3\n"
    "0 INTERMEDIATE 1 -0.333333 1 2 1\n"
    "1 TERMINAL -1 -1 -1 -1 0\n"
    "2 TERMINAL -1 -1 -1 -1 2\n"
    "0 1\n"
    "0 TERMINAL -1 -1 -1 -1 1\n"
    "idxTreeArray: 1 size: 0 shrink: 1\n";

// The model with the first `from` behind `start` replaced by `to`.
std::string Damaged(const std::string& from, const std::string& to, size_t start = 0) {
    std::string text = kModel;
    const size_t at = text.find(from, start);
    EXPECT_NE(at, std::string::npos) << from;
    return text.replace(at, from.size(), to);
}

// Of this process, in KB.
long PeakMemory() {
    rusage usage = {};
    ::getrusage(RUSAGE_SELF, &usage);
    return usage.ru_maxrss;
}

TEST(Model, SurvivesARoundTripInAnyLocale) {
    const TempFolder folder;
    const std::locale before = UseCommas();
    TreeLearner learner;
    const Outcome loaded = LoadText(learner, kModel);
    const Outcome saved = Observe([&] { return learner.SaveModelFull(folder.Path("model")); });
    std::locale::global(before);
    EXPECT_EQ(loaded.status, 0);
    EXPECT_EQ(saved.status, 0);
    EXPECT_EQ(ReadFile(folder.Path("model")), kModel);
    EXPECT_EQ(saved.out + saved.err + loaded.out + loaded.err, "");
    EXPECT_EQ(learner.CfgInfo.fRegCls, "CLS");
    EXPECT_EQ(learner.numTree, 2);
    EXPECT_EQ(learner.getTreeNum(), 2);
    const NodeCR& leaf = *learner.TreeVV[0][0]->NodeV[2];
    EXPECT_EQ(leaf.numSelFea, 2);
    EXPECT_EQ(leaf.numBound, 5);
    EXPECT_EQ(leaf.depBound, 4);
}

TEST(Model, RoundsToSixDigitsAndAppendsTheDebugReport) {
    const TempFolder folder;
    TreeLearner learner;
    EXPECT_EQ(LoadText(learner, kModel).status, 0);
    learner.TreeVV[0][0]->NodeV[0]->splitElemFea = -1.0 / 3;
    learner.fDebug = learner.CfgInfo.fPrint = true;
    const std::string path = folder.Path("model");
    for (const auto& [report, section] :
         {std::pair("", "\n"), std::pair("a\n\nb\n", "\na\n\nb\n")}) {
        learner.fileDebug = folder.Write("report", report);
        const Outcome saved = Observe([&] { return learner.SaveModelFull(path); });
        EXPECT_EQ(saved.out, "Save model complete.\n");
        EXPECT_EQ(ReadFile(path), kModel + "[debug]" + section);
    }
    learner.fileDebug = folder.Path("none");
    EXPECT_EQ(Observe([&] { return learner.SaveModelFull(path); }).status, 0);
    EXPECT_EQ(ReadFile(path), kModel + "[debug]");
    EXPECT_EQ(LoadText(learner, ReadFile(path)).out, "Load model complete.\n");
    learner.CfgInfo.fPrint = false;
}

// A limit on the size of files stands for a full disk.
TEST(Model, AFailedSaveKeepsTheOlderFile) {
    const TempFolder folder;
    const std::string path = folder.Write("model", "older");
    TreeLearner learner;
    LoadText(learner, kModel);
    const auto oldHandler = std::signal(SIGXFSZ, SIG_IGN);
    rlimit oldLimit = {};
    ::getrlimit(RLIMIT_FSIZE, &oldLimit);
    const rlimit limit = {200, oldLimit.rlim_max};  // less than the model, more than the message
    const Outcome full = Observe([&] {
        ::setrlimit(RLIMIT_FSIZE, &limit);
        const int status = learner.SaveModelFull(path);
        ::setrlimit(RLIMIT_FSIZE, &oldLimit);
        return status;
    });
    std::signal(SIGXFSZ, oldHandler);
    EXPECT_EQ(full.status, -1);
    EXPECT_EQ(full.err, "ERROR: Can not write file " + path +
                            " in full: File too large; the older one is kept!\n");
    EXPECT_EQ(ReadFile(path), "older");
    EXPECT_EQ(folder.Names().size(), 1u);
    const Outcome noFolder = Observe([&] { return learner.SaveModelFull(path + "/model"); });
    EXPECT_EQ(noFolder.status, -1);
    const auto notWritten = [&path](const char* name) {
        return "ERROR: Can not write file " + path + name + ": Not a directory!\n";
    };
    EXPECT_EQ(noFolder.err, "ERROR: Can not open file!\n\n" + notWritten("/model"));
    EXPECT_EQ(Refused([&] { return learner.FeatureAnalysis(path + "/report"); }),
              "ERROR: Can not open feature analysis output file!\n" + notWritten("/report"));
}

TEST(Model, DamagedTextIsRefused) {
    const std::string wrongFormat = "ERROR: Wrong model format!\n";
    const auto status = [](const std::string& text) {
        return "ERROR: Node status must be INTERMEDIATE or TERMINAL, unrecognized node status: " +
               text + "\n";
    };
    const auto labels = [](const std::string& tokens) {
        return "idxTreeArray: " + tokens + "!\nERROR: Model format is wrong!\n";
    };
    const auto output = [](const std::string& text) {
        return "ERROR: Failed to read avgPredict: \"" + text + "\" when loading model!\n";
    };
    const std::string largeClass =
        "ERROR: Class label is large than class number when loading model!\n";
    struct Case {
        std::string text, err;
    };
    const Case cases[] = {
        {"", "ERROR: empty model file!\n"},
        {Damaged("2 3 2", "-1 3 2"), wrongFormat},
        {Damaged("2 3 2", "2 3 -2"), wrongFormat},
        {Damaged("2 3 2", "2 -3 2"),
         "ERROR: Wrong model format at line 1 of the model, numClass must be nonnegtive\n!\n"},
        {Damaged("2 3 2", "2 3 3"), labels("-1, size: -1, shrink: -1")},
        {Damaged("idxTreeArray: 1", "idxtree: 1"),
         labels("idxtree:, size: size:, shrink: shrink:")},
        {Damaged("size: 2", "size: x"), labels("idxTreeArray:, size: size:, shrink: -1")},
        {Damaged("size: 2", "size: -2"), wrongFormat},
        {Damaged("0 3\n", "0 -3\n"), wrongFormat},
        {Damaged("0 3\n", "0 2000000000\n"), status("1")},
        {Damaged("2 3 2", "2000000000 3 2"), labels("-1, size: -1, shrink: -1")},
        {Damaged("TERMINAL", "TOSPLIT"), status("TOSPLIT")},
        {Damaged("DIATE 1", "DIATE 2"), "ERROR: Wrong node split feature: 2\n!"},
        {Damaged("DIATE 1", "DIATE -2"), "ERROR: Wrong node split feature: -2\n!"},
        {Damaged("-1 -1 0", "-1 -1 nan"), output("nan")},
        {Damaged("-0.333333", "1e999"), output("")},
        {Damaged("-1 2\n", "-1 3.0\n"), largeClass},
        {Damaged("1 2 1\n", "1 2 3\n"), largeClass},
    };
    for (const Case& c : cases) {
        TreeLearner learner;
        const Outcome outcome = LoadText(learner, c.text);
        EXPECT_EQ(outcome.status, -1) << c.text;
        EXPECT_EQ(outcome.err, c.err) << c.text;
    }
    TreeLearner learner;
    EXPECT_EQ(Observe([&] { return learner.LoadModelFull("/none"); }).err,
              "ERROR: Cannot open model file!\n");
}

// Damage that the reader accepts, and whether a row can be scored afterwards.
TEST(Model, OddTextIsReadAndWalkedOnlyIfItCanBe) {
    struct Case {
        std::string text;
        int scored;
    };
    const Case cases[] = {
        {Damaged("Array: 1", "Array: 7"), 0},          // group numbers are ignored
        {Damaged("\n1 TERMINAL", "\n5 TERMINAL"), 0},  // and so are node numbers
        {Damaged("-1 2\n", "-1 2.9\n"), 0},
        {Damaged("\n0 TERM", "   \t0 TERM"), 0},
        {kModel + "[debug]\nanything", 0},
        {Damaged("DIATE 1", "DIATE -1"), -1},
        {Damaged("1 2 1\n", "1 3 1\n"), -1},
        {Damaged("1 2 1\n", "-1 2 1\n"), -1},
        {Damaged("1 2 1\n", "0 2 1\n"), -1},
        {Damaged("-1 2\n", "-1 -2\n"), -1},
        {Damaged("0 1\n0 TERMINAL -1 -1 -1 -1 1\n", "0 0\n"), -1},
    };
    for (const Case& c : cases) {
        TreeLearner learner;
        EXPECT_EQ(LoadText(learner, c.text).status, 0) << c.text;
        double row[] = {0, 0}, result = 7.0;
        const auto score = [&] { return learner.OnlineTesting(row, result, 2, nullptr); };
        EXPECT_EQ(Observe(score).status, c.scored) << c.text;
        const TempFolder folder;
        const auto analyse = [&] { return learner.FeatureAnalysis(folder.Path("report")); };
        EXPECT_EQ(Observe(analyse).status, c.scored) << c.text;
    }
}

// Claims of billions of classes or columns take no memory unless the file has their data, and long
// names are not copied into every tree.
TEST(Model, CountsAreNotTrustedWithMemory) {
    const auto load = [](TreeLearner& learner, const std::string& text) {
        EXPECT_EQ(LoadText(learner, text).status, 0) << text.substr(0, 200);
    };
    const long before = PeakMemory();
    double row[] = {0, 0}, result = 0.0, buffer[3];
    TreeLearner classes;
    load(classes, Damaged("-1 2\n", "-1 2000000000.5\n").replace(2, 1, "2147483647"));
    row[1] = 1;
    EXPECT_EQ(classes.OnlineTesting(row, result, 2, buffer), 0);
    EXPECT_EQ(result, static_cast<double>(0.1f) * 2000000000.5);
    TreeLearner columns;
    load(columns, "0 0 2147483647\n");
    const TempFolder folder;
    EXPECT_EQ(Observe([&] { return columns.FeatureAnalysis(folder.Path("report")); }).err,
              "ERROR: Wrong model format!\nit has no means for its 2147483647 columns\n");
    EXPECT_EQ(columns.SaveModelFull(folder.Path("model")), 0);
    std::string text = Damaged("size: 2", "size: 1002").replace(0, 1, "1");
    text.replace(text.find("Label"), 5, std::string(1 << 20, 'L'));
    for (int t = 0; t < 1000; ++t)
        text.insert(text.find("idxTreeArray: 1"), "0 1\n0 TERMINAL -1 0 0 0 1\n");
    TreeLearner names;
    load(names, text);
    EXPECT_EQ(names.CfgInfo.lossFunc.size(), size_t{1} << 20);
    EXPECT_LT(PeakMemory() - before, 100 * 1024) << "KB";
}

}  // namespace

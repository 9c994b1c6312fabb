// The memory that loading a model takes, compared with the size of its file. Not measured under
// sanitizers, which need memory of their own.
#include <sys/resource.h>

#include <fstream>
#include <string>

#include "../Support.h"
#include "TreeLearner.h"
#include "god/Report.h"

#if defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer)
#define SYLVORA_TESTS_SANITIZED
#endif
#endif

namespace {

using namespace sylvora::tests;
using sylvora::Text;

#ifndef SYLVORA_TESTS_SANITIZED

const std::string kEmpty = "0 0\n";
const std::string kLeaf = "0 1\n0 TERMINAL 0 0 0 0 1\n";

// A tree of full depth.
std::string FullTree(int depth) {
    const int numTests = (1 << depth) - 1;
    std::string text = Text("0 ", 2 * numTests + 1, "\n");
    for (int k = 0; k < 2 * numTests + 1; ++k) {
        text += k < numTests
                    ? Text(k, " INTERMEDIATE ", k % 2, " ", k % 7, " ", 2 * k + 1, " ", 2 * k + 2)
                    : Text(k, " TERMINAL -1 -1 -1 -1");
        text += " 0\n";
    }
    return text;
}

// A tree with one leaf on each level: the shortest text for its depth.
std::string Chain(int depth) {
    std::string text = Text("0 ", 2 * depth + 1, "\n");
    for (int k = 0; k < 2 * depth; k += 2) {
        text += Text(k, " INTERMEDIATE 0 ", k, " ", k + 1, " ", k + 2, " 0\n");
        text += Text(k + 1, " TERMINAL 0 0 0 0 1\n");
    }
    return text + Text(2 * depth, " TERMINAL 0 0 0 0 1\n");
}

// A model of so many columns that has its trees in one group, or in one group each.
std::string Model(const std::string& trees, int numTrees, int numRepeats, int dimFea = 2) {
    std::string text = Text("1 0 ", dimFea, "\n1 1 6 6 5 0 S D G\n");
    for (int j = 0; j < dimFea; ++j) text += "0 ";
    text += Text("\nidxTreeArray: 0 size: ", numTrees * numRepeats, " shrink: 1\n");
    for (int i = 0; i < numRepeats; ++i) text += trees;
    return text;
}

std::string Repeated(const std::string& text, int count) {
    std::string all;
    for (int i = 0; i < count; ++i) all += text;
    return all;
}

// A figure of this process, in bytes.
double OfProcess(const std::string& wanted) {
    std::ifstream in("/proc/self/status");
    for (std::string key; in >> key;) {
        double kilobytes = 0;
        if (key == wanted + ":" && in >> kilobytes) return kilobytes * 1024;
    }
    return 0;
}

// Peak memory while the model was loaded, as a multiple of the file size.
double TimesTheFile(const std::string& text, bool fPacked) {
    const TempFolder folder;
    const std::string path = folder.Write("model", text);
    TreeLearner learner;
    learner.setPackedTrees(fPacked);
    std::ofstream("/proc/self/clear_refs") << 5;  // the peak begins anew
    const double before = OfProcess("VmHWM");
    EXPECT_EQ(learner.LoadModelFull(path), 0);
    return (OfProcess("VmHWM") - before) / static_cast<double>(text.size());
}

TEST(ModelMemory, IsInProportionToTheFile) {
    const struct {
        const char* name;
        std::string text;
        bool fThreeNodes;  // on average
    } cases[] = {
        {"empty trees", Model(kEmpty, 1, 500000), false},
        {"single leaves", Model(kLeaf, 1, 100000), false},
        {"three nodes", Model(FullTree(1), 1, 40000), true},
        {"depth 6", Model(FullTree(6), 1, 1000), true},
        {"depth 12", Model(FullTree(12), 1, 20), true},
        {"chains", Model(Chain(8), 1, 9000), true},
        {"longer chains", Model(Chain(9), 1, 9000), true},
        {"leaves beside chains", Model(Repeated(kLeaf, 7) + Chain(8), 8, 5000), true},
        {"a chain among leaves", Model(Repeated(kLeaf, 31) + Chain(8), 32, 2500), false},
        {"leaves and chains in turn", Model(kLeaf + Chain(8), 2, 8000), true},
        {"chains and five leaves", Model(Repeated(kLeaf, 5) + Chain(8), 6, 6000), true},
        {"chains and four leaves", Model(Repeated(kLeaf, 4) + Chain(8), 5, 11000), true},
        {"columns", Model(FullTree(1), 1, 3, 1000000), true},
    };
    for (const auto& c : cases) {
        EXPECT_LT(TimesTheFile(c.text, true), 40) << c.name;
        if (c.fThreeNodes) EXPECT_LT(TimesTheFile(c.text, false), 40) << c.name;
    }
}

// A limit on address space stands for a small machine.
TEST(ModelMemory, WhatDoesNotFitIsRefusedBeforeItIsTaken) {
    const TempFolder folder;
    const std::string path = folder.Write("model", Model(kEmpty, 1, 500000));
    rlimit old = {};
    ::getrlimit(RLIMIT_AS, &old);
    const rlimit limit = {static_cast<rlim_t>(OfProcess("VmSize") + 2e8), old.rlim_max};
    TreeLearner records, packed;
    packed.setPackedTrees(true);
    ::setrlimit(RLIMIT_AS, &limit);
    const double before = OfProcess("VmSize");
    const Outcome refused = Observe([&] { return records.LoadModelFull(path); });
    EXPECT_LT(OfProcess("VmSize") - before, 1e8);
    EXPECT_EQ(packed.LoadModelFull(path), 0);
    ::setrlimit(RLIMIT_AS, &old);
    EXPECT_EQ(refused.status, -1);
    EXPECT_EQ(refused.err.rfind("ERROR: The model's 500000 trees with 0 nodes take ", 0), 0u)
        << refused.err;
    EXPECT_EQ(records.getTreeNum(), 0);
    const auto save = [&] { return records.SaveModelFull(path); };
    EXPECT_EQ(Observe(save).err, "ERROR: The model was not loaded in full, nothing is saved!\n");
    EXPECT_EQ(ReadFile(path), Model(kEmpty, 1, 500000));
}

#endif

}  // namespace

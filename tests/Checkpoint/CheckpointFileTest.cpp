// Checkpoint files: what is written is read again, and no other file is.
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <limits>
#include <random>
#include <string>

#include "../InMemory.h"
#include "../Support.h"
#include "Checkpoint/Checkpoint.h"
#include "Checkpoint/Digest.h"
#include "Checkpoint/WritingPace.h"

namespace sylvora {
namespace {

using namespace sylvora::tests;

constexpr int kNumColumns = 4;

// A checkpoint of two rounds after a start value, with numbers that are easily lost.
class CheckpointFile : public testing::Test {
  protected:
    void SetUp() override {
        state.numDone = 2;
        state.generator.word = -7;
        state.generator.lastOutput = 2147483562;
        for (long& entry : state.generator.table) entry = 2147483562 - (&entry - table());
        state.sharedStart = std::numeric_limits<long>::min();
        state.sharedWord = std::numeric_limits<long>::max();
        state.dynShrink = 0.1;
        const double nan = std::numeric_limits<double>::quiet_NaN();
        predictV = {-0.0, 5e-324, 1e308, nan};
        for (int t = 0; t < 3; ++t) {
            engine::PackedTree tree(t == 0 ? 1 : 3, t);
            if (t > 0) tree.nodeV[0] = {0.1 * t, -1e-310, t, 1, 2, false, t == 2};
            tree.nodeV[t == 0 ? 0 : 2].avgPredict = 0.3;
            trees.treeV.push_back(std::move(tree));
            trees.EndGroup();
        }
        trees.coverVV = {{}, {9, 4, 5}};
        text = TextOf();
    }

    long* table() { return state.generator.table; }
    std::string TextOf() const {
        const std::string path = folder.Path("checkpoint");
        EXPECT_EQ(WriteCheckpoint(
                      path, {fingerprint, state, predictV.data(), predictV.size(), shrinkV, trees}),
                  "");
        return ReadFile(path);
    }
    std::string FaultOf(const std::string& bytes) const {
        Checkpoint read;
        return ParseCheckpoint(bytes, kNumColumns, read);
    }
    // With the digest of the bytes before it.
    static std::string Signed(std::string bytes) {
        bytes.resize(bytes.size() - Digest::kNumFigures - 1);
        Digest digest;
        digest.AddBytes(bytes.data(), bytes.size());
        digest.Add(bytes.size());
        return bytes + digest.Figures() + "\n";
    }

    const TempFolder folder;
    Fingerprint fingerprint = {{"library", "1.2"}, {"empty", ""}, {"blanks", " a b "}};
    CheckpointState state;
    VecDle predictV;
    VecFt shrinkV = {1.0F, 0.09F, 1e-40F};
    engine::PackedTrees trees;
    std::string text;
};

// The bytes of a checkpoint that was read are those of the file.
TEST_F(CheckpointFile, ReadsWhatWasWritten) {
    Checkpoint read;
    ASSERT_EQ(ParseCheckpoint(text, kNumColumns, read), "");
    EXPECT_EQ(read.fingerprint, fingerprint);
    EXPECT_EQ(read.trees.coverVV, trees.coverVV);
    const std::string path = folder.Path("again");
    ASSERT_EQ(WriteCheckpoint(path, {read.fingerprint, read.state, read.predictV.data(),
                                     read.predictV.size(), read.shrinkV, read.trees}),
              "");
    EXPECT_EQ(ReadFile(path), text);
    const auto differ = [](const Fingerprint& one, const Fingerprint& other) {
        const Difference found = FirstDifference(one, other);
        return found.name + "|" + found.inFile + "|" + found.own;
    };
    EXPECT_EQ(differ(fingerprint, read.fingerprint), "||");
    read.fingerprint[1].second = "x";
    EXPECT_EQ(differ(fingerprint, read.fingerprint), "empty||x");
    read.fingerprint.erase(read.fingerprint.begin() + 1);
    EXPECT_EQ(differ(fingerprint, read.fingerprint), "empty||none");
    EXPECT_EQ(differ(read.fingerprint, fingerprint), "empty|none|");
}

// Nothing behind the head is read, and of what is no checkpoint, only the front.
TEST_F(CheckpointFile, TheHeadIsReadByItself) {
    const std::string path = folder.Path("checkpoint");
    const auto read = [&](const std::string& bytes, size_t size) {
        folder.Write("checkpoint", bytes);
        std::filesystem::resize_file(path, size);
        Fingerprint found;
        const std::string fault = ReadCheckpointHead(path, found);
        EXPECT_EQ(fault.empty() ? found : fingerprint, fingerprint);
        return fault;
    };
    const size_t headSize = text.find("\n\n") + 2;
    constexpr size_t kHuge = size_t{1} << 40;  // of zeros that take no space
    EXPECT_EQ(read(text, text.size()), "");
    EXPECT_EQ(read(text, headSize), "");
    EXPECT_EQ(read(text, kHuge), "");
    for (size_t size = 0; size < headSize; ++size) {
        const bool fName = size < std::string("sylvora checkpoint ").size();
        EXPECT_EQ(read(text, size).rfind(fName ? "is no check" : "is damaged", 0), 0U) << size;
    }
    EXPECT_EQ(read("tree", kHuge).rfind("is no checkpoint", 0), 0U);
    EXPECT_EQ(read("sylvora checkpoint 1\n", kHuge).rfind("is damaged", 0), 0U);
    EXPECT_EQ(read("sylvora checkpoint 1\nlibrary \033[2J\n\n", kHuge).rfind("is damaged", 0), 0U);
    EXPECT_EQ(read("sylvora checkpoint 21\n", kHuge)
                  .rfind("was written by a newer version of the library, in format 21", 0),
              0U);
    Fingerprint none;
    EXPECT_EQ(ReadCheckpointHead(folder.Path("missing"), none), "");
    EXPECT_TRUE(none.empty());
    EXPECT_EQ(ReadCheckpointHead(folder.Path(""), none), "is no regular file; name another one");
    EXPECT_EQ(ReadCheckpointHead(path + "/x", none), "Not a directory");
}

TEST_F(CheckpointFile, EveryDamageIsFound) {
    for (size_t at = 0; at < text.size(); ++at) {
        std::string damaged = text;
        for (const int mask : {1, 0x80, 0xff}) {
            damaged[at] = static_cast<char>(text[at] ^ mask);
            ASSERT_NE(FaultOf(damaged), "") << at;
        }
        ASSERT_NE(FaultOf(text.substr(0, at)), "") << at;
        ASSERT_NE(FaultOf(text.substr(0, at) + text.substr(at + 1)), "") << at;
        ASSERT_NE(FaultOf(text.substr(0, at) + '\0' + text.substr(at)), "") << at;
    }
    ASSERT_NE(FaultOf(text + "\n"), "");
    EXPECT_NE(FaultOf("tree\n").find("is no checkpoint"), std::string::npos);
    EXPECT_NE(FaultOf("sylvora checkpoint ").find("is damaged"), std::string::npos);
    std::string later = text;
    later[std::string("sylvora checkpoint ").size()] = '2';
    EXPECT_NE(FaultOf(Signed(later)).find("in format 2"), std::string::npos);
}

// What has a correct digest, but nonsense in it, is either refused, or can be used: all trees can
// be walked, and the generator can be drawn from.
TEST_F(CheckpointFile, NonsenseDoesNoHarm) {
    std::mt19937 random(3);
    const size_t begin = text.find("\n\n") + 2;
    const size_t end = text.size() - Digest::kNumFigures - 1;
    int numRead = 0;
    for (size_t at = begin; at < end; ++at) {
        for (const int byte : {0, 1, 0x7f, 0x80, 0xff, static_cast<int>(random() % 256)}) {
            std::string nonsense = text;
            nonsense[at] = static_cast<char>(byte);
            Checkpoint read;
            if (!ParseCheckpoint(Signed(nonsense), kNumColumns, read).empty()) continue;
            ++numRead;
            Draws draws(read.state.generator);
            int indexV[50];
            draws.FisherYates(50, 50, indexV);
            for (const engine::PackedTree& tree : read.trees.treeV) {
                const engine::PackedNode* node = &tree.nodeV[0];
                while (!node->IsLeaf()) {
                    ASSERT_GE(node->splitFea, 0);
                    ASSERT_LT(node->splitFea, kNumColumns);
                    const int next = random() % 2 != 0 ? node->lson : node->rson;
                    ASSERT_GT(next, 0);
                    ASSERT_LT(static_cast<unsigned>(next), tree.numNodes);
                    node = &tree.nodeV[static_cast<unsigned>(next)];
                }
            }
        }
    }
    EXPECT_GT(numRead, 100);
}

// Rounds of any length: the cost stays near a twentieth, and little is lost.
TEST(WritingPace, KeepsTheCostSmall) {
    for (const double round : {0.0003, 0.02, 0.9, 7.0}) {
        for (const double cost : {0.0, 0.002, 0.3, 4.0}) {
            double now = 100, spent = 0, longest = 0, last = now;
            WritingPace pace(now);
            while (now < 1100) {
                now += round;
                longest = std::max(longest, now - last);
                if (!pace.IsDue(now)) continue;
                pace.Note(now, now + cost);
                spent += cost;
                last = now += cost;
            }
            EXPECT_LE(spent, 0.05 * 1000 + cost) << round << " " << cost;
            EXPECT_GE(longest, 1.0);
            EXPECT_LE(longest, std::max(1.0, 20 * cost) + round + 1e-9) << round << " " << cost;
        }
    }
}

}  // namespace
}  // namespace sylvora

// Files that ranks read a part of each, compared with the same files read by one process: own
// columns, labels, queries, statuses and messages must be equal.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <string>
#include <vector>

#include "../Support.h"
#include "../ranks/ThreadRanks.h"
#include "RandomFile.h"
#include "base/BlockReader.h"
#include "frontend/reading/RankedSets.h"
#include "god/Report.h"

namespace sylvora::frontend {
namespace {

using namespace sylvora::tests;

// What one process reads, and what it says.
struct Expected {
    std::vector<RunSet> setV;
    Outcome reading, handOver;
};

Expected ReadAlone(const CheckCfgCLS& cfg) {
    Expected expected;
    expected.setV = NameSets(cfg);
    expected.reading = Observe([&] { return ReadSets(expected.setV, cfg); });
    return expected;
}

// Ends with handing the training set over, which empties it.
void HandOverAlone(const CheckCfgCLS& cfg, Expected& expected) {
    expected.handOver = Observe([&] {
        CheckCfgCLS settings = cfg;
        TreeLearner learner(settings);
        RunSet& set = expected.setV.front();
        return HandOver(set.data, set.file, kTraining, learner);
    });
}

bool SameBits(const double* a, const double* b, size_t count) {
    return count == 0 || std::memcmp(a, b, count * sizeof *a) == 0;
}

void CheckColumns(const OwnColumns& own, int rank, const DataSet& whole) {
    ASSERT_EQ(own.NumRows(), static_cast<int>(whole.NumRows()));
    ASSERT_EQ(own.Owners().size(), static_cast<size_t>(whole.dimFea));
    EXPECT_TRUE(SameBits(own.Labels().data(), whole.labelV.get(), whole.NumRows()));
    const sylvora::BlockReader reader(own.Block());
    for (int c = 0; c < whole.dimFea; ++c) {
        const bool fOwn = own.Owners()[static_cast<size_t>(c)] == rank;
        reader.ForColumn(c, 0, own.NumRows(), [&](int row, double value) {
            const double wanted = fOwn ? whole.rowVV[static_cast<size_t>(row)][c] : 0.0;
            if (!SameBits(&value, &wanted, 1)) ADD_FAILURE() << "row " << row << ", column " << c;
        });
    }
}

// A set that is not the training set is held by every rank.
void CheckOther(const DataSet& got, const DataSet& whole) {
    ASSERT_EQ(got.NumRows(), whole.NumRows());
    ASSERT_EQ(got.dimFea, whole.dimFea);
    EXPECT_EQ(got.queryIdV, whole.queryIdV);
    for (size_t i = 0; i < got.NumRows(); ++i) {
        EXPECT_TRUE(SameBits(got.rowVV[i], whole.rowVV[i], static_cast<size_t>(whole.dimFea)));
    }
}

// How the ranks read.
struct Variant {
    int numRanks, numThread;
    size_t blockBytes;
};

void CompareRanks(const CheckCfgCLS& cfg, const Variant& variant, const Expected& expected) {
    SCOPED_TRACE(Text(variant.numRanks, " ranks, blocks of ", variant.blockBytes, " bytes"));
    std::vector<int> statusV;
    const Outcome outcome = Observe([&] {
        statusV = RunRanks(variant.numRanks, [&](Communicator& peers) {
            ReadingThreads threads(variant.numThread, variant.blockBytes);
            std::vector<RunSet> setV = NameSets(cfg);
            RankedSet training;
            if (ReadSets(setV, cfg, threads, peers, training) != 0) return -1;
            const bool fRead = expected.reading.status == 0 && training.columns != nullptr;
            if (fRead) CheckColumns(*training.columns, peers.Rank(), expected.setV[0].data);
            if (cfg.modelType == "GBRank") {
                EXPECT_EQ(training.queryIdV, expected.setV[0].data.queryIdV);
                EXPECT_EQ(training.lineWithoutQuery, expected.setV[0].data.lineWithoutQuery);
            }
            if (setV.size() > 1) CheckOther(setV[1].data, expected.setV[1].data);
            return 0;
        });
        return statusV[0];
    });
    EXPECT_EQ(statusV, std::vector<int>(statusV.size(), expected.reading.status));
    EXPECT_EQ(outcome.err, expected.reading.err);
    EXPECT_EQ(outcome.out, expected.reading.out);
}

// The messages of ranks that hand over what they have read.
void CompareHandOver(const CheckCfgCLS& cfg, const Expected& expected) {
    for (const int numRanks : {1, 3}) {
        std::vector<Outcome> outcomeV(static_cast<size_t>(numRanks));
        std::vector<RankedSet> trainingV(static_cast<size_t>(numRanks));
        const DataFile* file = nullptr;
        std::vector<std::vector<RunSet>> setVV(static_cast<size_t>(numRanks));
        static_cast<void>(Observe([&] {
            RunRanks(numRanks, [&](Communicator& peers) {
                const size_t rank = static_cast<size_t>(peers.Rank());
                ReadingThreads threads(1, 64);
                setVV[rank] = NameSets(cfg);
                return ReadSets(setVV[rank], cfg, threads, peers, trainingV[rank]);
            });
            return 0;
        }));
        for (size_t rank = 0; rank < trainingV.size(); ++rank) {
            file = &setVV[rank].front().file;
            const Outcome outcome = Observe([&] {
                CheckCfgCLS settings = cfg;
                TreeLearner learner(settings);
                return HandOver(trainingV[rank], *file, learner);
            });
            EXPECT_EQ(outcome.status, expected.handOver.status);
            EXPECT_EQ(outcome.err, expected.handOver.err);
            EXPECT_EQ(outcome.out, expected.handOver.out);
        }
    }
}

// Compares the reading by several numbers of ranks. Returns whether one process reads the files.
bool Compare(const CheckCfgCLS& cfg, const std::vector<Variant>& variantV) {
    Expected expected = ReadAlone(cfg);
    for (const Variant& variant : variantV) CompareRanks(cfg, variant, expected);
    const bool fRead = expected.reading.status == 0;
    if (!fRead) return false;
    HandOverAlone(cfg, expected);
    CompareHandOver(cfg, expected);
    return true;
}

CheckCfgCLS Settings(const std::string& modelType, const std::string& fileTrain) {
    CheckCfgCLS cfg;
    cfg.modelType = modelType;
    cfg.fileTrain = fileTrain;
    return cfg;
}

const std::vector<Variant> kSmallBlocks = {{1, 1, 64}, {2, 1, 17}, {3, 3, 64},
                                           {4, 1, 40}, {7, 1, 30}, {4, 1, 1 << 16}};

TEST(ShareReading, IsThatOfOneProcess) {
    const TempFolder folder;
    int numRead = 0;
    constexpr int kFiles = 90;
    for (unsigned seed = 0; seed < kFiles; ++seed) {
        const std::string text = RandomFile(seed + 1000, seed % 2 == 0 ? 0 : 30).Text();
        SCOPED_TRACE(text);
        CheckCfgCLS cfg = Settings(seed % 3 == 0 ? "GBRank" : "GBDT", folder.Write("train", text));
        if (seed % 4 == 1) cfg.absent = "zero";
        if (seed % 5 == 2) {
            cfg.fileTest = folder.Write("test", RandomFile(seed, seed % 2 == 0 ? 0 : 15).Text());
        }
        numRead += Compare(cfg, kSmallBlocks) ? 1 : 0;
        if (HasFailure()) return;
    }
    EXPECT_GT(numRead, kFiles / 4);
    EXPECT_LT(numRead, kFiles * 3 / 4);
}

// One malformed line, or two, in the part of each rank: the first one is named.
TEST(ShareReading, AFaultIsNamedWhoeverReadsIt) {
    const TempFolder folder;
    const char* const faults[] = {"1 qid:9 1:x",        "1 qid:9 0:1",
                                  "1 qid:0 1:1",        "1 1:1",
                                  "word qid:9 1:1",     "1 qid:9 1e0:1 1:2",
                                  "1 qid:9 1:1\r2 1:1", "1 qid:9 1:1e999",
                                  "1 qid:9 1:1 77:2",   "1 qid:9 1:1 1:2 1:3 5e0:7"};
    constexpr int kLines = 24;
    for (const char* const fault : faults) {
        for (int at = 0; at < kLines; at += 5) {
            std::string text;
            for (int line = 0; line < kLines; ++line) {
                if (line % 7 == 3) text += " \n";
                const bool fFault = line == at || line == at + 9;
                text += fFault ? fault : Text("0 qid:", line / 4, " 1:", line, " 2:0.5");
                text += "\n";
            }
            SCOPED_TRACE(text);
            const std::string path = folder.Write("train", text);
            Compare(Settings("GBRank", path), kSmallBlocks);
            Compare(Settings("GBDT", path), kSmallBlocks);
            if (HasFailure()) return;
        }
    }
}

TEST(ShareReading, FewRowsAndFewColumns) {
    const TempFolder folder;
    for (const char* const text :
         {"", "\n\n", "1\n", "1\n2\n3\n", "1 1:5", "1 3:5\n2 1:1\n", "1 qid:a 1:5\n2 qid:b 1:6\n",
          "1 qid:a\n", "1 1:1 2:2 3:3 4:4 5:5"}) {
        SCOPED_TRACE(text);
        const std::string path = folder.Write("train", text);
        Compare(Settings("GBDT", path), kSmallBlocks);
        Compare(Settings("GBRank", path), kSmallBlocks);
    }
}

TEST(ShareReading, OfBundledSets) {
    const std::filesystem::path root = SYLVORA_SOURCE_DIR;
    std::vector<std::string> pathV;
    for (const auto& entry : std::filesystem::directory_iterator(root / "data")) {
        if (entry.path().string().find(".train.txt") != std::string::npos) {
            pathV.push_back(entry.path().string());
        }
    }
    EXPECT_EQ(pathV.size(), 5u);
    for (const auto& entry : std::filesystem::directory_iterator(root / "tests" / "golden")) {
        const std::filesystem::path path = entry.path() / "train.txt";
        if (std::filesystem::exists(path)) pathV.push_back(path.string());
    }
    EXPECT_GT(pathV.size(), 50u);
    for (const std::string& path : pathV) {
        SCOPED_TRACE(path);
        const bool fLarge = std::filesystem::file_size(path) > 300000;
        const size_t bytes = fLarge ? 1 << 13 : 1 << 9;
        std::vector<Variant> variantV = {{3, 2, bytes}, {7, 1, bytes}};
        if (fLarge)
            variantV.insert(variantV.end(), {{1, 1, bytes}, {2, 1, 1 << 16}, {4, 1, bytes}});
        Compare(Settings("GBDT", path), variantV);
        if (!fLarge || path.find("rank") != std::string::npos) {
            Compare(Settings("GBRank", path), variantV);
        }
        if (HasFailure()) return;
    }
}

// What ranks say if each reads a path of its own.
std::string MessageOf(const std::vector<std::string>& pathV) {
    return Refused([&] {
        const std::vector<int> statusV =
            RunRanks(static_cast<int>(pathV.size()), [&](Communicator& peers) {
                const CheckCfgCLS cfg = Settings("GBDT", pathV[static_cast<size_t>(peers.Rank())]);
                ReadingThreads threads(1, 64);
                std::vector<RunSet> setV = NameSets(cfg);
                RankedSet training;
                return ReadSets(setV, cfg, threads, peers, training);
            });
        return *std::max_element(statusV.begin(), statusV.end());
    });
}

TEST(ShareReading, FilesThatSomeRanksCannotRead) {
    const TempFolder folder;
    const std::string path = folder.Write("data", "1 1:1\n2 1:2\n");
    const std::string other = folder.Write("other", "1 1:1\n");
    const std::string pipe = folder.Path("pipe");
    ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
    const std::string none = folder.Path("none");
    EXPECT_EQ(MessageOf({none, none}),
              "ERROR: fileTrain " + none + ": cannot be opened: No such file or directory\n");
    EXPECT_EQ(MessageOf({path, path, none}), "ERROR: rank 2: fileTrain " + none +
                                                 ": cannot be opened: No such file or directory\n");
    EXPECT_EQ(MessageOf({path, other}), "ERROR: rank 1: fileTrain " + other +
                                            ": has 6 bytes here and 12 at rank 0: all ranks must "
                                            "read the same file\n");
    EXPECT_EQ(MessageOf({pipe, pipe}),
              "ERROR: fileTrain " + pipe +
                  ": is no regular file, so several ranks cannot read a part of it each; copy it "
                  "to a file\n");
    EXPECT_NE(MessageOf({"/proc/self/status", "/proc/self/status"}).find("is no regular file"),
              std::string::npos);
    EXPECT_EQ(MessageOf({folder.Path("."), folder.Path(".")}),
              "ERROR: fileTrain " + folder.Path(".") + ": is a directory, not a data file\n");
    const std::string huge = folder.Write("huge", "1 1:1\n2 1:2\n3 2147483647:1\n");
    EXPECT_EQ(MessageOf({huge, huge, huge})
                  .rfind("ERROR: fileTrain " + huge + ", line 3: with ids up", 0),
              0u);
}

}  // namespace
}  // namespace sylvora::frontend

// Training by several ranks against training by one: the same nodes, sums, predictions and means,
// bit for bit, at every rank.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "../Support.h"
#include "../differential/HostileSets.h"
#include "../differential/Layouts.h"
#include "DataSet.h"
#include "Ranks.h"
#include "ThreadRanks.h"

namespace {

using hostile::Layout;
using hostile::Maker;
using hostile::Set;
using sylvora::Communicator;
using sylvora::tests::RunRanks;

// Makes the first column one of neighbouring doubles: midpoints may round up to the higher one, and
// then a threshold does not separate the slices of its node.
void MakeNarrow(Set& set, unsigned seed) {
    std::mt19937 random(seed);
    for (VecDle& row : set.rows) row[0] = 0x1p60 + 256.0 * static_cast<double>(random() % 5);
}

// Borrowed values must be finite, and their sums as well.
Set MakeSet(unsigned seed) {
    Set set = seed % 2 == 0 ? Maker(seed).Make() : Maker(seed).MakeListed(150);
    for (VecDle& row : set.rows) {
        for (double& value : row) value = std::clamp(value, -1e300, 1e300);
    }
    if (seed % 7 == 0) MakeNarrow(set, seed);
    set.cfg.fileModel.clear();
    set.cfg.fDebug = false;
    set.cfg.fTestRealTime = false;
    return set;
}

void Collect(void* context, int stream, const char* text) {
    if (stream == 2) *static_cast<std::string*>(context) += text;
}

// What a training leaves: the status, every node with the sums of its rows, predictions and means.
std::string BytesOf(const TreeLearner& learner, int status) {
    std::string bytes;
    const auto add = [&bytes](const auto& value) {
        bytes.append(reinterpret_cast<const char*>(&value), sizeof value);
    };
    add(status);
    for (const auto& group : learner.TreeVV) {
        for (const TreeCR* tree : group) {
            add(tree->depth);
            for (const NodeCR* node : tree->NodeV) {
                bytes += node->status;
                add(node->startDoc), add(node->countDoc), add(node->parent), add(node->depth);
                add(node->splitFea), add(node->splitElemFea), add(node->lson), add(node->rson);
                add(node->countL), add(node->avgPredict), add(node->gradAll), add(node->wgtAll);
                add(node->fNarrowSplit);
            }
        }
    }
    for (int i = 0; i < learner.sampleSize && status == 0; ++i) add(learner.predictV[i]);
    for (int j = 0; j < learner.dimFea; ++j) add(learner.featureMean[j]);
    return bytes;
}

// Trains on `rows`; `ranks` is null for a training by this process alone.
std::string Train(const Set& set, const VecVecDle& rows, sylvora::Ranks* ranks, int numThread,
                  std::string* messages) {
    CheckCfgCLS cfg = set.cfg;
    cfg.fSetThread = true;
    cfg.numThread = numThread;
    int status = cfg.CheckCfg();
    if (set.unchecked != nullptr) set.unchecked(cfg);
    const Layout layout(rows, Layout::kColumnMajor);
    TreeLearner learner(cfg);
    sylvora::RandomStream stream(5);
    learner.trainingOptions.stream = &stream;
    learner.trainingOptions.sink = Collect;
    learner.trainingOptions.sinkContext = messages;
    learner.trainingOptions.ranks = ranks;
    if (status == 0) {
        status = learner.DataBorrow(sylvora::DataSet::Make(layout.Block()), set.labels.data(),
                                    static_cast<int>(set.labels.size()), set.queries.data(),
                                    static_cast<int>(set.queries.size()));
    }
    if (status == 0) status = learner.ParamInit();
    if (status == 0 && set.prepared != nullptr) set.prepared(learner);
    if (status == 0) status = learner.Boosting();
    return BytesOf(learner, status);
}

// The rows as one rank has them.
VecVecDle OwnRows(const Set& set, const std::vector<int>& ownerV, int rank) {
    VecVecDle rows = set.rows;
    for (VecDle& row : rows) {
        for (size_t c = 0; c < row.size(); ++c) {
            if (ownerV[c] != rank) row[c] = 0.0;
        }
    }
    return rows;
}

class Tuning {
  public:
    Tuning(const char* reference, const char* tuning) {
        setenv("SYLVORA_PLAIN", reference, 1);
        setenv("SYLVORA_TUNING", tuning, 1);
    }
    ~Tuning() {
        unsetenv("SYLVORA_PLAIN");
        unsetenv("SYLVORA_TUNING");
    }
};

// Trains by `numRanks` ranks, with random owners; each must have the bytes of one process.
void ExpectSame(const Set& set, int numRanks, int numThread, unsigned seed) {
    std::string messages;
    const std::string expected = Train(set, set.rows, nullptr, numThread, &messages);
    std::mt19937 random(seed);
    std::vector<int> ownerV;
    for (size_t c = 0; c < set.rows[0].size(); ++c) {
        ownerV.push_back(static_cast<int>(random() % static_cast<unsigned>(numRanks)));
    }
    std::vector<std::string> bytesV(static_cast<size_t>(numRanks));
    std::vector<std::string> messageV(static_cast<size_t>(numRanks));
    RunRanks(numRanks, [&](Communicator& communicator) {
        const size_t rank = static_cast<size_t>(communicator.Rank());
        sylvora::Ranks ranks(communicator, ownerV);
        bytesV[rank] = Train(set, OwnRows(set, ownerV, communicator.Rank()), &ranks, numThread,
                             &messageV[rank]);
        int status = 0;
        std::memcpy(&status, bytesV[rank].data(), sizeof status);
        return status;
    });
    for (size_t rank = 0; rank < bytesV.size(); ++rank) {
        ASSERT_TRUE(bytesV[rank] == expected)
            << "data set " << seed << ", " << set.cfg.modelType << " " << set.cfg.fRegCls << " "
            << set.cfg.lossFunc << ", rank " << rank << " of " << numRanks << ", threads "
            << numThread << ", rows " << set.rows.size() << ", columns " << set.rows[0].size()
            << ", messages: " << messages << " and " << messageV[rank];
    }
}

TEST(Ranks, TrainAsOneProcess) {
    static const int kNumRanks[] = {1, 2, 3, 4, 7};
    static const char* const kTunings[] = {"", "smallNode=0 mostBins=16 cellCost=0 fewKeys=0",
                                           "smallNode=8 mostBins=4 cellCost=0 chunkRows=4",
                                           "listPercent=101 leastRows=2147483647"};
    for (unsigned seed = 1; seed <= hostile::Scaled(300) && !HasFatalFailure(); ++seed) {
        const Set set = MakeSet(seed);
        const Tuning tuning(seed / 5 % 5 == 4 ? "1" : "0", kTunings[seed % 4]);
        ExpectSame(set, kNumRanks[seed % 5], seed % 3 == 0 ? 4 : 1, seed);
    }
}

// A metric that falls up to round `best`, and is never as low again.
struct Descent {
    int best;
    int numCalls = 0;

    static int Measure(void* context, const char*, std::int64_t, const double*, const double*,
                       double* value) {
        Descent& metric = *static_cast<Descent*>(context);
        *value = ++metric.numCalls <= metric.best ? -metric.numCalls : 0.0;
        return 0;
    }
};

// Settings and metrics on which the number of exchanges depends. Without a check, ranks with other
// ones would wait for each other for ever.
TEST(Ranks, EndIfSettingsOrMetricsDiffer) {
    struct {
        int maxDepth, earlyStop, bestAtOther;
        const char* message;
    } const cases[] = {
        {3, 2, 4, ""},
        {5, 2, 4, "ERROR: Rank 1 has other settings, labels, weights, queries or another seed"},
        {3, 3, 4, "ERROR: Rank 1 has other settings, labels, weights, queries or another seed"},
        {3, 2, 6, "ERROR: After round 5, earlyStop has another best round at rank 1"}};
    const double values[] = {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16};
    for (const auto& other : cases) {
        std::string messageV[2];
        const std::vector<int> statusV = RunRanks(2, [&](Communicator& communicator) {
            const bool fOther = communicator.Rank() == 1;
            CheckCfgCLS cfg;
            cfg.modelType = "GBDT";
            cfg.numBound = 1;
            cfg.maxDepth = fOther ? other.maxDepth : 3;
            cfg.earlyStop = fOther ? other.earlyStop : 2;
            int status = cfg.CheckCfg();
            TreeLearner learner(cfg);
            Descent descent = {fOther ? other.bestAtOther : 4};
            sylvora::RandomStream stream(5);
            sylvora::Ranks ranks(communicator, {0, 1});
            const VecVecDle rows = {{1, 0}, {2, 0}, {3, 0}, {4, 0}, {5, 0}, {6, 0}, {7, 0}, {8, 0}};
            const Layout layout(rows, Layout::kColumnMajor);
            sylvora::TrainingOptions& options = learner.trainingOptions;
            options.stream = &stream;
            options.sink = Collect;
            options.sinkContext = &messageV[communicator.Rank()];
            options.ranks = &ranks;
            options.setV = {{"set", layout.Block(), values, nullptr}};
            options.userMetricV = {{"descent", Descent::Measure, &descent}};
            options.stopMetric = "descent";
            if (status == 0) {
                status = learner.DataBorrow(sylvora::DataSet::Make(layout.Block()), values, 8,
                                            nullptr, 0);
            }
            if (status == 0) status = learner.ParamInit();
            return status == 0 ? learner.Boosting() : status;
        });
        const std::string text = other.message;
        for (size_t rank = 0; rank < 2; ++rank) {
            EXPECT_EQ(statusV[rank], text.empty() ? 0 : -1) << messageV[rank];
            EXPECT_NE(messageV[rank].find(text), std::string::npos) << messageV[rank];
        }
    }
}

// Stops after some steps.
struct Stopper {
    int last;

    static int Report(void* context, int done, int) {
        return done >= static_cast<Stopper*>(context)->last ? 1 : 0;
    }
};

// Trains with a checkpoint up to step `last`, or to the end. Returns the model file, "" without
// one.
std::string TrainOn(const Set& set, const std::string& checkpoint, int numRanks, int last,
                    unsigned seed) {
    const sylvora::tests::TempFolder folder;
    std::mt19937 random(seed);
    std::vector<int> ownerV;
    for (size_t c = 0; c < set.rows[0].size(); ++c) {
        ownerV.push_back(static_cast<int>(random() % static_cast<unsigned>(numRanks)));
    }
    const std::vector<int> statusV = RunRanks(numRanks, [&](Communicator& communicator) {
        sylvora::Ranks ranks(communicator, ownerV);
        CheckCfgCLS cfg = set.cfg;
        cfg.fSetThread = true;
        cfg.numThread = numRanks % 2 + 1;
        cfg.fileCheckpoint = checkpoint;
        std::string messages;
        int status = cfg.CheckCfg();
        cfg.fileModel = folder.Path("model");
        const VecVecDle rows = OwnRows(set, ownerV, communicator.Rank());
        const Layout layout(rows, Layout::kColumnMajor);
        TreeLearner learner(cfg);
        sylvora::RandomStream stream(5);
        learner.setPackedTrees(true);
        learner.trainingOptions.stream = &stream;
        learner.trainingOptions.sink = Collect;
        learner.trainingOptions.sinkContext = &messages;
        learner.trainingOptions.ranks = &ranks;
        Stopper stopper = {last};
        if (last > 0 && communicator.Rank() == 0) learner.setProgress(Stopper::Report, &stopper);
        if (status == 0) {
            status = learner.DataBorrow(sylvora::DataSet::Make(layout.Block()), set.labels.data(),
                                        static_cast<int>(set.labels.size()), set.queries.data(),
                                        static_cast<int>(set.queries.size()));
        }
        if (status == 0) status = learner.ParamInit();
        if (status == 0) status = learner.Boosting();
        return status;
    });
    // A stop at one rank stops all.
    EXPECT_TRUE(std::equal(statusV.begin() + 1, statusV.end(), statusV.begin()));
    return statusV[0] != 0 ? "" : sylvora::tests::ReadFile(folder.Path("model"));
}

// Goes on from a checkpoint with other numbers of ranks, and threads.
TEST(Ranks, GoOnFromACheckpointWithOtherRanks) {
    const sylvora::tests::TempFolder folder;
    const std::string checkpoint = folder.Path("checkpoint");
    unsigned numTrained = 0;
    for (unsigned seed = 1; seed <= hostile::Scaled(60) && !HasFailure(); ++seed) {
        SCOPED_TRACE(seed);
        Set set = MakeSet(seed);
        if (set.unchecked != nullptr || set.prepared != nullptr) continue;
        const std::string expected = TrainOn(set, "", 1, 0, seed);
        if (expected.empty()) continue;
        ++numTrained;
        for (int numRanks = 1, last = 1; numRanks <= 4; ++numRanks, last += 2) {
            TrainOn(set, checkpoint, numRanks, last, seed + static_cast<unsigned>(numRanks));
        }
        EXPECT_TRUE(TrainOn(set, checkpoint, 3, 0, seed) == expected);
        std::remove(checkpoint.c_str());
    }
    EXPECT_GT(numTrained, hostile::Scaled(30));
}

}  // namespace

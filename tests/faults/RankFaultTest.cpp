// Makes every allocation fail in turn while two ranks exchange their data: both must end, and one
// of them says why. A rank that fails after its last exchange fails alone.
#include <gtest/gtest.h>

#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "../Support.h"
#include "../ranks/ThreadRanks.h"
#include "FailingCalls.h"
#include "OwnColumns.h"
#include "god/Report.h"
#include "reading/RankedSets.h"

namespace {

using namespace sylvora;
using namespace sylvora::tests;

// Tries `work` with one failed allocation, of either rank. Returns false if none failed.
bool TryOnce(long first, const std::function<int(Communicator&)>& work) {
    std::vector<int> statusV;
    bool fFailed = false;
    const Outcome outcome = Observe([&] {
        std::optional<FailingCalls> failing;
        statusV = RunRanks(2, [&](Communicator& peers) {
            char ready = 0, all[2];
            if (peers.AllGather(&ready, 1, all) != 0) return -1;
            if (peers.Rank() == 0) failing.emplace(Call::kAllocation, first, false);
            return Guarded([&] { return peers.Broadcast(&ready, 1, 0) != 0 ? -1 : work(peers); });
        });
        fFailed = FailingCalls::HasFailed();
        return 0;
    });
    const bool fEnded = statusV != std::vector<int>(2, 0);
    EXPECT_TRUE(!fEnded || outcome.err.find("memory") != std::string::npos)
        << "call " << first << ": " << outcome.err;
    return fFailed && !testing::Test::HasFailure();
}

TEST(RankFaults, MemoryRunsOutInAnExchangeOfRows) {
    const double values[] = {1, 2, 3, 4, 5, 6.5, 7, 8, 9, 10, 11, 12};
    const auto gather = [&values](Communicator& peers) {
        const DataBlock share = RowsOf(values, 4, 3, 3);
        const auto own = OwnColumns::Gather(share, {values, nullptr, nullptr}, peers);
        return own == nullptr ? -1 : 0;
    };
    long first = 0;
    while (TryOnce(first, gather)) ++first;
    EXPECT_GT(first, 40);
}

TEST(RankFaults, MemoryRunsOutInReading) {
    const TempFolder folder;
    const std::string path = folder.Write("train", "1 qid:a 1:1 3:2\n2 qid:a 2:2\n3 qid:b 1:4\n");
    const auto read = [&path](Communicator& peers) {
        CheckCfgCLS cfg;
        cfg.modelType = "GBRank";
        cfg.fileTrain = path;
        frontend::ReadingThreads threads(1, 16);
        std::vector<frontend::RunSet> setV = frontend::NameSets(cfg);
        frontend::RankedSet training;
        return frontend::ReadSets(setV, cfg, threads, peers, training);
    };
    long first = 0;
    while (TryOnce(first, read)) ++first;
    EXPECT_GT(first, 100);
}

}  // namespace

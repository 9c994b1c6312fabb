// Rows that ranks gather by columns must be, bit for bit, those of one table, however they are cut
// and in whatever layout they are given.
#include "OwnColumns.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <climits>
#include <cmath>
#include <cstring>
#include <limits>
#include <mutex>
#include <random>
#include <string>
#include <vector>

#include "../Support.h"
#include "../differential/Layouts.h"
#include "../ranks/ThreadRanks.h"
#include "OwnColumns/ColumnDealing.h"
#include "base/BlockReader.h"
#include "god/CallContext.h"
#include "god/Report.h"

namespace sylvora {
namespace {

using namespace sylvora::tests;
using hostile::Layout;

const double kInf = std::numeric_limits<double>::infinity();
const double kNan = std::numeric_limits<double>::quiet_NaN();

// A table with columns of all kinds; `kind` is the column's number modulo 7.
VecVecDle Table(int numRows, int numColumns, unsigned seed) {
    std::mt19937 random(seed);
    std::normal_distribution<double> normal;
    VecVecDle rows(static_cast<size_t>(numRows), VecDle(static_cast<size_t>(numColumns)));
    for (VecDle& row : rows) {
        for (size_t c = 0; c < row.size(); ++c) {
            const unsigned draw = static_cast<unsigned>(random() % 40);
            switch (c % 7) {
                case 0:
                    row[c] = normal(random);
                    break;
                case 1:
                    row[c] = draw * 0.25;
                    break;
                case 2:
                    row[c] = 7;
                    break;
                case 3:
                    row[c] = draw < 10 ? kMissingValue : normal(random);
                    break;
                case 4:
                    row[c] = draw % 2 == 0 ? -0.0 : draw % 3;
                    break;
                case 5:
                    row[c] = draw < 2 ? 1e37 / 3 : -1e-310;
                    break;
                default:
                    row[c] = static_cast<float>(normal(random));
                    break;
            }
        }
    }
    return rows;
}

// The ends of the shares of `numRanks` ranks; some may be empty.
std::vector<size_t> CutRandomly(size_t numRows, int numRanks, unsigned seed) {
    std::mt19937 random(seed);
    std::vector<size_t> endV;
    for (int r = 1; r < numRanks; ++r) endV.push_back(random() % (numRows + 1));
    endV.push_back(numRows);
    if (seed % 5 == 0) std::fill(endV.begin(), endV.end(), numRows);        // rank 0 has all
    if (seed % 5 == 1) std::fill(endV.begin(), endV.end() - 1, size_t{0});  // the last one has
    std::sort(endV.begin(), endV.end());
    return endV;
}

bool SameBits(double a, double b) {
    return std::memcmp(&a, &b, sizeof a) == 0;
}

// Checks what a rank got. Foreign columns are zeros.
void CheckColumns(const OwnColumns& own, int rank, const DataBlock& whole) {
    const DataBlock block = own.Block();
    ASSERT_EQ(FaultOf(block), "");
    ASSERT_EQ(block.numRows, whole.numRows);
    ASSERT_EQ(block.numColumns, whole.numColumns);
    const BlockReader got(block), expected(whole);
    for (int c = 0; c < expected.NumColumns(); ++c) {
        const bool fOwn = own.Owners()[static_cast<size_t>(c)] == rank;
        bool fFloats = true;
        for (int row = 0; row < expected.NumRows(); ++row) {
            const double value = expected.At(row, c);
            fFloats &=
                std::fabs(value) < 1e38 && static_cast<double>(static_cast<float>(value)) == value;
            ASSERT_TRUE(SameBits(got.At(row, c), fOwn ? value : 0.0)) << row << ", " << c;
        }
        if (!fOwn) continue;
        EXPECT_EQ(block.columns[c].type, fFloats ? ValueType::kFloat32 : ValueType::kFloat64) << c;
    }
}

// Gathers `rows`, cut at `endV`, given in a layout.
void CheckGathering(const VecVecDle& rows, const std::vector<size_t>& endV, Layout::Kind kind) {
    const Layout whole(rows, kind);
    VecDle labels;
    VecInt queries;
    for (size_t i = 0; i < rows.size(); ++i) {
        labels.push_back(0.1 * static_cast<double>(i));
        queries.push_back(static_cast<int>(i / 3));
    }
    std::vector<std::vector<int>> ownersV(endV.size());
    const std::vector<int> statusV =
        RunRanks(static_cast<int>(endV.size()), [&](Communicator& peers) {
            const size_t rank = static_cast<size_t>(peers.Rank());
            const size_t begin = rank > 0 ? endV[rank - 1] : 0;
            const auto at = [&rows](size_t row) {
                return rows.begin() + static_cast<std::ptrdiff_t>(row);
            };
            const bool fEmpty = begin == endV[rank];
            const Layout share(fEmpty ? rows : VecVecDle(at(begin), at(endV[rank])), kind);
            const DataBlock block = fEmpty ? DataBlock() : share.Block();
            const RowTargets targets = {fEmpty ? nullptr : labels.data() + begin,
                                        fEmpty ? nullptr : queries.data() + begin, nullptr};
            const auto own = OwnColumns::Gather(block, targets, peers);
            if (own == nullptr) return -1;
            CheckColumns(*own, peers.Rank(), whole.Block());
            EXPECT_EQ(own->Labels(), labels);
            EXPECT_EQ(own->Queries(), queries);
            EXPECT_TRUE(own->Weights().empty());
            ownersV[rank] = own->Owners();
            return 0;
        });
    EXPECT_EQ(statusV, std::vector<int>(endV.size(), 0));
    for (const std::vector<int>& owners : ownersV) EXPECT_EQ(owners, ownersV[0]);
}

TEST(OwnColumns, AreThoseOfOneTable) {
    unsigned seed = 0;
    for (const int numRanks : {1, 2, 3, 4, 7}) {
        for (int kind = 0; kind < Layout::kNumKinds; ++kind) {
            for (const int numRows : {1, 5, 100}) {
                ++seed;
                SCOPED_TRACE(Text(numRanks, " ranks, layout ", kind, ", ", numRows, " rows"));
                const int numColumns = 1 + static_cast<int>(seed % 15);
                CheckGathering(Table(numRows, numColumns, seed),
                               CutRandomly(static_cast<size_t>(numRows), numRanks, seed),
                               static_cast<Layout::Kind>(kind));
                if (HasFailure()) return;
            }
        }
    }
}

// More than one exchange of values, and of labels.
TEST(OwnColumns, OfManyRowsAreSentInBlocks) {
    CheckGathering(Table(300000, 7, 1), {170000, 170001, 300000}, Layout::kColumnMajor);
}

// A table of 4 rows, and the ranks that have them: one row each.
struct Faulty {
    const char* name;
    double value;  // of row 2, column 1
    bool fNanMissing;
    const char* message;  // without "ERROR: " and "!"
};

TEST(OwnColumns, RefusedValuesAreNamedByTheirRowInTheWhole) {
    for (const Faulty& faulty :
         {Faulty{"nan", kNan, false, "The data block has a NaN in row 2, column 1"},
          {"infinite", -kInf, true,
           "The value of row 2, column 1 is infinite: training needs finite values"}}) {
        for (const int numRanks : {1, 4}) {
            SCOPED_TRACE(faulty.name);
            VecVecDle rows = {{1, 2, 3}, {4, 5, 6}, {7, faulty.value, 9}, {kInf, 11, kInf}};
            if (faulty.fNanMissing) rows[3][0] = 10;
            const Outcome outcome = Observe([&] {
                const std::vector<int> statusV = RunRanks(numRanks, [&](Communicator& peers) {
                    const size_t first = static_cast<size_t>(peers.Rank());
                    const VecVecDle mineV = numRanks == 1 ? rows : VecVecDle(1, rows[first]);
                    const Layout share(mineV, Layout::kRowMajor);
                    DataBlock block = share.Block();
                    block.fNanMissing = faulty.fNanMissing;
                    // Waits for the others, so that none is cancelled before it has written.
                    const auto own = OwnColumns::Gather(block, {}, peers);
                    return own == nullptr ? 0 : -1;
                });
                return statusV == std::vector<int>(static_cast<size_t>(numRanks), 0) ? 0 : -1;
            });
            EXPECT_EQ(outcome.status, 0);
            std::string expected;
            for (int r = 0; r < numRanks; ++r) expected += Text("ERROR: ", faulty.message, "!\n");
            EXPECT_EQ(outcome.err, expected);
        }
    }
}

// What the ranks give; each has `numRows` rows of `numColumns` columns and, perhaps, labels.
struct Given {
    int numRows, numColumns;
    bool fLabels;
    int fault = 0;  // 1: no values; 2: too many rows in all
};

std::string MessageOf(const std::vector<Given>& givenV) {
    const VecDle valueV(100, 1.5);
    std::vector<std::string> messageV(givenV.size());
    const std::vector<int> statusV =
        RunRanks(static_cast<int>(givenV.size()), [&](Communicator& peers) {
            const size_t rank = static_cast<size_t>(peers.Rank());
            const Given& given = givenV[rank];
            DataBlock block =
                sylvora::RowsOf(valueV.data(), given.numRows, given.numColumns, given.numColumns);
            if (given.fault == 1) block.values = nullptr;
            if (given.fault == 2) block.numRows = INT_MAX - 8;
            std::string message;
            std::mutex mutex;
            CallContext context;
            context.sink = [](void* to, int, const char* text) {
                *static_cast<std::string*>(to) += text;
            };
            context.sinkContext = &message;
            context.sinkMutex = &mutex;
            const ContextScope scope(&context);
            const RowTargets targets = {given.fLabels ? valueV.data() : nullptr, nullptr, nullptr};
            const auto own = OwnColumns::Gather(block, targets, peers);
            messageV[rank] = message;
            return own == nullptr ? 0 : 1;
        });
    for (size_t r = 0; r < givenV.size(); ++r) {
        EXPECT_EQ(statusV[r], 0);
        EXPECT_EQ(messageV[r], messageV[0]);
    }
    return messageV[0];
}

TEST(OwnColumns, SharesThatDoNotFitAreRefusedAtAllRanks) {
    EXPECT_EQ(MessageOf({{2, 3, true}, {0, 9, false}, {2, 4, true}}),
              "ERROR: The data block of rank 2 has 4 columns, that of rank 0 has 3!\n");
    EXPECT_EQ(MessageOf({{0, 3, true}, {2, 3, false}, {2, 3, true}}),
              "ERROR: Rank 1 gives no labels, rank 2 does!\n");
    EXPECT_EQ(MessageOf({{2, 3, true}, {2, 3, false}}),
              "ERROR: Rank 1 gives no labels, rank 0 does!\n");
    EXPECT_EQ(MessageOf({{0, 3, true}, {0, 3, true}}), "ERROR: The data block has no rows!\n");
    EXPECT_EQ(MessageOf({{2, 0, true}}), "ERROR: The data block has no columns!\n");
    EXPECT_EQ(MessageOf({{2, 3, true}, {2, 3, true, 1}}),
              "ERROR: rank 1: The data block has no values: the pointer is null!\n");
    EXPECT_EQ(
        MessageOf({{2, 1, true, 2}, {2, 1, true}}),
        Text("ERROR: The data block has ", INT_MAX - 6L, " rows, more than ", INT_MAX - 8, "!\n"));
}

// A rank whose exchanges fail after the first few.
class LeavingRank : public Communicator {
  public:
    LeavingRank(Communicator& communicator, int numExchanges)
        : peers(communicator), numLeft(numExchanges) {}

    int Rank() const override { return peers.Rank(); }
    int Size() const override { return peers.Size(); }
    int AllGather(const void* mine, size_t bytes, void* all) override {
        return --numLeft < 0 ? -1 : peers.AllGather(mine, bytes, all);
    }
    int Broadcast(void* data, size_t bytes, int root) override {
        return --numLeft < 0 ? -1 : peers.Broadcast(data, bytes, root);
    }
    int AllToAll(const void* mine, size_t bytes, void* all) override {
        return --numLeft < 0 ? -1 : peers.AllToAll(mine, bytes, all);
    }
    bool Cancelled() override { return peers.Cancelled(); }

  private:
    Communicator& peers;
    int numLeft;
};

// A rank that leaves before, amid or after the exchanges ends the call at the others, too.
TEST(OwnColumns, ALostRankEndsTheCallAtAllRanks) {
    const VecVecDle rows = Table(50, 4, 1);
    const VecDle labels(50);
    int numExchanges = 0;
    for (bool fDone = false; !fDone; ++numExchanges) {
        std::vector<int> statusV;
        const Outcome outcome = Observe([&] {
            statusV = RunRanks(3, [&](Communicator& communicator) {
                LeavingRank leaving(communicator, numExchanges);
                const bool fLeaves = communicator.Rank() == 1;
                const Layout share(rows, Layout::kRowMajor);
                const auto own =
                    OwnColumns::Gather(share.Block(), {labels.data(), nullptr, nullptr},
                                       fLeaves ? leaving : communicator);
                return own == nullptr ? -1 : 0;
            });
            return 0;
        });
        fDone = statusV == std::vector<int>(3, 0);
        if (fDone) break;
        EXPECT_EQ(statusV, std::vector<int>(3, -1)) << numExchanges;
        EXPECT_NE(outcome.err.find("ERROR: rank 1: another rank has left"), std::string::npos);
        ASSERT_LT(numExchanges, 100);
    }
    EXPECT_GT(numExchanges, 5);
}

TEST(OwnColumns, AreDealtOutByCost) {
    EXPECT_EQ(DealColumns({1, 24, 4, 4, 24, 1}, 2), (std::vector<int>{0, 0, 0, 1, 1, 1}));
    EXPECT_EQ(DealColumns({5, 5}, 4), (std::vector<int>{0, 1}));
    std::mt19937 random(1);
    for (int trial = 0; trial < 100; ++trial) {
        const int numRanks = 1 + static_cast<int>(random() % 9);
        std::vector<int> costV(random() % 50), loadV(static_cast<size_t>(numRanks));
        int total = 0;
        for (int& cost : costV) total += cost = CostOfColumn(static_cast<int>(random() % 1024));
        const std::vector<int> ownerV = DealColumns(costV, numRanks);
        for (size_t c = 0; c < costV.size(); ++c) loadV[static_cast<size_t>(ownerV[c])] += costV[c];
        const int most = *std::max_element(loadV.begin(), loadV.end());
        EXPECT_LE(most, total / numRanks + CostOfColumn(1024));
    }
    ValueSketch constant, few, many;
    for (int i = 0; i < 4096; ++i) {
        constant.Add(i % 2 == 0 ? 0.0 : -0.0);
        few.Add(i % 20);
        many.Add(std::sqrt(i));
    }
    EXPECT_EQ(constant.NumSet(), 1);
    EXPECT_GE(few.NumSet(), 15);
    EXPECT_LE(few.NumSet(), 20);
    EXPECT_GE(many.NumSet(), 950);
}

}  // namespace
}  // namespace sylvora

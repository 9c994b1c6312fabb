// Compares data files read in blocks by several threads, in one pass or two, with the reference
// reader, which goes line by line and token by token. Rows, queries, statuses and messages must be
// equal.
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "../Support.h"
#include "RandomFile.h"
#include "ReferenceReader.h"
#include "frontend/reading/DataSet.h"
#include "frontend/reading/EarlyRows.h"

namespace sylvora::frontend {
namespace {

using namespace sylvora::tests;
using tests::ReferenceReader;
using tests::Rows;
using tests::Wanted;

struct Variant {
    int numThread;
    size_t blockBytes;
    double memory = 0.0;  // bytes for rows parsed in the first pass; 0: no speculative parsing
};

int ReadBlocks(const std::string& path, const Wanted& wanted, const Variant& variant, Rows& rows) {
    const auto linesOf = [&wanted](int dim, int largestId) {
        return wanted.fIgnoreLarger ? FirstColumnsOf(dim, largestId, wanted.absent)
                                    : RowsOf(std::max(dim, largestId), wanted.absent);
    };
    ReadingThreads threads(variant.numThread, variant.blockBytes);
    DataFile file("data", path);
    EarlyRows early({linesOf(wanted.dimLeast, 0), true}, variant.memory);
    const bool fOnce = variant.memory > 0.0;
    if ((fOnce ? file.Scan(threads, early) : file.Scan(threads)) != 0) return -1;
    const SetRules rules = {{linesOf(wanted.dimLeast, file.LargestId()), true}, wanted.fTogether};
    rows.dim = rules.row.line.dim;
    rows.lineOfWidest = file.LineOfLargestId();
    rows.fOnce = fOnce && early.Satisfies(rules.row.line);
    DataSet set;
    const int status =
        fOnce ? ReadSet(file, rules, early, threads, set) : ReadSet(file, rules, threads, set);
    rows.queryIdV = set.queryIdV;
    rows.lineWithoutQuery = set.lineWithoutQuery;
    rows.counts = set.counts;
    for (size_t i = 0; status == 0 && i < set.NumRows(); ++i) {
        rows.labelV.push_back(set.labelV[i]);
        rows.rowVV.emplace_back(set.rowVV[i], set.rowVV[i] + rows.dim);
    }
    return status;
}

bool SameBits(const VecDle& a, const VecDle& b) {
    return a.size() == b.size() &&
           (a.empty() || std::memcmp(a.data(), b.data(), a.size() * sizeof(double)) == 0);
}

struct Compared {
    bool fRead = false;  // the reference reader accepts the file
    int numOnce = 0;     // of the four variants with enough memory: those that needed one pass only
};

Compared Compare(const std::string& path, const Wanted& wanted) {
    constexpr double kEnough = 1e12;
    Compared compared;
    Rows expected;
    const Outcome reference = Observe([&] { return ReferenceReader(path, wanted).Read(expected); });
    for (const Variant& variant : {Variant{1, 1 << 18},
                                   {1, 64},
                                   {3, 17},
                                   {8, 100},
                                   {1, 1 << 18, kEnough},
                                   {1, 12, kEnough},
                                   {3, 17, kEnough},
                                   {8, 100, kEnough},
                                   {1, 1 << 18, 3e3},
                                   {3, 100, 2e4}}) {
        Rows rows;
        const Outcome blocks = Observe([&] { return ReadBlocks(path, wanted, variant, rows); });
        compared.numOnce += rows.fOnce && variant.memory == kEnough ? 1 : 0;
        EXPECT_EQ(blocks.status, reference.status) << blocks.err;
        EXPECT_EQ(blocks.err, reference.err);
        EXPECT_EQ(rows.dim, expected.dim);
        EXPECT_EQ(rows.lineOfWidest, expected.lineOfWidest);
        if (reference.status != 0) continue;
        EXPECT_EQ(rows.queryIdV, expected.queryIdV);
        EXPECT_EQ(rows.lineWithoutQuery, expected.lineWithoutQuery);
        EXPECT_EQ(rows.counts.numCells, expected.counts.numCells);
        EXPECT_EQ(rows.counts.numLarger, expected.counts.numLarger);
        EXPECT_EQ(rows.counts.lineOfLarger, expected.counts.lineOfLarger);
        EXPECT_TRUE(SameBits(rows.labelV, expected.labelV));
        EXPECT_EQ(rows.rowVV.size(), expected.rowVV.size());
        for (size_t i = 0; i < rows.rowVV.size(); ++i) {
            EXPECT_TRUE(SameBits(rows.rowVV[i], expected.rowVV[i])) << "row " << i;
        }
    }
    compared.fRead = reference.status == 0;
    return compared;
}

TEST(Reading, BlocksAndThreadsMakeNoDifference) {
    const TempFolder folder;
    int numRead = 0;
    int numOnce = 0;
    constexpr int kFiles = 200;
    for (unsigned seed = 0; seed < kFiles; ++seed) {
        const std::string text = RandomFile(seed, seed % 2 == 0 ? 0 : 30).Text();
        SCOPED_TRACE(text);
        const int dimLeast = seed % 5 == 0 ? static_cast<int>(seed % 15) : 0;
        const Compared compared =
            Compare(folder.Write("data", text),
                    {seed % 3 == 0, dimLeast, seed % 10 == 0, seed % 4 == 0 ? 0.0 : kMissing});
        numRead += compared.fRead ? 1 : 0;
        numOnce += compared.numOnce == 4 ? 1 : 0;
        if (HasFailure()) return;
    }
    EXPECT_GT(numOnce, kFiles / 8);
    EXPECT_GT(numRead, kFiles / 4);
    EXPECT_LT(numRead, kFiles * 3 / 4);
}

// Most blocks contain no start of a line, and one line needs many reads.
TEST(Reading, LongLines) {
    const TempFolder folder;
    std::string line = "1";
    for (int id = 1; id <= 20000; ++id) line += " " + std::to_string(id) + ":0.5";
    const std::string more = "\n2 1:1\n" + line;
    EXPECT_TRUE(Compare(folder.Write("data", line + more + "\n\n" + line), {}).fRead);
    EXPECT_FALSE(Compare(folder.Write("data", line + more + "x\nx"), {}).fRead);
}

// Rows that are parsed in the first pass end up with the right width, or are read again.
TEST(Reading, WidthsThatAreFoundLate) {
    struct Case {
        const char* text;
        int dimLeast;
        bool fOnce;
        bool fRead = true;
    };
    const Case cases[] = {
        {"1 1:1\n2 2:2\n3 3:3\n4 4:4\n5 5:5\n6 6:6", 0, true},
        {"1 1:1\r\n\r\n2\r\n \n3 9:3 1:1\r\n4 4:4\r\n5\r\n", 0, true},
        {"1 9:9\n2 2:2 \n3 3:3", 0, true},
        {"1\n2\n", 0, true},
        {"1\n2\n", 3, true},
        {"1 1:1\n2 3:3\n", 7, true},
        {"\n\n", 3, true},
        {"", 0, true},
        // After as many pairs as a row has columns: another pair, a fault, a larger id, a short
        // token.
        {"1 1:1 1:2 1:3\n2 3:1\n", 0, true},
        {"1 1:1 1:2 1:3\n2 2:1\n", 2, false},
        {"1 1:1 1:2 1:3\n2 2:1\n", 3, true},
        {"1 1:1 2:2 2:x\n2 2:1\n", 0, false},
        {"1 1:1 2:2 2:x\n2 3:1\n", 0, false, false},
        {"1 1:1 1:2 5:3\n2 2:1\n", 0, true},
        {"1 1:1 2:2 5 7:1\n2 2:1\n3 3:1\n", 2, true},
        {"1 qid:1 1:1 2:2\n2 1:1 qid:2 2:2\n", 0, true},
        {"1 qid:1 1:1 2:2\n2 1:1 2:2 qid:2\n", 0, false},
    };
    const TempFolder folder;
    for (const Case& c : cases) {
        SCOPED_TRACE(c.text);
        const Compared compared = Compare(folder.Write("data", c.text), {false, c.dimLeast});
        EXPECT_EQ(compared.fRead, c.fRead);
        EXPECT_EQ(compared.numOnce == 4, c.fOnce) << compared.numOnce;
    }
}

// Rows that were cut off after the first pass are an error, not made up.
TEST(Reading, AFileThatShrinksIsRefused) {
    const TempFolder folder;
    const std::string path = folder.Write("data", "1 1:1\n2 1:2\n3 1:3\n");
    for (const int numThread : {1, 3}) {
        ReadingThreads threads(numThread, 6);
        DataFile file("data", path);
        DataSet set;
        ASSERT_EQ(file.Scan(threads), 0);
        std::filesystem::resize_file(path, 6);
        const Outcome outcome = Observe([&] {
            return ReadSet(file, {{RowsOf(1), true}, false}, threads, set);
        });
        EXPECT_EQ(outcome.status, -1);
        EXPECT_EQ(outcome.err,
                  "ERROR: data " + path +
                      ", line 2: is missing: the file has changed since it was first read\n");
        folder.Write("data", "1 1:1\n2 1:2\n3 1:3\n");
    }
}

}  // namespace
}  // namespace sylvora::frontend

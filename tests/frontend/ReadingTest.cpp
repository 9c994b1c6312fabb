// Data files read in blocks by several threads, once or twice, against a plain reader: one line
// after the other, token by token. Rows, queries, statuses and messages must be the same.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <random>
#include <sstream>
#include <string>
#include <vector>

#include "../Support.h"
#include "frontend/DataSet.h"
#include "frontend/EarlyRows.h"
#include "god.h"
#include "god/Report.h"

namespace sylvora::frontend {
namespace {

using namespace sylvora::tests;

struct Rows {
    int dim = 0;
    long lineOfWidest = 0;  // the first of them; 0: no line has a feature
    VecDle labelV;
    VecVecDle rowVV;
    VecInt queryIdV;
    long lineWithoutQuery = 0;
    bool fOnce = false;  // none of them was parsed twice
};

class PlainReader {
  public:
    explicit PlainReader(const std::string& file) : path(file) {
        std::istringstream text(ReadFile(path));
        for (std::string line; std::getline(text, line);) lineV.push_back(line);
    }

    int Read(bool fTogether, Rows& rows) {
        int widest = 0;
        for (size_t i = 0; i < lineV.size(); ++i) {
            const int id = LargestId(lineV[i]);
            if (id > widest) rows.lineOfWidest = static_cast<long>(i) + 1;
            widest = std::max(widest, id);
        }
        rows.dim = std::max(rows.dim, widest);
        for (numLine = 1; numLine <= static_cast<long>(lineV.size()); ++numLine) {
            const std::string& line = lineV[static_cast<size_t>(numLine) - 1];
            if (line.find_first_not_of(" \t\n\v\f\r") == std::string::npos) continue;
            if (ReadRow(line, rows) != 0) return -1;
            if (TakeQuery(fTogether, rows) != 0 || CheckFinite(rows) != 0) return -1;
        }
        return 0;
    }

  private:
    static int LargestId(const std::string& line) {
        std::istringstream tokens(line);
        int largest = 0;
        std::string token;
        for (tokens >> token; tokens >> token && token.size() >= 3;) {
            const size_t colon = token.find(':');
            if (colon == std::string::npos) break;
            const std::string id = token.substr(0, colon);
            if (id == "qid" || id == "QID") continue;
            int number = 0;
            if (!TryStrToInt(id.c_str(), number)) break;
            largest = std::max(largest, number);
        }
        return largest;
    }

    int ReadRow(const std::string& line, Rows& rows) {
        VecDle row(static_cast<size_t>(rows.dim));
        double* values = row.data();
        double valLabel = 0.0;
        int count = 0;
        std::string label;
        if (line.find('\0') != std::string::npos) {
            return Refuse("holds a zero byte, a line of text is wanted");
        }
        if (read_sparse_line(line, rows.dim, values, count, label, queryId, true) != 0) {
            return Refuse(
                Text("wanted: label [qid:query] id:value ..., with ids from 1 to ", rows.dim));
        }
        if (!TryStrToDouble(label.c_str(), valLabel)) {
            return Refuse("the label \"" + label + "\" is no number");
        }
        rows.labelV.push_back(valLabel);
        rows.rowVV.push_back(row);
        return 0;
    }

    int TakeQuery(bool fTogether, Rows& rows) {
        if (queryId.empty()) {
            if (rows.lineWithoutQuery == 0) rows.lineWithoutQuery = numLine;
            return 0;
        }
        size_t number = 0;
        while (number < queryV.size() && queryV[number].first != queryId) ++number;
        if (number == queryV.size()) {
            queryV.push_back({queryId, numLine});
        } else if (fTogether && current != number) {
            return Refuse(Text("query \"", queryId, "\" stood on line ", queryV[number].second,
                               " and comes again; GBRank wants the rows of a query together"));
        }
        queryV[number].second = numLine;
        current = number;
        rows.queryIdV.push_back(static_cast<int>(number));
        return 0;
    }

    int CheckFinite(const Rows& rows) const {
        const VecDle& row = rows.rowVV.back();
        const auto isInfinite = [](double value) { return !std::isfinite(value); };
        const auto found = std::find_if(row.begin(), row.end(), isInfinite);
        if (!isInfinite(rows.labelV.back()) && found == row.end()) return 0;
        const std::string what = isInfinite(rows.labelV.back())
                                     ? "the label"
                                     : Text("the value of id ", found - row.begin() + 1);
        return Refuse(what + " is infinite; training wants numbers that a double holds");
    }

    int Refuse(const std::string& complaint) const {
        return Fail("ERROR: data ", path, ", line ", numLine, ": ", complaint, "\n");
    }

    std::string path;
    std::vector<std::string> lineV;
    long numLine = 0;
    std::string queryId;
    size_t current = 0;
    std::vector<std::pair<std::string, long>> queryV;  // with the latest line of each
};

struct Way {
    int numThread;
    size_t blockBytes;
    double memory = 0.0;  // for rows that are read at first sight; 0: none are
};

// `rows.dim` columns at least.
int ReadBlocks(const std::string& path, bool fTogether, const Way& way, Rows& rows) {
    ReadingThreads threads(way.numThread, way.blockBytes);
    DataFile file("data", path);
    EarlyRows early(rows.dim, true, way.memory);
    const bool fOnce = way.memory > 0.0;
    if ((fOnce ? file.Scan(threads, early) : file.Scan(threads)) != 0) return -1;
    rows.dim = WidestRow({&file}, rows.dim);
    rows.lineOfWidest = file.LineOfLargestId();
    rows.fOnce = fOnce && early.CanBe(rows.dim);
    DataSet set;
    const SetRules rules = {{rows.dim, true}, fTogether};
    const int status =
        fOnce ? ReadSet(file, rules, early, threads, set) : ReadSet(file, rules, threads, set);
    rows.queryIdV = set.queryIdV;
    rows.lineWithoutQuery = set.lineWithoutQuery;
    for (size_t i = 0; status == 0 && i < set.NumRows(); ++i) {
        rows.labelV.push_back(set.labelV[i]);
        rows.rowVV.emplace_back(set.rowVV[i], set.rowVV[i] + rows.dim);
    }
    return status;
}

// Lines that are mostly right; `faults` of a thousand are not.
class RandomFile {
  public:
    RandomFile(unsigned seed, unsigned faultShare) : random(seed), faults(faultShare) {}

    std::string Text() {
        const unsigned numLines = Below(120);
        const char* const lineEnd = Below(4) == 0 ? "\r\n" : "\n";
        const bool fQueries = Below(2) == 0;
        width = 1 + Below(Below(8) == 0 ? 300 : 9);
        std::string text;
        for (unsigned i = 0; i < numLines; ++i) {
            if (Below(16) == 0) text += Pick({"", " ", "\t \v", "\f"}) + lineEnd;
            text += Line(fQueries ? "qid:q" + std::to_string(i / 7) : "");
            text += i + 1 < numLines || Below(2) == 0 ? lineEnd : "";
        }
        return text;
    }

  private:
    std::string Line(const std::string& query) {
        if (Fault() && !query.empty()) return "1 1:2 qid:q0";
        if (Fault()) {
            return Pick({"word 1:2", "1 word", "1 1:x 1:2", "1 x:1", "1 0:1", "1 1:1e999", "1e999",
                         "1 1:2 qid:q0", std::string("1 1:\0", 5), "1 1:2:3", "1 -1:0", "1 1:"});
        }
        std::string line = Pick({"", " "}) + std::to_string(Below(3));
        if (!query.empty() && Below(64) != 0) line += " " + query;
        for (unsigned id = 1; id <= width; ++id) {
            if (Below(3) == 0) continue;
            line += Pick({" ", "\t", "  "}) + Pick({"", "", "", "+", "0"}) + std::to_string(id) +
                    Pick({"", "", "", "", "e0"}) + ":" + Value();
        }
        return line + Pick({"", "", "", " 5", " 5 9:9:9", " qid:", " 3:4 "});
    }

    std::string Value() {
        std::string value = Pick({"", "-"}) + std::to_string(Below(1000));
        if (Below(2) == 0) value += "." + std::to_string(Below(4000000000));
        return value + Pick({"", "", "", "", "e-3", "e300", "00000000000000"});
    }

    unsigned Below(unsigned bound) { return static_cast<unsigned>(random() % bound); }
    bool Fault() { return Below(1000) < faults; }
    std::string Pick(const std::vector<std::string>& from) {
        return from[Below(static_cast<unsigned>(from.size()))];
    }

    std::mt19937 random;
    unsigned faults;
    unsigned width = 1;
};

bool SameBits(const VecDle& a, const VecDle& b) {
    return a.size() == b.size() &&
           (a.empty() || std::memcmp(a.data(), b.data(), a.size() * sizeof(double)) == 0);
}

struct Compared {
    bool fRead = false;  // the file is one that can be read
    int numOnce = 0;     // of four ways with more memory than is needed
};

// Rows of `dim` columns at least.
Compared Compare(const std::string& path, bool fTogether, int dim = 0) {
    constexpr double kEnough = 1e12;
    Compared compared;
    Rows expected;
    expected.dim = dim;
    const Outcome plain = Observe([&] { return PlainReader(path).Read(fTogether, expected); });
    for (const Way& way : {Way{1, 1 << 18},
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
        rows.dim = dim;
        const Outcome blocks = Observe([&] { return ReadBlocks(path, fTogether, way, rows); });
        compared.numOnce += rows.fOnce && way.memory == kEnough ? 1 : 0;
        EXPECT_EQ(blocks.status, plain.status) << blocks.err;
        EXPECT_EQ(blocks.err, plain.err);
        EXPECT_EQ(rows.dim, expected.dim);
        EXPECT_EQ(rows.lineOfWidest, expected.lineOfWidest);
        if (plain.status != 0) continue;
        EXPECT_EQ(rows.queryIdV, expected.queryIdV);
        EXPECT_EQ(rows.lineWithoutQuery, expected.lineWithoutQuery);
        EXPECT_TRUE(SameBits(rows.labelV, expected.labelV));
        EXPECT_EQ(rows.rowVV.size(), expected.rowVV.size());
        for (size_t i = 0; i < rows.rowVV.size(); ++i) {
            EXPECT_TRUE(SameBits(rows.rowVV[i], expected.rowVV[i])) << "row " << i;
        }
    }
    compared.fRead = plain.status == 0;
    return compared;
}

TEST(Reading, BlocksAndThreadsDoNotShow) {
    const TempFolder folder;
    int numRead = 0;
    int numOnce = 0;
    constexpr int kFiles = 200;
    for (unsigned seed = 0; seed < kFiles; ++seed) {
        const std::string text = RandomFile(seed, seed % 2 == 0 ? 0 : 30).Text();
        SCOPED_TRACE(text);
        const Compared compared = Compare(folder.Write("data", text), seed % 3 == 0,
                                          seed % 5 == 0 ? static_cast<int>(seed % 15) : 0);
        numRead += compared.fRead ? 1 : 0;
        numOnce += compared.numOnce == 4 ? 1 : 0;
        if (HasFailure()) return;
    }
    EXPECT_GT(numOnce, kFiles / 8);
    EXPECT_GT(numRead, kFiles / 4);
    EXPECT_LT(numRead, kFiles * 3 / 4);
}

// Blocks of which most hold no start of a line, and a line that fills many buffers.
TEST(Reading, LongLines) {
    const TempFolder folder;
    std::string line = "1";
    for (int id = 1; id <= 20000; ++id) line += " " + std::to_string(id) + ":0.5";
    const std::string more = "\n2 1:1\n" + line;
    EXPECT_TRUE(Compare(folder.Write("data", line + more + "\n\n" + line), false).fRead);
    EXPECT_FALSE(Compare(folder.Write("data", line + more + "x\nx"), false).fRead);
}

// Rows that are read at first sight are as wide as they turn out to have to be, or read once more.
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
        // Behind as many pairs as a narrow row takes: more, a fault, a larger id, a short token.
        {"1 1:1 1:2 1:3\n2 3:1\n", 0, false},
        {"1 1:1 1:2 1:3\n2 2:1\n", 2, true},
        {"1 1:1 1:2 1:3\n2 2:1\n", 3, true},
        {"1 1:1 2:2 2:x\n2 2:1\n", 0, true},
        {"1 1:1 2:2 2:x\n2 3:1\n", 0, false, false},
        {"1 1:1 1:2 5:3\n2 2:1\n", 0, true},
        {"1 1:1 2:2 5 7:1\n2 2:1\n3 3:1\n", 2, false},
    };
    const TempFolder folder;
    for (const Case& c : cases) {
        SCOPED_TRACE(c.text);
        const Compared compared = Compare(folder.Write("data", c.text), false, c.dimLeast);
        EXPECT_EQ(compared.fRead, c.fRead);
        EXPECT_EQ(compared.numOnce == 4, c.fOnce) << compared.numOnce;
    }
}

// Rows that are no longer there are missed, not imagined.
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
            return ReadSet(file, {{1, true}, false}, threads, set);
        });
        EXPECT_EQ(outcome.status, -1);
        EXPECT_EQ(outcome.err,
                  "ERROR: data " + path + ", line 2: has gone since the file was first read\n");
        folder.Write("data", "1 1:1\n2 1:2\n3 1:3\n");
    }
}

}  // namespace
}  // namespace sylvora::frontend

// Data lines: the row that each gives, or the error message.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "../Support.h"
#include "god.h"

namespace {

using namespace sylvora::tests;

const double m = -2147483648.0;  // a missing value
const double g = 4711.0;         // a guard: an entry that must not be written

enum Form { kSparse, kCheckOnly, kDense };

struct Case {
    Form form;
    std::string line;
    std::string err;  // empty: the line is read
    std::vector<double> row;
    std::string label, qid;
    int count;  // -1 for dense lines, whose readers have no count
};

int Read(const Case& c, int dim, double*& row, int& count, std::string& label, std::string& qid) {
    if (c.form == kDense) return read_dense_line(c.line, dim, row, label, qid);
    return read_sparse_line(c.line, dim, row, count, label, qid, c.form == kSparse);
}
int Read(const Case& c, int dim, float*& row, int&, std::string& label, std::string& qid) {
    return read_dense_line(c.line, dim, row, label, qid);
}

// Reads the line into a row followed by a guard, and compares all outputs.
template <typename Value>
void Check(const Case& c) {
    SCOPED_TRACE(c.line);
    std::vector<Value> buffer(c.row.size() + 1, static_cast<Value>(g));
    Value* row = buffer.data();
    int count = -1;
    std::string label = "old", qid = "old";
    const int dim = static_cast<int>(c.row.size());
    const Outcome outcome = Observe([&] { return Read(c, dim, row, count, label, qid); });
    EXPECT_EQ(outcome.status, c.err.empty() ? 0 : -1);
    EXPECT_EQ(outcome.err, c.err);
    std::vector<Value> expected(c.row.begin(), c.row.end());
    expected.push_back(static_cast<Value>(g));
    EXPECT_EQ(buffer, expected);
    EXPECT_EQ(label, c.label);
    EXPECT_EQ(qid, c.qid);
    EXPECT_EQ(count, c.count);
}

std::string BadValue(const std::string& text) {
    return "ERROR: feature value is not a digit: \"" + text + "\"!\n";
}
std::string BadId(const std::string& text) {
    return "ERROR: feature id is not an integer: \"" + text + "\"!\n";
}
std::string OutOfTwo(const std::string& id) {
    return "ERROR: Illegal feature id: \"" + id + "\", which is supposed to be in [1, 2]\n";
}

TEST(DataLines, Table) {
    const std::string badFormat = "ERROR: wrong feature format!\n";
    const std::string incomplete = "ERROR: Imcomplete feature line for dense data!\n";
    const Case cases[] = {
        {kSparse, "1 qid:7 3:0.5 1:2", "", {2, m, 0.5}, "1", "7", 2},
        {kSparse, "1 qid:7 2:0.5 1:2 qid:8", "", {2, 0.5}, "1", "7", 2},
        {kSparse, " \tlabel\t2:1e2\r", "", {m, 100}, "label", "", 1},
        {kSparse, "", "", {m, m}, "", "", 0},
        {kSparse, "0", "", {m, m}, "0", "", 0},
        {kSparse, "1 1:2 5: 2:3", "", {2, m, m}, "1", "", 1},
        {kSparse, "1 1:2 1:5", "", {5, m, m}, "1", "", 2},
        {kSparse, "1 QID:a:b 1e0:1", "", {1, m}, "1", "a:b", 1},
        {kSparse, "1 1:2 0:1", OutOfTwo("0"), {2, m}, "1", "", 1},
        {kSparse, "1 3:1", OutOfTwo("3"), {m, m}, "1", "", 0},
        {kSparse, "1 word", badFormat, {m, m}, "1", "", 0},
        {kSparse, "1 1:4 3:abc", BadValue("abc"), {4, m, m}, "1", "", 1},
        {kSparse, "1 1:2:3", BadValue("2:3"), {m, m}, "1", "", 0},
        {kSparse, "1 x1:0.5", BadId("x1"), {m, m}, "1", "", 0},
        {kSparse, "1 x1:y", BadValue("y"), {m, m}, "1", "", 0},
        {kSparse, "1 Qid:12", BadId("Qid"), {m, m}, "1", "", 0},
        {kCheckOnly, "1 qid:2 9:5 0:6 1:2 4:1", "", {m, m, m}, "1", "2", 3},
        {kCheckOnly, "1 9:5 x1:1", BadId("x1"), {m, m, m}, "1", "", 1},
        {kDense, "0 5:1 9:2 1:3", "", {1, 2, 3}, "0", "", -1},
        {kDense, "0 1:1 qid:4 2:2 3:3.5 4:4", "", {1, 2, 3.5}, "0", "4", -1},
        {kDense, "0 1:1 2:2 3:", incomplete, {1, 2, g}, "0", "", -1},
        {kDense, "0", incomplete, {g}, "0", "", -1},
        {kDense, "0 1:1 2:two", BadValue("two"), {1, g, g}, "0", "", -1},
        {kDense, "0 1:1 b:2", BadId("b"), {1, g, g}, "0", "", -1},
        {kDense, "0 1:1 two", badFormat, {1, g, g}, "0", "", -1},
    };
    for (const Case& c : cases) {
        Check<double>(c);
        if (c.form == kDense) Check<float>(c);
    }
}

}  // namespace

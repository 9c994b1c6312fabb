// Data lines in their three forms, against a reader that goes word by word. The first byte chooses
// the number of columns, the rest is the line. Built twice: once for sparse lines, once for dense.
#include <cstring>

#include "../tests/InMemory.h"
#include "Fuzz.h"
#include "ReferenceLine.h"

using namespace sylvora;
using namespace sylvora::fuzz;

namespace {

constexpr int kMostColumns = 12;

tests::Messages& TheMessages() {
    static tests::Messages messages;
    return messages;
}

void CheckSame(const ReadLine& read, const ReadLine& expected) {
    Demand(read.status == expected.status, "another status, with " + read.message);
    Demand(read.message == expected.message, read.message + "instead of " + expected.message);
    Demand(read.label == expected.label && read.query == expected.query, "another label or query");
    Demand(read.count == expected.count, "another number of pairs");
    const size_t numBytes = expected.rowV.size() * sizeof(double);
    Demand(std::memcmp(read.rowV.data(), expected.rowV.data(), numBytes) == 0, "another row");
}

// Into a row that ends where its memory does.
template <typename Value, typename Reader>
ReadLine Read(int dim, const Reader& reader) {
    std::vector<Value> rowV(static_cast<size_t>(dim), static_cast<Value>(kUntouched));
    Value* row = rowV.data();
    ReadLine line;
    line.label = line.query = "old";
    line.status = reader(row, line);
    line.rowV.assign(rowV.begin(), rowV.end());
    line.message = TheMessages().Take();
    return line;
}

ReadLine ReadSparse(const std::string& text, int dim, bool fStore) {
    return Read<double>(dim, [&](double*& row, ReadLine& line) {
        return read_sparse_line(text, dim, row, line.count, line.label, line.query, fStore);
    });
}

template <typename Value>
ReadLine ReadDense(const std::string& text, int dim, int count) {
    ReadLine read = Read<Value>(dim, [&](Value*& row, ReadLine& line) {
        return read_dense_line(text, dim, row, line.label, line.query);
    });
    read.count = count;  // which dense lines do not report
    return read;
}

ReadLine CheckSparse(const std::string& text, int dim) {
    CheckSame(ReadSparse(text, dim, false),
              ReferenceLine<double>(text, dim, Form::kCheckOnly).line);
    const ReadLine read = ReadSparse(text, dim, true);
    CheckSame(read, ReferenceLine<double>(text, dim, Form::kSparse).line);
    return read;
}

ReadLine CheckDense(const std::string& text, int dim) {
    const ReadLine single = ReferenceLine<float>(text, dim, Form::kDense).line;
    CheckSame(ReadDense<float>(text, dim, single.count), single);
    const ReadLine expected = ReferenceLine<double>(text, dim, Form::kDense).line;
    CheckSame(ReadDense<double>(text, dim, expected.count), expected);
    return expected;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static Counter counter;
    TheMessages();
    if (size == 0) return 0;
    const int dim = 1 + data[0] % kMostColumns;
    const std::string text = TextOf(data + 1, size - 1);
    const ReadLine read = FUZZ_DENSE ? CheckDense(text, dim) : CheckSparse(text, dim);
    counter.Add(read.status, read.message);
    return 0;
}

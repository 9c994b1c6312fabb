// Compares how the library and the reference reader read a data line.
#ifndef SYLVORA_FUZZ_LINECHECK_H
#define SYLVORA_FUZZ_LINECHECK_H

#include <cstring>
#include <string>
#include <vector>

#include "../tests/InMemory.h"
#include "Fuzz.h"
#include "ReferenceLine.h"

namespace sylvora::fuzz {

// A fuzz input: the first byte gives the number of columns, the rest is the line.
struct LineInput {
    static constexpr int kMostColumns = 12;

    LineInput(const uint8_t* data, size_t size)
        : dim(1 + data[0] % kMostColumns), text(TextOf(data + 1, size - 1)) {}

    int dim;
    std::string text;
};

inline void DemandSame(const ReadLine& read, const ReadLine& expected) {
    Demand(read.status == expected.status, "another status, with " + read.message);
    Demand(read.message == expected.message, read.message + "instead of " + expected.message);
    Demand(read.label == expected.label && read.query == expected.query, "another label or query");
    Demand(read.count == expected.count, "another number of pairs");
    const size_t numBytes = expected.rowV.size() * sizeof(double);
    Demand(std::memcmp(read.rowV.data(), expected.rowV.data(), numBytes) == 0, "another row");
}

// Calls reader(row, line) with a row that ends at the end of its allocation, so that an overrun is
// detected.
template <typename Value, typename Reader>
ReadLine Read(int dim, tests::Messages& messages, const Reader& reader) {
    std::vector<Value> rowV(static_cast<size_t>(dim), static_cast<Value>(kUntouched));
    Value* row = rowV.data();
    ReadLine line;
    line.label = line.query = "old";
    line.status = reader(row, line);
    line.rowV.assign(rowV.begin(), rowV.end());
    line.message = messages.Take();
    return line;
}

}  // namespace sylvora::fuzz

#endif  // SYLVORA_FUZZ_LINECHECK_H

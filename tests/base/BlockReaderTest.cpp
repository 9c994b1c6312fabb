// What blocks are refused, and how values of all types are read.
#include "base/BlockReader.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <climits>
#include <cmath>
#include <limits>

#include "../Support.h"
#include "DataSet.h"

namespace {

using sylvora::BlockReader;
using sylvora::DataBlock;
using sylvora::DataColumn;
using sylvora::DataSet;
using sylvora::FaultOf;
using sylvora::ValueType;

constexpr std::int64_t kFew = 4;
const double kValues[64] = {};

DataBlock Dense(std::int64_t rows, std::int64_t columns, std::ptrdiff_t rowStride,
                std::ptrdiff_t columnStride) {
    DataBlock block = sylvora::RowsOf(kValues, rows, columns, columns);
    block.rowStride = rowStride;
    block.columnStride = columnStride;
    return block;
}

TEST(BlockReader, RefusesWhatCannotBeRead) {
    constexpr std::ptrdiff_t kMost = std::numeric_limits<std::ptrdiff_t>::max();
    constexpr std::ptrdiff_t kLeast = std::numeric_limits<std::ptrdiff_t>::min();
    struct Case {
        DataBlock block;
        const char* fault;  // a part of it; empty: none
    };
    DataBlock null = Dense(kFew, 2, 16, 8);
    null.values = nullptr;
    DataBlock strange = Dense(kFew, 2, 16, 8);
    strange.type = static_cast<ValueType>(99);
    DataBlock layout = strange;
    layout.layout = static_cast<DataBlock::Layout>(99);
    const Case kCases[] = {
        {Dense(kFew, 2, 16, 8), ""},
        {Dense(kFew, 2, 8, 32), ""},
        {Dense(kFew, 2, -16, -8), ""},
        {Dense(kFew, 2, 24, 8), ""},
        {Dense(1, 2, 0, 8), ""},
        {Dense(kFew, 1, 8, 0), ""},
        {Dense(0, 2, 0, 0), ""},
        {Dense(kFew, 2, 8, 8), "overlapping"},
        {Dense(kFew, 2, 0, 8), "overlapping"},
        {Dense(kFew, 2, 16, 4), "overlapping"},
        {Dense(kFew, 2, 8, 24), "overlapping"},
        {Dense(kFew, 2, kMost, 8), "beyond"},
        {Dense(kFew, 2, 16, kLeast), "beyond"},
        {Dense(-1, 2, 16, 8), "negative"},
        {Dense(std::int64_t{1} << 31, 2, 16, 8), "more than"},
        {Dense(kFew, INT64_MAX, 16, 8), "more than"},
        {null, "null"},
        {strange, "unknown type"},
        {layout, "unknown layout"},
    };
    for (const Case& at : kCases) {
        const std::string fault = FaultOf(at.block);
        SCOPED_TRACE(fault);
        EXPECT_EQ(fault.empty(), *at.fault == '\0') << (&at - kCases);
        EXPECT_NE(fault.find(at.fault), std::string::npos) << (&at - kCases);
    }
}

TEST(BlockReader, RefusesWrongColumnsAndSparseEntries) {
    DataBlock block;
    block.layout = DataBlock::Layout::kColumns;
    block.numRows = kFew;
    block.numColumns = 2;
    EXPECT_NE(FaultOf(block).find("null"), std::string::npos);
    DataColumn columns[2];
    columns[0].values = kValues;
    block.columns = columns;
    EXPECT_NE(FaultOf(block).find("column 1"), std::string::npos);
    columns[1].values = kValues;
    EXPECT_EQ(FaultOf(block), "");
    columns[1].stride = 4;
    EXPECT_NE(FaultOf(block).find("stride"), std::string::npos);

    block.layout = DataBlock::Layout::kSparseRows;
    EXPECT_NE(FaultOf(block).find("null"), std::string::npos);
    std::int32_t begins[] = {0, 0, 2, 2, 3};
    std::int32_t indices[] = {0, 1, 1};
    block.begins = begins;
    block.indices = indices;
    EXPECT_NE(FaultOf(block).find("null"), std::string::npos);
    block.stored.values = kValues;
    EXPECT_EQ(FaultOf(block), "");
    const auto faultWith = [&](std::int32_t& place, std::int32_t value) {
        const std::int32_t old = place;
        place = value;
        const std::string fault = FaultOf(block);
        place = old;
        return fault;
    };
    EXPECT_NE(faultWith(indices[2], 2).find("index 2 in row 3"), std::string::npos);
    EXPECT_NE(faultWith(indices[2], -1).find("does not exist"), std::string::npos);
    EXPECT_NE(faultWith(indices[1], 0).find("ascend"), std::string::npos);
    EXPECT_NE(faultWith(begins[2], 4).find("descending"), std::string::npos);
    EXPECT_NE(faultWith(begins[0], -1).find("negative"), std::string::npos);
}

template <typename Value>
void ExpectRead(ValueType type, Value a, Value b) {
    const Value values[] = {a, b};
    DataBlock block = sylvora::RowsOf(kValues, 2, 1, 1);
    block.values = values;
    block.type = type;
    block.rowStride = sizeof(Value);
    const BlockReader reader(block);
    double read[2];
    reader.ReadRows(0, 2, 1, read);
    EXPECT_EQ(read[0], static_cast<double>(a));
    EXPECT_EQ(read[1], static_cast<double>(b));
    EXPECT_EQ(reader.At(1, 0), static_cast<double>(b));
}

TEST(BlockReader, ReadsAllTypes) {
    ExpectRead<double>(ValueType::kFloat64, 0.1, -1e300);
    ExpectRead<float>(ValueType::kFloat32, 0.1f, -1e30f);
    ExpectRead<std::int64_t>(ValueType::kInt64, INT64_MIN, 5);
    ExpectRead<std::int32_t>(ValueType::kInt32, INT_MAX, -5);
    ExpectRead<std::int16_t>(ValueType::kInt16, SHRT_MIN, 5);
    ExpectRead<std::int8_t>(ValueType::kInt8, -128, 127);
    ExpectRead<std::uint64_t>(ValueType::kUInt64, UINT64_MAX, 5);
    ExpectRead<std::uint32_t>(ValueType::kUInt32, UINT_MAX, 5);
    ExpectRead<std::uint16_t>(ValueType::kUInt16, 65535, 5);
    ExpectRead<std::uint8_t>(ValueType::kUInt8, 255, 5);
}

template <typename Value>
void ExpectRefusals(ValueType type) {
    constexpr int kRows = 37, kColumns = 5, kRow = 21, kColumn = 3;
    constexpr std::ptrdiff_t kSize = sizeof(Value);
    const double infinity = INFINITY;
    for (const double value : {1e30, infinity, -infinity, std::nan("")}) {
        for (const std::ptrdiff_t gap : {1, 2}) {
            for (const bool fRows : {true, false}) {
                std::vector<Value> valueV(static_cast<size_t>(kRows * kColumns * gap), Value{2});
                DataBlock block = sylvora::RowsOf(valueV.data(), kRows, kColumns, kColumns * gap);
                block.type = type;
                block.rowStride = fRows ? kColumns * kSize * gap : kSize;
                block.columnStride = fRows ? kSize : kRows * kSize * gap;
                valueV[static_cast<size_t>((kRow * block.rowStride + kColumn * block.columnStride) /
                                           kSize)] = static_cast<Value>(value);
                block.fInfiniteRefused = true;
                EXPECT_EQ(BlockReader(block).RefusedValue(),
                          std::isinf(value) ? "has an infinite value in row 21, column 3" : "");
                block.fNanMissing = false;
                block.fInfiniteRefused = false;
                EXPECT_EQ(BlockReader(block).RefusedValue(),
                          std::isnan(value) ? "has a NaN in row 21, column 3" : "");
            }
        }
    }
}

TEST(BlockReader, FindsRefusedValuesInAllOrders) {
    ExpectRefusals<double>(ValueType::kFloat64);
    ExpectRefusals<float>(ValueType::kFloat32);
}

// What is read as missing, and what is refused, with row and column.
TEST(BlockReader, FollowsTheRulesForMissingValues) {
    const double nan = std::nan("");
    const double values[] = {1.0, nan, -999.0, INFINITY};
    DataBlock block = sylvora::RowsOf(values, 2, 2, 2);
    block.missing = -999.0;
    EXPECT_EQ(BlockReader(block).At(0, 1), sylvora::kMissingValue);
    EXPECT_EQ(BlockReader(block).At(1, 0), sylvora::kMissingValue);
    EXPECT_EQ(BlockReader(block).RefusedValue(), "");
    block.fInfiniteRefused = true;
    EXPECT_EQ(BlockReader(block).RefusedValue(), "has an infinite value in row 1, column 1");
    block.fNanMissing = false;
    EXPECT_EQ(BlockReader(block).RefusedValue(), "has a NaN in row 0, column 1");
    EXPECT_TRUE(std::isnan(BlockReader(block).At(0, 1)));

    const sylvora::tests::Captured captured(STDERR_FILENO);
    EXPECT_EQ(DataSet::Make(block), nullptr);
    EXPECT_EQ(DataSet::Make(sylvora::RowsOf(kValues, 0, 2, 2)), nullptr);
    EXPECT_EQ(DataSet::Make(sylvora::RowsOf(kValues, 2, 0, 2)), nullptr);
    const auto set = DataSet::Make(sylvora::RowsOf(kValues, 2, 2, 2));
    ASSERT_NE(set, nullptr);
    const int rows[] = {0, 2};
    EXPECT_EQ(DataSet::Subset(set, rows, 2), nullptr);
    EXPECT_EQ(DataSet::Subset(set, rows, 0), nullptr);
    EXPECT_EQ(DataSet::Subset(set, nullptr, 1), nullptr);
    EXPECT_EQ(DataSet::Subset(nullptr, rows, 1), nullptr);
    EXPECT_NE(DataSet::Subset(set, rows, 1), nullptr);
}

}  // namespace

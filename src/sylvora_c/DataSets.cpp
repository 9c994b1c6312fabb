// Blocks and data sets of the C interface.
#include <algorithm>
#include <charconv>
#include <climits>
#include <cmath>
#include <utility>

#include "../DataSet/CodedData.h"
#include "Call.h"
#include "Handles.h"

namespace sylvora::c {
namespace {

// The enumerators have the same order in both interfaces; unknown ones are refused later.
static_assert(static_cast<int>(ValueType::kUInt8) == SYLVORA_UINT8 &&
              static_cast<int>(ValueType::kInt64) == SYLVORA_INT64);
static_assert(static_cast<int>(DataBlock::Layout::kSparseColumns) == SYLVORA_SPARSE_COLUMNS);

ValueType TypeOf(int32_t type) {
    return static_cast<ValueType>(type);
}

}  // namespace

// Widths are checked by what uses the block; here only what would make the copy itself fail.
int Block::Take(const sylvora_block* from) {
    if (from == nullptr) return RefuseNull("The block");
    if (from->size != sizeof *from) {
        return Fail("ERROR: The block has a size of ", from->size, ", not ", sizeof *from,
                    ": begin with SYLVORA_BLOCK\n");
    }
    block.layout = static_cast<DataBlock::Layout>(from->layout);
    block.numRows = from->num_rows;
    block.numColumns = from->num_columns;
    block.values = from->values;
    block.type = block.stored.type = TypeOf(from->type);
    block.stored.values = from->values;
    block.rowStride = from->row_stride;
    block.columnStride = from->column_stride;
    block.begins = from->begins;
    block.indices = from->indices;
    block.fLongBegins = from->long_begins != 0;
    block.fLongIndices = from->long_indices != 0;
    if (from->has_missing != 0) block.missing = from->missing;
    block.fNanMissing = from->refuse_nan == 0;
    block.fInfiniteRefused = from->refuse_infinite != 0;
    columnV.clear();
    const bool fColumns = from->layout == SYLVORA_COLUMNS && from->columns != nullptr;
    for (int64_t c = 0; fColumns && c < from->num_columns && c <= INT_MAX; ++c) {
        const sylvora_column& column = from->columns[c];
        columnV.push_back({column.values, TypeOf(column.type), column.stride, column.validity,
                           column.validity_offset});
    }
    block.columns = columnV.empty() ? nullptr : columnV.data();
    return 0;
}

std::string ExactText(double value) {
    char text[32];
    const std::to_chars_result end = std::to_chars(text, text + sizeof text, value);
    return std::string(text, end.ptr);
}

std::string Block::Missing() const {
    std::string number = std::isnan(block.missing) ? "" : ExactText(block.missing);
    if (!block.fNanMissing) return number;
    return number.empty() ? "nan" : "nan " + number;
}

}  // namespace sylvora::c

using sylvora::c::RefuseNull;
using sylvora::c::Run;

int sylvora_dataset_new(const sylvora_block* block, sylvora_dataset** out) {
    return Run([&] {
        if (out == nullptr) return RefuseNull("out");
        sylvora::c::Block taken;
        if (taken.Take(block) != 0) return -1;
        auto made = std::make_unique<sylvora_dataset>();
        made->set = sylvora::DataSet::Make(taken.Get());
        made->missing = taken.Missing();
        if (made->set == nullptr) return -1;
        *out = made.release();
        return 0;
    });
}

int sylvora_dataset_subset(const sylvora_dataset* whole, const int32_t* rows, int64_t num_rows,
                           sylvora_dataset** out) {
    return Run([&] {
        if (whole == nullptr) return RefuseNull("The data set");
        if (out == nullptr) return RefuseNull("out");
        if (num_rows > INT_MAX) return sylvora::Fail("ERROR: A subset has too many rows\n");
        auto made = std::make_unique<sylvora_dataset>();
        made->gathered = whole->gathered;
        made->set = sylvora::DataSet::Subset(whole->set, rows,
                                             static_cast<int>(std::max<int64_t>(num_rows, -1)));
        made->missing = whole->missing;
        made->fSubset = true;
        if (made->set == nullptr) return -1;
        *out = made.release();
        return 0;
    });
}

int64_t sylvora_dataset_rows(const sylvora_dataset* data) {
    return data != nullptr ? data->set->NumRows() : 0;
}

int64_t sylvora_dataset_columns(const sylvora_dataset* data) {
    return data != nullptr ? data->set->NumColumns() : 0;
}

int sylvora_dataset_column(const sylvora_dataset* data, int64_t column, double* values) {
    return Run([&] {
        if (data == nullptr) return RefuseNull("The data set");
        if (values == nullptr) return RefuseNull("values");
        if (column < 0 || column >= data->set->NumColumns()) {
            return sylvora::Fail("ERROR: There is no column ", column, ": the data set has ",
                                 data->set->NumColumns(), "\n");
        }
        data->set->Shared()->Values().ForColumn(
            static_cast<int>(column), [=](int row, double value) { values[row] = value; });
        if (data->gathered != nullptr) {
            sylvora::Ranks ranks = data->gathered->MakeRanks();
            ranks.Broadcast(values, static_cast<size_t>(data->set->NumRows()),
                            ranks.OwnerOf(static_cast<int>(column)));
        }
        return 0;
    });
}

void sylvora_dataset_free(sylvora_dataset* data) {
    delete data;
}

// Data sets of borrowed blocks; see DataSet.h.
#include "../DataSet.h"

#include <string>
#include <utility>
#include <vector>

#include "../god/Report.h"
#include "CodedData.h"
#include "base/BlockReader.h"

namespace sylvora {
namespace {

// Runs `make`, which returns a set or, after a message, null. Lack of memory is reported, too.
template <typename Maker>
std::shared_ptr<const DataSet> Made(const Maker& make) {
    std::shared_ptr<const DataSet> set;
    const int status = Guarded([&] {
        set = make();
        return set == nullptr ? -1 : 0;
    });
    return status == 0 ? set : nullptr;
}

std::nullptr_t Refuse(const std::string& fault) {
    static_cast<void>(Fail("ERROR: ", fault, "!\n"));
    return nullptr;
}

}  // namespace

DataSet::DataSet(std::shared_ptr<const CodedData> data) : coded(std::move(data)) {}

DataSet::~DataSet() = default;

int DataSet::NumRows() const {
    return coded->Values().NumRows();
}

int DataSet::NumColumns() const {
    return coded->Values().NumColumns();
}

std::shared_ptr<const DataSet> DataSet::Make(const DataBlock& block) {
    return Made([&]() -> std::shared_ptr<const DataSet> {
        std::string fault = FaultOf(block);
        if (fault.empty() && block.numRows == 0) fault = "has no rows";
        if (fault.empty() && block.numColumns == 0) fault = "has no columns";
        if (!fault.empty()) return Refuse("The data block " + fault);
        auto reader = std::make_shared<const BlockReader>(block);
        fault = reader->RefusedValue();
        if (!fault.empty()) return Refuse("The data block " + fault);
        const engine::Matrix matrix(std::move(reader));
        return std::shared_ptr<const DataSet>(
            new DataSet(std::make_shared<const CodedData>(matrix)));
    });
}

// A subset of a subset refers to the rows of the block, so that reading a value takes one step.
std::shared_ptr<const DataSet> DataSet::Subset(const std::shared_ptr<const DataSet>& whole,
                                               const int* rows, int numRows) {
    return Made([&]() -> std::shared_ptr<const DataSet> {
        if (whole == nullptr) return Refuse("There is no data set to take rows of");
        if (rows == nullptr || numRows <= 0) return Refuse("A subset of a data set has no rows");
        auto rowV = std::make_shared<const std::vector<int>>(rows, rows + numRows);
        for (size_t i = 0; i < rowV->size(); ++i) {
            const int row = (*rowV)[i];
            if (row >= 0 && row < whole->NumRows()) continue;
            return Refuse(Text("Row ", row, ", number ", i,
                               " of a subset, does not exist: the data set has ", whole->NumRows(),
                               " rows"));
        }
        const engine::Matrix matrix = whole->coded->Values().Rows(rowV);
        return std::shared_ptr<const DataSet>(
            new DataSet(std::make_shared<const CodedData>(whole->coded, std::move(rowV), matrix)));
    });
}

}  // namespace sylvora

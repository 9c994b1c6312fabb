// Making the codes of a data set when they are first needed; see CodedData.h.
#include "CodedData.h"

#include <cmath>

#include "../god/Report.h"

namespace sylvora {

using engine::BinnedColumns;
using engine::ColumnOrders;

// The lock is held while the pool works: its tasks never ask for codes.
std::shared_ptr<const BinnedColumns> CodedData::Binned(const engine::Tuning& tuning,
                                                       WorkerPool& pool) const {
    const std::lock_guard<std::mutex> lock(mutex);
    if (binned == nullptr) {
        binned = whole == nullptr ? std::make_shared<const BinnedColumns>(values, tuning, pool)
                                  : std::make_shared<const BinnedColumns>(
                                        *whole->Binned(tuning, pool), values, *rowsOfWholeV, pool);
    }
    return binned;
}

std::shared_ptr<const ColumnOrders> CodedData::Orders(ColumnOrders::Form form,
                                                      WorkerPool& pool) const {
    const std::lock_guard<std::mutex> lock(mutex);
    auto& orders = form == ColumnOrders::Form::kLists ? lists : ranks;
    if (orders == nullptr) {
        orders = whole == nullptr ? std::make_shared<const ColumnOrders>(values, form, pool)
                                  : std::make_shared<const ColumnOrders>(
                                        *whole->Orders(form, pool), values, *rowsOfWholeV, pool);
    }
    return orders;
}

std::shared_ptr<const ColumnMeans> CodedData::Means() const {
    const std::lock_guard<std::mutex> lock(mutex);
    if (means == nullptr) means = std::make_shared<const ColumnMeans>(MeansOf(values));
    return means;
}

// Column by column: the sums of different columns do not depend on each other.
ColumnMeans CodedData::MeansOf(const engine::Matrix& matrix) {
    ColumnMeans all;
    for (int column = 0; column < matrix.NumColumns(); ++column) {
        double mean = 0.0;
        int infinite = -1;  // the first row that is
        bool fMissing = false;
        bool fBelow = false;
        matrix.ForColumn(column, [&](int row, double value) {
            mean = NextMean(mean, value, matrix.NumRows());
            if (infinite < 0 && !std::isfinite(value)) infinite = row;
            fMissing |= value == kMissingValue;
            fBelow |= value < kMissingValue;
        });
        all.meanV.push_back(mean);
        if (fMissing && fBelow) all.belowMissingV.push_back(column);
        if (std::isfinite(mean) && infinite < 0) continue;
        all.fault = infinite >= 0 ? Text("The value of row ", infinite, ", column ", column,
                                         " is infinite: training needs finite values")
                                  : Text("The values of column ", column,
                                         " are too large to be added up; scale them down");
        break;
    }
    return all;
}

}  // namespace sylvora

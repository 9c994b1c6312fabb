// Making the codes of a data set when they are first needed; see CodedData.h.
#include "CodedData.h"

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

}  // namespace sylvora

// Data sets of several ranks in the C interface.
#include "GatheredData.h"

#include "Call.h"
#include "Handles.h"

using sylvora::Fail;
using sylvora::c::RefuseNull;
using sylvora::c::Run;

namespace {

int Check(const sylvora_communicator* communicator) {
    if (communicator == nullptr) return RefuseNull("The communicator");
    const sylvora_communicator& given = *communicator;
    if (given.size != sizeof given) {
        return Fail("ERROR: The communicator has a size of ", given.size, ", not ", sizeof given,
                    ": begin with SYLVORA_COMMUNICATOR\n");
    }
    if (given.rank < 0 || given.rank >= given.num_ranks) {
        return Fail("ERROR: The communicator has rank ", given.rank, " of ", given.num_ranks,
                    ": ranks are numbered from 0\n");
    }
    if (given.allgather == nullptr || given.broadcast == nullptr || given.alltoall == nullptr ||
        given.cancelled == nullptr) {
        return RefuseNull("A function of the communicator");
    }
    return 0;
}

template <typename Value>
void Give(const std::vector<Value>& valueV, const Value** out) {
    if (out != nullptr) *out = valueV.empty() ? nullptr : valueV.data();
}

}  // namespace

int sylvora_dataset_gather(const sylvora_communicator* communicator, const sylvora_block* share,
                           const double* labels, const int32_t* queries, const int32_t* weights,
                           sylvora_dataset** out) {
    return Run([&] {
        if (out == nullptr) return RefuseNull("out");
        sylvora::c::Block taken;
        if (Check(communicator) != 0 || taken.Take(share) != 0) return -1;
        auto made = std::make_unique<sylvora_dataset>();
        made->gathered = std::make_shared<sylvora::c::GatheredData>(*communicator);
        made->gathered->columns = sylvora::OwnColumns::Gather(
            taken.Get(), {labels, queries, weights}, made->gathered->communicator);
        if (made->gathered->columns == nullptr) return -1;
        made->set = sylvora::DataSet::Make(made->gathered->columns->Block());
        made->missing = taken.Missing();
        if (made->set == nullptr) return -1;
        *out = made.release();
        return 0;
    });
}

int sylvora_dataset_gathered(const sylvora_dataset* data, const double** labels,
                             const int32_t** queries, const int32_t** weights) {
    return Run([&] {
        if (data == nullptr) return RefuseNull("The data set");
        if (data->gathered == nullptr || data->fSubset) {
            return Fail("ERROR: The data set is not one of sylvora_dataset_gather\n");
        }
        const sylvora::OwnColumns& columns = *data->gathered->columns;
        Give(columns.Labels(), labels);
        Give(columns.Queries(), queries);
        Give(columns.Weights(), weights);
        return 0;
    });
}

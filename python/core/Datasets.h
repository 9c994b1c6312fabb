// The state of the Python class Dataset.
#ifndef SYLVORA_PYTHON_CORE_DATASETS_H
#define SYLVORA_PYTHON_CORE_DATASETS_H

#include <memory>

#include "Communicators.h"
#include "Support.h"
#include "sylvora_c.h"

namespace sylvora::python {

struct DatasetState {
    Reference_t table;                                // whose memory the data set uses
    std::shared_ptr<CommunicatorState> communicator;  // of several ranks; null: no ranks
    sylvora_dataset* data = nullptr;

    DatasetState() = default;
    ~DatasetState();
    DatasetState(const DatasetState&) = delete;
    DatasetState& operator=(const DatasetState&) = delete;
};

}  // namespace sylvora::python

#endif  // SYLVORA_PYTHON_CORE_DATASETS_H

// Setting up a training of the C interface; see Training.h.
#include <charconv>
#include <cmath>
#include <unordered_set>
#include <utility>
#include <variant>

#include "../CheckIn/Parameters.h"
#include "Training.h"
#include "base/BlockReader.h"

using sylvora::Fail;
using sylvora::Text;
using sylvora::c::NamedSet;
using sylvora::c::RefuseAfterRun;
using sylvora::c::RefuseNull;
using sylvora::c::Run;

namespace sylvora::c {

int RefuseAfterRun() {
    return Fail("ERROR: The training has run: make another one\n");
}

}  // namespace sylvora::c

namespace {

// Parameters that make no sense for data in memory.
bool IsOfTheCommand(const sylvora::ParameterRow& row) {
    const std::string name = row.name;
    const bool fFile = row.fFileName && name != "checkpoint";
    return fFile || name == "mode" || name == "absent" || name == "pathOutput" ||
           name == "fileResultBase" || name == "fTestRealTime" || name == "sizeGroup";
}

// Sets a parameter. Unlike the readers of files, refuses integers in other forms than digits, which
// would be read as others, and numbers beyond the range of their type.
bool AssignExactly(const sylvora::ParameterRow& row, std::string_view text, CheckCfgCLS& cfg) {
    const char* const end = text.data() + text.size();
    if (std::holds_alternative<int CheckCfgCLS::*>(row.member)) {
        int value = 0;
        const std::from_chars_result read = std::from_chars(text.data(), end, value);
        if (read.ec != std::errc() || read.ptr != end) return false;
    }
    if (!sylvora::AssignParameter(row, std::string(text), cfg)) return false;
    const auto* const real = std::get_if<double CheckCfgCLS::*>(&row.member);
    return real == nullptr || std::isfinite(cfg.**real);
}

// Numbers the queries 0, 1, 2, ... in order. Refuses one whose rows are not together.
int NumberQueries(const VecInt& idV, VecInt& queryV) {
    std::unordered_set<int> seen;
    queryV.clear();
    for (size_t i = 0; i < idV.size(); ++i) {
        const bool fNew = i == 0 || idV[i] != idV[i - 1];
        if (fNew && !seen.insert(idV[i]).second) {
            return Fail("ERROR: Row ", i, " is of query ", idV[i],
                        ", whose rows are not together: sort the rows by query\n");
        }
        queryV.push_back(static_cast<int>(seen.size()) - 1);
    }
    return 0;
}

}  // namespace

int sylvora_training_new(sylvora_training** out) {
    return Run([&] {
        if (out == nullptr) return RefuseNull("out");
        auto training = std::make_unique<sylvora_training>();
        training->cfg.fSetThread = true;  // one thread unless numThread is set
        *out = training.release();
        return 0;
    });
}

int sylvora_training_set(sylvora_training* training, const char* parameter, const char* value) {
    return Run([&] {
        if (training == nullptr || parameter == nullptr || value == nullptr) {
            return RefuseNull("The training, a parameter or its value");
        }
        if (training->fRun) return RefuseAfterRun();
        const sylvora::ParameterRow* const row = sylvora::FindParameter(parameter);
        if (row == nullptr) return Fail("ERROR: There is no parameter \"", parameter, "\"\n");
        if (IsOfTheCommand(*row)) {
            return Fail("ERROR: ", parameter, " is a parameter of the command only\n");
        }
        CheckCfgCLS changed = training->cfg;
        if (AssignExactly(*row, value, changed)) {
            training->cfg = std::move(changed);
            return 0;
        }
        return Fail("ERROR: ", parameter, ": \"", value, "\" is not valid, expected: ", row->range,
                    "\n");
    });
}

int sylvora_training_data(sylvora_training* training, const sylvora_dataset* data,
                          const double* labels, int64_t num_labels, const int32_t* queries,
                          int64_t num_queries) {
    return Run([&] {
        if (training == nullptr || data == nullptr) return RefuseNull("The training or its data");
        if (labels == nullptr) return RefuseNull("labels");
        if (training->fRun) return RefuseAfterRun();
        const int64_t numRows = data->set->NumRows();
        if (num_labels != numRows || (queries != nullptr && num_queries != numRows)) {
            return Fail("ERROR: The data set has ", numRows, " rows, but there are ", num_labels,
                        " labels", queries != nullptr ? Text(" and ", num_queries, " queries") : "",
                        ": one per row is needed\n");
        }
        for (int64_t i = 0; i < num_labels; ++i) {
            if (std::isfinite(labels[i])) continue;
            return Fail("ERROR: The label of row ", i, " is not a finite number\n");
        }
        VecInt queryV;
        if (queries != nullptr &&
            NumberQueries(VecInt(queries, queries + num_queries), queryV) != 0) {
            return -1;
        }
        training->labelV.assign(labels, labels + num_labels);
        training->queryV = std::move(queryV);
        training->data = data->set;
        training->gathered = data->gathered;
        training->missing = data->missing;
        return 0;
    });
}

int sylvora_training_weights(sylvora_training* training, const int32_t* weights,
                             int64_t num_weights) {
    return Run([&] {
        if (training == nullptr || weights == nullptr) return RefuseNull("The training or weights");
        if (training->fRun) return RefuseAfterRun();
        if (training->data == nullptr || num_weights != training->data->NumRows()) {
            return Fail("ERROR: There are ", num_weights,
                        " weights: one per row of the data is "
                        "needed, which sylvora_training_data sets first\n");
        }
        training->weightV.assign(weights, weights + num_weights);
        return 0;
    });
}

int sylvora_training_objective(sylvora_training* training, sylvora_objective function,
                               void* context, int hessians) {
    return Run([&] {
        if (training == nullptr || function == nullptr) {
            return RefuseNull("The training or function");
        }
        if (training->fRun) return RefuseAfterRun();
        training->cfg.lossFunc = "USER";
        training->objective = function;
        training->objectiveContext = context;
        training->options.fHessian = hessians != 0;
        return 0;
    });
}

int sylvora_training_start(sylvora_training* training, double value) {
    return Run([&] {
        if (training == nullptr) return RefuseNull("The training");
        if (training->fRun) return RefuseAfterRun();
        if (!std::isfinite(value)) return Fail("ERROR: The start value is not a finite number\n");
        training->options.fStart = true;
        training->options.startValue = value;
        return 0;
    });
}

int sylvora_training_evaluate(sylvora_training* training, const char* name,
                              const sylvora_block* block, const double* labels, int64_t num_labels,
                              const int32_t* queries, int64_t num_queries) {
    return Run([&] {
        if (training == nullptr || name == nullptr || labels == nullptr) {
            return RefuseNull("The training, the name or the labels of a set");
        }
        if (training->fRun) return RefuseAfterRun();
        NamedSet set;
        if (set.block.Take(block) != 0) return -1;
        const std::string fault = sylvora::FaultOf(set.block.Get());
        if (!fault.empty()) return Fail("ERROR: The set \"", name, "\" ", fault, "\n");
        if (block->num_rows == 0) return Fail("ERROR: The set \"", name, "\" has no rows\n");
        if (num_labels != block->num_rows || (queries != nullptr && num_queries != num_labels)) {
            return Fail("ERROR: The set \"", name, "\" has ", block->num_rows, " rows, but ",
                        num_labels, " labels",
                        queries != nullptr ? Text(" and ", num_queries, " queries") : "", "\n");
        }
        set.name = name;
        set.labelV.assign(labels, labels + num_labels);
        if (queries != nullptr &&
            NumberQueries(VecInt(queries, queries + num_queries), set.queryV) != 0) {
            return -1;
        }
        training->setV.push_back(std::move(set));
        return 0;
    });
}

int sylvora_training_metric(sylvora_training* training, const char* metric) {
    return Run([&] {
        if (training == nullptr || metric == nullptr) return RefuseNull("The training or metric");
        if (training->fRun) return RefuseAfterRun();
        training->options.metricV.emplace_back(metric);
        return 0;
    });
}

int sylvora_training_user_metric(sylvora_training* training, const char* name,
                                 sylvora_metric function, void* context, int larger_is_better) {
    return Run([&] {
        if (training == nullptr || name == nullptr || function == nullptr) {
            return RefuseNull("The training, the name or the function of a metric");
        }
        if (training->fRun) return RefuseAfterRun();
        training->options.userMetricV.push_back({name, function, context, larger_is_better != 0});
        return 0;
    });
}

int sylvora_training_stop_rule(sylvora_training* training, const char* set, const char* metric) {
    return Run([&] {
        if (training == nullptr) return RefuseNull("The training");
        if (training->fRun) return RefuseAfterRun();
        training->options.stopSet = set != nullptr ? set : "";
        training->options.stopMetric = metric != nullptr ? metric : "";
        return 0;
    });
}

int sylvora_training_on_progress(sylvora_training* training, sylvora_progress function,
                                 void* context) {
    return Run([&] {
        if (training == nullptr) return RefuseNull("The training");
        if (training->fRun) return RefuseAfterRun();
        training->progress = function;
        training->progressContext = context;
        return 0;
    });
}

int sylvora_training_on_message(sylvora_training* training, sylvora_message function,
                                void* context) {
    return Run([&] {
        if (training == nullptr) return RefuseNull("The training");
        if (training->fRun) return RefuseAfterRun();
        training->message = function;
        training->messageContext = context;
        return 0;
    });
}

void sylvora_training_free(sylvora_training* training) {
    delete training;
}

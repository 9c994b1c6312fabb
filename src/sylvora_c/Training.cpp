// Trainings of the C interface.
#include <charconv>
#include <climits>
#include <cmath>
#include <deque>
#include <unordered_set>
#include <utility>
#include <variant>

#include "../CheckIn/Parameters.h"
#include "../Links.h"
#include "Call.h"
#include "Handles.h"
#include "base/BlockReader.h"

using sylvora::Fail;
using sylvora::Text;
using sylvora::c::Call;
using sylvora::c::RefuseNull;
using sylvora::c::Run;

namespace {

// A set to evaluate, with its own copies.
struct NamedSet {
    std::string name;
    sylvora::c::Block block;
    VecDle labelV;
    VecInt queryV;
};

// Parameters that make no sense for data in memory.
bool IsOfTheCommand(const sylvora::ParameterRow& row) {
    const std::string name = row.name;
    return row.fFileName || name == "mode" || name == "absent" || name == "pathOutput" ||
           name == "fileResultBase" || name == "fTestRealTime" || name == "sizeGroup";
}

// The link as a description has it: none is an empty text.
const char* NameOf(sylvora::Link link) {
    switch (link) {
        case sylvora::Link::kLogit:
            return "logit";
        case sylvora::Link::kHalfLogit:
            return "half-logit";
        case sylvora::Link::kSoftplusShare:
            return "softplus-share";
        case sylvora::Link::kNone:
            break;
    }
    return "";
}

// The parameters that a model depends on. Not among them: numThread, digits and all that only
// report.
constexpr const char* kSettings[] = {"modelType",  "fRegCls",    "lossFunc",   "numTree",
                                     "valShrink",  "maxDepth",   "maxLeaf",    "numBound",
                                     "valSmpRt",   "ratio",      "randomMode", "valTau",
                                     "randomSeed", "huberDelta", "quantile",   "earlyStop"};

// The value of a parameter as a text that reads back exactly.
std::string ExactValue(const sylvora::ParameterRow& row, const CheckCfgCLS& cfg) {
    const auto* const real = std::get_if<double CheckCfgCLS::*>(&row.member);
    return real != nullptr ? sylvora::c::ExactText(cfg.**real) : sylvora::ParameterValue(row, cfg);
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

int RefuseAfterRun() {
    return Fail("ERROR: The training has run: make another one\n");
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

struct sylvora_training {
    CheckCfgCLS cfg;
    std::shared_ptr<const sylvora::DataSet> data;
    std::string missing;
    VecDle labelV;
    VecInt queryV;
    VecInt weightV;
    std::deque<NamedSet> setV;  // never moves its elements, which the learner borrows
    sylvora::TrainingOptions options;
    sylvora_objective objective = nullptr;
    void* objectiveContext = nullptr;
    sylvora_progress progress = nullptr;
    void* progressContext = nullptr;
    sylvora_message message = nullptr;
    void* messageContext = nullptr;
    bool fRun = false;  // it has begun to train
    sylvora::EvaluationRecord record;

    // Checks the parameters; `checked` receives them in the form that a learner needs.
    int Prepare(CheckCfgCLS& checked) const;
    int Train(TreeLearner& learner, Call& call);
    void Describe(const CheckCfgCLS& checked, sylvora::ModelDescription& description) const;
};

int sylvora_training::Prepare(CheckCfgCLS& checked) const {
    if (data == nullptr) return Fail("ERROR: The training has no data: sylvora_training_data\n");
    const bool fRanking = checked.modelType == "GBRank";
    if (checked.modelType != "GBDT" && !fRanking && checked.modelType != "RandomForest" &&
        checked.modelType != "CART") {
        return Fail("ERROR: modelType is \"", checked.modelType,
                    "\": set it to GBDT, GBRank, RandomForest or CART\n");
    }
    if (fRanking && queryV.empty()) {
        return Fail("ERROR: GBRank needs a query id per row: sylvora_training_data\n");
    }
    if (checked.CheckCfg() != 0) return -1;
    if (checked.lossFunc == "USER" && objective == nullptr) {
        return Fail("ERROR: lossFunc USER needs a function: sylvora_training_objective\n");
    }
    constexpr double kBound = -static_cast<double>(LONG_MIN);
    checked.tms_seed = checked.getRandomSeed();
    const double largest = std::fabs(checked.tms_seed) * std::max(checked.sizeGroup - 1, 1);
    if (largest < kBound) return 0;
    return Fail("ERROR: randomSeed ", checked.tms_seed,
                ": its absolute value, times the trees of a forest, must be below ", kBound, "\n");
}

int sylvora_training::Train(TreeLearner& learner, Call& call) {
    // The command seeds its trainings in the same way.
    sylvora::RandomStream stream(static_cast<long>(std::fabs(learner.CfgInfo.tms_seed)));
    learner.trainingOptions = options;
    sylvora::TrainingOptions& given = learner.trainingOptions;
    given.stream = &stream;
    given.sink = Call::Receive;
    given.sinkContext = &call;
    given.fCovers = true;
    if (objective != nullptr) {
        given.objective = [](void* context, const objective_round_t& round) {
            const auto& self = *static_cast<const sylvora_training*>(context);
            return self.objective(self.objectiveContext, round.round, round.numRows, round.labelV,
                                  round.scoreV, round.gradientV, round.hessianV);
        };
        given.objectiveContext = this;
    }
    for (const NamedSet& set : setV) {
        given.setV.push_back({set.name, set.block.Get(), set.labelV.data(),
                              set.queryV.empty() ? nullptr : set.queryV.data()});
    }
    learner.setProgress(progress, progressContext);
    learner.setVerification(true);
    learner.setPackedTrees(true);
    int status = learner.DataBorrow(data, labelV.data(), static_cast<int>(labelV.size()),
                                    queryV.data(), static_cast<int>(queryV.size()));
    VecDle().swap(labelV);  // the learner has a copy
    if (status == 0) status = learner.ParamInit();
    if (status == 0 && !weightV.empty()) {
        status = learner.setWeights(weightV.data(), static_cast<int>(weightV.size()));
    }
    if (status == 0) status = learner.Boosting();
    record = learner.getEvaluation();
    // What was borrowed for the run ends here.
    learner.trainingOptions = {};
    learner.setProgress(nullptr, nullptr);
    return status;
}

void sylvora_training::Describe(const CheckCfgCLS& checked,
                                sylvora::ModelDescription& description) const {
    description.missing = missing;
    description.bestRound = record.bestRound;
    description.link = NameOf(sylvora::LinkOf(checked.lossFunc));
    CheckCfgCLS asSet = checked;
    // Of a forest, CheckCfg moves the number of trees to sizeGroup.
    if (asSet.modelType == "RandomForest") asSet.numTree = asSet.sizeGroup;
    for (const char* const name : kSettings) {
        description.settingV.emplace_back(name, ExactValue(*sylvora::FindParameter(name), asSet));
    }
}

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
        training->missing = data->missing;
        return 0;
    });
}

int sylvora_training_weights(sylvora_training* training, const int32_t* weights,
                             int64_t num_weights) {
    return Run([&] {
        if (training == nullptr || weights == nullptr) return RefuseNull("The training or weights");
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
        if (training == nullptr || function == nullptr)
            return RefuseNull("The training or function");
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
        training->options.metricV.emplace_back(metric);
        return 0;
    });
}

int sylvora_training_stop_rule(sylvora_training* training, const char* set, const char* metric) {
    return Run([&] {
        if (training == nullptr) return RefuseNull("The training");
        training->options.stopSet = set != nullptr ? set : "";
        training->options.stopMetric = metric != nullptr ? metric : "";
        return 0;
    });
}

int sylvora_training_on_progress(sylvora_training* training, sylvora_progress function,
                                 void* context) {
    return Run([&] {
        if (training == nullptr) return RefuseNull("The training");
        training->progress = function;
        training->progressContext = context;
        return 0;
    });
}

int sylvora_training_on_message(sylvora_training* training, sylvora_message function,
                                void* context) {
    return Run([&] {
        if (training == nullptr) return RefuseNull("The training");
        training->message = function;
        training->messageContext = context;
        return 0;
    });
}

int sylvora_training_run(sylvora_training* training, sylvora_model** out) {
    const bool fNull = training == nullptr;
    Call call(fNull ? nullptr : training->message, fNull ? nullptr : training->messageContext);
    return call.Run([&] {
        if (fNull || out == nullptr) return RefuseNull("The training or out");
        if (training->fRun) return RefuseAfterRun();
        CheckCfgCLS checked = training->cfg;
        if (training->Prepare(checked) != 0) return -1;
        training->fRun = true;
        auto model = std::make_unique<sylvora_model>();
        model->learner = std::make_unique<TreeLearner>(checked);
        TreeLearner& learner = *model->learner;
        if (training->Train(learner, call) != 0) return -1;
        training->Describe(checked, model->description);
        if (sylvora::ModelText::Covers(learner, model->description.coverV) != 0) return -1;
        sylvora::c::DeriveTexts(*model);
        if (learner.ReleaseTrainingData() != 0) return -1;
        *out = model.release();
        return 0;
    });
}

int sylvora_training_record(const sylvora_training* training, int i, const char** set,
                            const char** metric, const double** values, int64_t* num_values) {
    if (training == nullptr || i < 0) return -1;
    const std::vector<sylvora::MetricRecord>& metricV = training->record.metricV;
    if (static_cast<size_t>(i) >= metricV.size()) return -1;
    const sylvora::MetricRecord& record = metricV[static_cast<size_t>(i)];
    if (set != nullptr) *set = record.set.c_str();
    if (metric != nullptr) *metric = record.metric.c_str();
    if (values != nullptr) *values = record.valueV.data();
    if (num_values != nullptr) *num_values = static_cast<int64_t>(record.valueV.size());
    return 0;
}

int sylvora_training_best_round(const sylvora_training* training) {
    return training != nullptr ? training->record.bestRound : 0;
}

int sylvora_training_stopped_early(const sylvora_training* training) {
    return training != nullptr && training->record.fStoppedEarly;
}

void sylvora_training_free(sylvora_training* training) {
    delete training;
}

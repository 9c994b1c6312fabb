// Running a training of the C interface; see Training.h.
#include <climits>
#include <cmath>
#include <optional>
#include <utility>

#include "../CheckIn/Parameters.h"
#include "../Links.h"
#include "../TreeLearner/ModelParts.h"
#include "Training.h"

using sylvora::Fail;
using sylvora::c::Call;
using sylvora::c::RefuseAfterRun;
using sylvora::c::RefuseNull;
using sylvora::c::Run;

namespace {

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

// Gives a variable another value for its own lifetime.
template <typename Value>
class Changed {
  public:
    Changed(Value& changed, Value value) : variable(changed), before(changed) { variable = value; }
    ~Changed() { variable = before; }
    Changed(const Changed&) = delete;
    Changed& operator=(const Changed&) = delete;

  private:
    Value& variable;
    const Value before;
};

}  // namespace

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
    std::optional<sylvora::Ranks> ranks;
    if (gathered != nullptr) ranks.emplace(gathered->MakeRanks());
    sylvora::TrainingOptions& given = learner.trainingOptions;
    given.stream = &stream;
    given.sink = Call::Receive;
    given.sinkContext = &call;
    given.fCovers = true;
    given.ranks = ranks ? &*ranks : nullptr;
    if (objective != nullptr) {
        given.objective = [](void* context, const objective_round_t& round) {
            const auto& self = *static_cast<const sylvora_training*>(context);
            return self.objective(self.objectiveContext, round.round, round.numRows, round.labelV,
                                  round.scoreV, round.gradientV, round.hessianV);
        };
        given.objectiveContext = this;
    }
    for (const sylvora::c::NamedSet& set : setV) {
        given.setV.push_back({set.name, set.block.Get(), set.labelV.data(),
                              set.queryV.empty() ? nullptr : set.queryV.data()});
    }
    if (progress != nullptr) {
        const auto ask = [](void* self, int done, int total) {
            return static_cast<sylvora_training*>(self)->AskProgress(done, total);
        };
        learner.setProgress(ask, this);
    }
    learner.setVerification(true);
    learner.setPackedTrees(true);
    int status = learner.DataBorrow(data, labelV.data(), static_cast<int>(labelV.size()),
                                    queryV.data(), static_cast<int>(queryV.size()));
    VecDle().swap(labelV);  // the learner has a copy
    if (status == 0) status = learner.ParamInit();
    if (status == 0 && !weightV.empty()) {
        status = learner.setWeights(weightV.data(), static_cast<int>(weightV.size()));
    }
    if (status == 0) {
        const Changed<TreeLearner*> now(running, &learner);
        status = learner.Boosting();
    }
    record = learner.getEvaluation();
    // What was borrowed for the run ends here.
    learner.trainingOptions = {};
    learner.setProgress(nullptr, nullptr);
    return status;
}

void sylvora_training::Describe(const CheckCfgCLS& checked,
                                sylvora::ModelDescription& description) const {
    description.missing = missing;
    description.bestRound = Record().bestRound;
    description.link = NameOf(sylvora::LinkOf(checked.lossFunc));
    CheckCfgCLS asSet = checked;
    // Of a forest, CheckCfg moves the number of trees to sizeGroup.
    if (asSet.modelType == "RandomForest") asSet.numTree = asSet.sizeGroup;
    for (const char* const name : kSettings) {
        description.settingV.emplace_back(name, ExactValue(*sylvora::FindParameter(name), asSet));
    }
}

// The progress function may throw.
int sylvora_training::AskProgress(int done, int total) {
    const Changed<bool> now(fInProgress, true);
    return progress(progressContext, done, total);
}

// By way of the text, so that it is the model that a later save and load would give.
int sylvora_training::Snapshot(sylvora_model& model) const {
    sylvora::ModelDescription described;
    Describe(running->CfgInfo, described);
    std::string text;
    if (sylvora::ModelParts::SaveSoFar(*running, described, text) != 0 ||
        sylvora::ModelText::Load(text.data(), text.size(), *model.learner, &model.description) !=
            0) {
        return -1;
    }
    sylvora::ModelParts::DeriveDepths(*model.learner);
    sylvora::c::Derive(model);
    return 0;
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
        sylvora::c::Derive(*model);
        if (learner.ReleaseTrainingData() != 0) return -1;
        *out = model.release();
        return 0;
    });
}

int sylvora_training_record(const sylvora_training* training, int i, const char** set,
                            const char** metric, const double** values, int64_t* num_values) {
    if (training == nullptr || i < 0) return -1;
    const std::vector<sylvora::MetricRecord>& metricV = training->Record().metricV;
    if (static_cast<size_t>(i) >= metricV.size()) return -1;
    const sylvora::MetricRecord& record = metricV[static_cast<size_t>(i)];
    if (set != nullptr) *set = record.set.c_str();
    if (metric != nullptr) *metric = record.metric.c_str();
    if (values != nullptr) *values = record.valueV.data();
    if (num_values != nullptr) *num_values = static_cast<int64_t>(record.valueV.size());
    return 0;
}

int sylvora_training_snapshot(sylvora_training* training, sylvora_model** out) {
    return Run([&] {
        if (training == nullptr || out == nullptr) return RefuseNull("The training or out");
        if (training->running == nullptr || !training->fInProgress) {
            return Fail(
                "ERROR: A snapshot can be taken by the progress function only, while the "
                "training runs\n");
        }
        std::unique_ptr<sylvora_model> model = sylvora::c::FreshModel();
        if (training->Snapshot(*model) != 0) return -1;
        *out = model.release();
        return 0;
    });
}

int sylvora_training_best_round(const sylvora_training* training) {
    return training != nullptr ? training->Record().bestRound : 0;
}

int sylvora_training_stopped_early(const sylvora_training* training) {
    return training != nullptr && training->Record().fStoppedEarly;
}

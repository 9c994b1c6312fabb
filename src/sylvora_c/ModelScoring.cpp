// Scoring with models of the C interface.
#include <algorithm>
#include <climits>
#include <cmath>
#include <vector>

#include "../Links.h"
#include "../LossFunctions.h"
#include "../TreeLearner/ModelParts.h"
#include "Call.h"
#include "Handles.h"

using sylvora::Fail;
using sylvora::ModelParts;
using sylvora::c::RefuseNull;
using sylvora::c::Run;

namespace {

// Calls action(learner, block) with the block as the library has it. `results` may be null if there
// are no rows.
template <typename Action>
int WithBlock(const sylvora_model* model, const sylvora_block* block, const void* results,
              const Action& action) {
    return Run([&] {
        if (model == nullptr) return RefuseNull("The model");
        sylvora::c::Block taken;
        if (taken.Take(block) != 0) return -1;
        if (results == nullptr && block->num_rows > 0) return RefuseNull("The array of results");
        return action(*model->learner, taken.Get());
    });
}

}  // namespace

int sylvora_model_score(const sylvora_model* model, const sylvora_block* block, double* scores,
                        int max_threads) {
    return WithBlock(model, block, scores, [&](TreeLearner& learner, const auto& rows) {
        return learner.OnlineTestingBatch(rows, scores, max_threads);
    });
}

int sylvora_model_add_groups(const sylvora_model* model, const sylvora_block* block, int64_t first,
                             int64_t end, double* scores, int max_threads) {
    return WithBlock(model, block, scores, [&](const TreeLearner& learner, const auto& rows) {
        return ModelParts::AddGroups(learner, rows, {first, end}, scores, max_threads);
    });
}

int sylvora_model_leaves(const sylvora_model* model, const sylvora_block* block, int32_t* leaves,
                         int max_threads) {
    return WithBlock(model, block, leaves, [&](const TreeLearner& learner, const auto& rows) {
        return ModelParts::FindLeaves(learner, rows, leaves, max_threads);
    });
}

int sylvora_model_votes(const sylvora_model* model, const sylvora_block* block, double* shares,
                        int max_threads) {
    return WithBlock(model, block, shares, [&](const TreeLearner& learner, const auto& rows) {
        return ModelParts::CountVotes(learner, rows, shares, max_threads);
    });
}

// A row without NaN is scored where it lies.
int sylvora_model_score_row(const sylvora_model* model, const double* row, int64_t num_values,
                            double* score) {
    return Run([&] {
        if (model == nullptr) return RefuseNull("The model");
        if (row == nullptr || score == nullptr) return RefuseNull("row or score");
        const int width = static_cast<int>(std::clamp<int64_t>(num_values, 0, INT_MAX));
        const bool fMissing =
            std::any_of(row, row + width, [](double value) { return std::isnan(value); });
        // Safe: scoring only reads the row.
        double* line = const_cast<double*>(row);
        thread_local std::vector<double> filledV;
        if (fMissing) {
            filledV.assign(row, row + width);
            std::replace_if(
                filledV.begin(), filledV.end(), [](double value) { return std::isnan(value); },
                sylvora::kMissingValue);
            line = filledV.data();
        }
        double result = 0.0;
        if (model->learner->OnlineTesting(line, result, width, nullptr) != 0) return -1;
        *score = result;
        return 0;
    });
}

int sylvora_probabilities(const char* loss, const double* scores, int64_t num_scores,
                          double* probabilities) {
    return Run([&] {
        if (loss == nullptr || scores == nullptr || probabilities == nullptr) {
            return RefuseNull("loss, scores or probabilities");
        }
        const sylvora::Link link = sylvora::LinkOf(loss);
        if (link == sylvora::Link::kNone || num_scores < 0) {
            return Fail("ERROR: The loss ", loss, " has no probabilities\n");
        }
        sylvora::ProbabilitiesOf(link, scores, static_cast<size_t>(num_scores), probabilities);
        return 0;
    });
}

// The gradient of a label of 0 is -p.
int sylvora_expit(const double* scores, int64_t num_scores, double* out) {
    return Run([&] {
        if (scores == nullptr || out == nullptr) return RefuseNull("scores or out");
        constexpr int64_t kBlock = 256;
        constexpr double kZeros[kBlock] = {};
        for (int64_t at = 0; at < num_scores; at += kBlock) {
            const int count = static_cast<int>(std::min(kBlock, num_scores - at));
            sylvora::LogLossGradient(kZeros, scores + at, count, out + at, nullptr);
            for (int64_t i = at; i < at + count; ++i) out[i] = 0.0 - out[i];
        }
        return 0;
    });
}

int sylvora_log_odds(const double* labels, const int32_t* weights, int64_t num_labels,
                     double* log_odds) {
    return Run([&] {
        if (labels == nullptr || log_odds == nullptr) return RefuseNull("labels or log_odds");
        if (num_labels < 0 || num_labels > INT_MAX) {
            return Fail("ERROR: There are ", num_labels, " labels\n");
        }
        const double start = sylvora::LogLossStart(labels, weights, static_cast<int>(num_labels));
        if (!std::isfinite(start)) {
            return Fail("ERROR: Log-odds need labels above 0 and others, both with a weight\n");
        }
        *log_odds = start;
        return 0;
    });
}

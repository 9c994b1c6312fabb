// Runs a training and returns its complete outcome as bytes, so that two runs can be compared.
#ifndef SYLVORA_TESTS_DIFFERENTIAL_TRAININGRUN_H
#define SYLVORA_TESTS_DIFFERENTIAL_TRAININGRUN_H

#include <gtest/gtest.h>

#include <cstdlib>
#include <functional>
#include <iterator>
#include <string>

#include "../InMemory.h"
#include "TreeLearner.h"
#include "claim.h"
#include "god/InstructionSets.h"

namespace hostile {

// `count` times the environment variable SYLVORA_DIFFERENTIAL, which may be below 1.
inline unsigned Scaled(unsigned count) {
    const char* factor = std::getenv("SYLVORA_DIFFERENTIAL");
    return factor != nullptr ? static_cast<unsigned>(count * std::atof(factor)) : count;
}

struct Set {
    VecDle labels;
    VecVecDle rows;
    VecInt queries;
    CheckCfgCLS cfg;
    void (*unchecked)(CheckCfgCLS& cfg) = nullptr;     // changes settings after CheckCfg
    ProgressFuncType progress = nullptr;               // called with the learner
    void (*prepared)(TreeLearner& learner) = nullptr;  // called after ParamInit
    // Gives the learner the training data; null: DataInput of `rows`.
    std::function<int(TreeLearner& learner)> give = nullptr;
};

// Trains with the reference implementation (`reference` "1") or with the engine ("0") and `tuning`.
// Returns the status, every node with the sums of its rows, the predictions, the means, the final
// state of the random generator and all messages.
inline std::string Outcome(const Set& set, const char* reference, const char* tuning) {
    setenv("SYLVORA_PLAIN", reference, 1);
    setenv("SYLVORA_TUNING", tuning, 1);
    std::string bytes;
    const auto add = [&bytes](const auto& value) {
        bytes.append(reinterpret_cast<const char*>(&value), sizeof value);
    };
    sylvora::tests::Messages messages;
    CheckCfgCLS cfg = set.cfg;
    gseed = -5;
    int status = cfg.CheckCfg();
    if (set.unchecked != nullptr) set.unchecked(cfg);
    TreeLearner learner(cfg);
    learner.setProgress(set.progress, &learner);
    if (status == 0) {
        status = set.give ? set.give(learner)
                          : learner.DataInput(set.labels, set.rows, 0, set.queries, {});
    }
    if (status == 0) status = learner.ParamInit();
    if (status == 0 && set.prepared != nullptr) set.prepared(learner);
    if (status == 0) status = learner.Boosting();
    unsetenv("SYLVORA_PLAIN");
    unsetenv("SYLVORA_TUNING");
    add(status);
    for (const auto& group : learner.TreeVV) {
        for (const TreeCR* tree : group) {
            add(tree->depth);
            for (const NodeCR* node : tree->NodeV) {
                bytes += node->status;
                add(node->startDoc), add(node->countDoc), add(node->parent), add(node->depth);
                add(node->splitFea), add(node->splitElemFea), add(node->lson), add(node->rson);
                add(node->countL), add(node->avgPredict), add(node->gradAll), add(node->wgtAll);
                add(node->fNarrowSplit);
            }
        }
    }
    for (int i = 0; i < learner.sampleSize && status == 0; ++i) add(learner.predictV[i]);
    for (int j = 0; j < learner.dimFea; ++j) add(learner.featureMean[j]);
    add(gseed);
    return bytes + messages.Take();
}

// The name of an instruction set that this processor has: of each one for some seeds, multiples of
// three or not.
inline const char* KernelFor(unsigned seed) {
    const size_t set = (seed + seed / 3) % std::size(sylvora::kInstructionSets);
    return sylvora::kInstructionSetNames[sylvora::CanRun(sylvora::kInstructionSets[set]) ? set : 0];
}

// Trains with the engine; the outcome must be that of the reference implementation.
inline void ExpectSame(const Set& set, const std::string& reference, const char* tuning,
                       unsigned seed) {
    setenv("SYLVORA_KERNEL", KernelFor(seed), 1);
    const bool fSame = Outcome(set, "0", tuning) == reference;
    unsetenv("SYLVORA_KERNEL");
    ASSERT_TRUE(fSame) << "data set " << seed << ", " << set.cfg.modelType << " " << set.cfg.fRegCls
                       << " " << set.cfg.lossFunc << ", tuning \"" << tuning << "\", kernels "
                       << KernelFor(seed) << ", threads " << set.cfg.numThread << ", debug "
                       << set.cfg.fDebug << ", rows " << set.rows.size() << ", columns "
                       << set.rows[0].size();
}

}  // namespace hostile

#endif  // SYLVORA_TESTS_DIFFERENTIAL_TRAININGRUN_H

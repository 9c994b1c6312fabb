// What a training needs beside the gradients: row weights, the user's objective, the start value,
// and the losses that set the values of nodes from their rows.
#ifndef SYLVORA_TREELEARNER_LOSSRUN_H
#define SYLVORA_TREELEARNER_LOSSRUN_H

#include "../LossFunctions/PairForces.h"
#include "../TreeLearner.h"
#include "base/LargeArray.h"
#include "base/WorkerPool.h"

// Made by ParamInit and kept until the data are freed. Borrows the learner. Functions that return a
// status return 0, or -1 after a message.
//
// Thread safety: disjoint ranges may be filled in parallel, and the values of several trees may be
// set at the same time.
struct TreeLearner::LossRun {
    // How the value of a node follows from its rows.
    enum class Rule {
        kMean,      // sum of the gradients / sum of the weights: nothing to do after growth
        kRatio,     // sum of the gradients / sum of the second derivatives
        kQuantile,  // a quantile of the residuals
        kHuber      // see HuberCentre
    };

    explicit LossRun(TreeLearner& treeLearner);

    // Checks the loss's parameters, and the labels against the loss.
    [[nodiscard]] int Check() const;
    // Begins a run: reads the settings again, checks them, and makes the start value, if the loss
    // has one, the first group of the ensemble and the prediction of every row.
    [[nodiscard]] int Begin();
    // Number of groups at the beginning of a run.
    int NumStartGroups() const { return fStarted ? 1 : 0; }

    // Sets the gradients and second derivatives of a range, inclusive at both ends, without
    // weights. Returns false, with nothing done, if the loss is another one's.
    [[nodiscard]] bool FillGradients(int idBegin, int idEnd);
    // Multiplies those of a range by the weights, if setWeights has set any.
    void ApplyWeights(int idBegin, int idEnd);
    // Whether the user's objective computes the gradients, and its call in round `round`, from 1.
    bool HasObjective() const;
    [[nodiscard]] int AskObjective(int round);

    // Whether trees get their values from SetNodeValues.
    bool SetsValues() const { return rule != Rule::kMean; }
    // Sets the values of all nodes of a tree that has grown. `rowV` is the tree's row index after
    // growth; `weightV` has the weights by row of the data, null if all are 1.
    void SetNodeValues(TreeCR& tree, const int* rowV, const int* weightV,
                       sylvora::WorkerPool& pool) const;

    TreeLearner& learner;
    Rule rule = Rule::kMean;
    const sylvora::PairKernel* pairKernel = nullptr;  // of the losses of pairs
    bool fWeighted = false;                           // setWeights has set the weights
    bool fStarted = false;                            // the ensemble begins with a start value
    sylvora::LargeArray<double> hessianV = {};        // by row; empty: not needed

  private:
    struct NodeRows;

    void ReadSettings();
    [[nodiscard]] int CheckOptions() const;
    [[nodiscard]] int CheckLabels() const;
    [[nodiscard]] int CheckClasses() const;
    [[nodiscard]] int ComputeStart(double& start) const;
    [[nodiscard]] int PlaceStart(double start);
    int RefuseRow(int round) const;
    bool IsLoss(const char* name) const;
};

#endif  // SYLVORA_TREELEARNER_LOSSRUN_H

// The reference implementation of walking down a tree, for any representation of the nodes: at(k)
// returns a reference to node k, which stays valid during the walk. Node 0 is the root.
//
// The walks only read the tree and are safe to call from any thread. Nothing is checked: children
// must have larger indices than their parents, so that a walk ends, and columns must exist in feaV.
#ifndef SYLVORA_TREE_WALK_H
#define SYLVORA_TREE_WALK_H

#include <cmath>
#include <cstddef>
#include <vector>

#include "../Libdef.h"
#include "../Node.h"
#include "engine/score/PackedTrees.h"

namespace sylvora {

inline bool IsLeaf(const NodeCR& node) {
    return node.status == "TERMINAL";
}
inline bool IsLeaf(const engine::PackedNode& node) {
    return node.IsLeaf();
}

// See TreeCR::Predict. feaV[k] is the value of column k. The comparison is false for NaN, which
// therefore goes right.
template <typename NodeAt, typename Row>
double PredictRow(const NodeAt& at, const Row& feaV) {
    const auto* node = &at(0);
    while (!IsLeaf(*node)) {
        node = &at(feaV[node->splitFea] <= node->splitElemFea ? node->lson : node->rson);
    }
    return node->avgPredict;
}

// The results of feature analysis, indexed by column: the sum of the decreases of the error, and
// the number of splits passed. The vectors belong to the caller. The splits that all rows pass in
// all trees may be more than an int holds.
template <typename Count>
struct ColumnCredit {
    VecFt& weightV;
    std::vector<Count>& countV;
};

// See TreeCR::FeatureAnalPredict.
template <typename NodeAt, typename Count>
double CreditRow(const NodeAt& at, const double* feaV, const ColumnCredit<Count>& credit,
                 double label_exp, double stepsize) {
    const auto* node = &at(0);
    while (!IsLeaf(*node)) {
        const size_t f = static_cast<size_t>(node->splitFea);
        // Deliberately, a value equal to the threshold goes right.
        const auto* child = &at(node->splitElemFea > feaV[f] ? node->lson : node->rson);
        ++credit.countV[f];
        // Computed in double and rounded to float once per step, in this order of operations: the
        // digits of the report depend on it.
        float& weight = credit.weightV[f];
        weight = static_cast<float>(weight - std::fabs(child->avgPredict - label_exp) * stepsize +
                                    std::fabs(node->avgPredict - label_exp) * stepsize);
        node = child;
    }
    return node->avgPredict;
}

}  // namespace sylvora

#endif  // SYLVORA_TREE_WALK_H

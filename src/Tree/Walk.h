// Walks down a tree, in whatever records its nodes are kept: `at(k)` gives node k, the root being
// 0.
#ifndef SYLVORA_TREE_WALK_H
#define SYLVORA_TREE_WALK_H

#include <cmath>
#include <cstddef>

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

// See TreeCR::Predict.
template <typename NodeAt>
double PredictRow(const NodeAt& at, const double* feaV) {
    const auto* node = &at(0);
    while (!IsLeaf(*node)) {
        node = &at(feaV[node->splitFea] <= node->splitElemFea ? node->lson : node->rson);
    }
    return node->avgPredict;
}

// What each column contributed, and how often it was tested.
struct ColumnCredit {
    VecFt& weightV;
    VecInt& countV;
};

// See TreeCR::FeatureAnalPredict.
template <typename NodeAt>
double CreditRow(const NodeAt& at, const double* feaV, const ColumnCredit& credit, double label_exp,
                 double stepsize) {
    const auto* node = &at(0);
    while (!IsLeaf(*node)) {
        const size_t f = static_cast<size_t>(node->splitFea);
        // Deliberately, a value equal to the threshold goes right.
        const auto* child = &at(node->splitElemFea > feaV[f] ? node->lson : node->rson);
        ++credit.countV[f];
        float& weight = credit.weightV[f];
        weight = static_cast<float>(weight - std::fabs(child->avgPredict - label_exp) * stepsize +
                                    std::fabs(node->avgPredict - label_exp) * stepsize);
        node = child;
    }
    return node->avgPredict;
}

}  // namespace sylvora

#endif  // SYLVORA_TREE_WALK_H

// Walking a tree.
#include <cmath>

#include "../Tree.h"

double TreeCR::Predict(double* feaV) {
    const NodeCR* node = NodeV[0];
    while (node->status != "TERMINAL") {
        const int next = feaV[node->splitFea] <= node->splitElemFea ? node->lson : node->rson;
        node = NodeV[static_cast<size_t>(next)];
    }
    return node->avgPredict;
}

double TreeCR::FeatureAnalPredict(double* feaV, VecFt& feaw, VecInt& feaf, double label_exp,
                                  double stepsize) {
    const NodeCR* node = NodeV[0];
    while (node->status != "TERMINAL") {
        const size_t f = static_cast<size_t>(node->splitFea);
        const int next = node->splitElemFea > feaV[f] ? node->lson : node->rson;
        const NodeCR* son = NodeV[static_cast<size_t>(next)];
        ++feaf[f];
        feaw[f] = static_cast<float>(feaw[f] - std::fabs(son->avgPredict - label_exp) * stepsize +
                                     std::fabs(node->avgPredict - label_exp) * stepsize);
        node = son;
    }
    return node->avgPredict;
}

// Prediction and feature analysis with one tree. Walk.h has the algorithms, which also serve other
// forms of the nodes.
#include "../Tree.h"
#include "Walk.h"

double TreeCR::Predict(double* feaV) {
    const auto at = [this](int k) -> const NodeCR& { return *NodeV[static_cast<size_t>(k)]; };
    return sylvora::PredictRow(at, feaV);
}

double TreeCR::FeatureAnalPredict(double* feaV, VecFt& feaw, VecInt& feaf, double label_exp,
                                  double stepsize) {
    const auto at = [this](int k) -> const NodeCR& { return *NodeV[static_cast<size_t>(k)]; };
    const sylvora::ColumnCredit<int> credit = {feaw, feaf};
    return sylvora::CreditRow(at, feaV, credit, label_exp, stepsize);
}

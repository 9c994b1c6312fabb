// The gradients of pairwise losses: sums of the forces of the pairs of rows of a query. A force is
// what a pair adds to the gradient of its first row; the second one gets the opposite.
#ifndef SYLVORA_LOSSFUNCTIONS_PAIRFORCES_H
#define SYLVORA_LOSSFUNCTIONS_PAIRFORCES_H

namespace sylvora {

struct PairKernel;

enum class PairLoss { kCrossEntropy, kHingeSquare };

// With d the difference of the scores of a pair, and margin = tau * |difference of the labels|, the
// force of kCrossEntropy is
//
//    1 / (1 + exp(d - margin))    if the first has the larger label,
//   -1 / (1 + exp(-d - margin))   if the second has it,
//    0                            if the labels are equal.
//
// Burges et al., "Learning to rank using gradient descent" (2005), with a margin. That of
// kHingeSquare is the one of a halved squared hinge loss,
//
//    (margin - d) / 2             if the first has the larger label and d < margin,
//    (-margin - d) / 2            if the second has it and d > -margin,
//    (tau - d) / 2, (-tau - d) / 2   if the labels are equal and d > tau, d < -tau,
//    0                            otherwise:
//
// samples with equal labels are pulled together until they are within tau of each other.
struct PairForces {
    PairLoss loss;
    double tau;
    const PairKernel* kernel;

    // Adds the forces of all pairs i < j of a query to the gradients of both, i ascending and then
    // j: the order of these sums is part of the result. A query is a run of rows with equal ids in
    // queryV. Safe to call from any thread, on distinct gradients.
    void Add(const int* queryV, const double* labelV, const double* scoreV, int numRows,
             double* gradientV) const;
};

}  // namespace sylvora

#endif  // SYLVORA_LOSSFUNCTIONS_PAIRFORCES_H

// The index sort of the split search.
#ifndef SYLVORA_SORT_H
#define SYLVORA_SORT_H

#include "Libdef.h"

// Sorts v[i..j] in ascending order and applies the same permutation to I[i..j]. Bounds are 1-based
// and inclusive: element 1 is v[0]. The algorithm is Singleton's quicksort (R. C. Singleton,
// Algorithm 347, Communications of the ACM 12, 1969).
//
// The sort is not stable, and models depend on exactly how it permutes equal values: this order is
// the order of the sums in the split scan. NaNs may end up anywhere in the range; nothing outside
// it is read or written. Allocates nothing. Safe to call from any thread on distinct arrays.
SYLVORA_API void R_tsort_I(double* v, int* I, int i, int j);

#endif  // SYLVORA_SORT_H

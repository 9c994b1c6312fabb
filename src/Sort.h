// The index sort of the split search.
#ifndef SYLVORA_SORT_H
#define SYLVORA_SORT_H

#include "Libdef.h"

// Sorts v[i..j] ascending and moves I[i..j] along. Bounds are 1-based and inclusive: v[0] is
// element 1. Singleton's quicksort (R. C. Singleton, Algorithm 347, Communications of the ACM 12,
// 1969). It is not stable, and models depend on the very permutation it makes of equal values: the
// order decides the order of the sums in the split scan. NaNs end up anywhere, but nothing outside
// the range is touched. Allocates nothing; safe to call from any thread on distinct arrays.
SYLVORA_API void R_tsort_I(double* v, int* I, int i, int j);

#endif  // SYLVORA_SORT_H

// The synthetic data sets. A set depends only on its name and size: the seed is fixed.
//
//   continuous            28 columns, two in three normal, the third log-normal; regression
//   coarse                the same rows, each column rounded to 256, 128, 64 or 32 values
//   mixed                 50 columns: continuous, counts, flags, mostly zeros, partly missing
//   ranking               46 columns, queries of 40 to 160 rows, relevance 0 to 4
//   forest-regression     20 columns, half of them continuous, half with few values
//   forest-classification the same columns, four classes
#ifndef SYLVORA_BENCH_GENERATORS_H
#define SYLVORA_BENCH_GENERATORS_H

#include <string>

#include "RawData.h"

namespace sylvora::bench {

// Generates the set `name`. `size` is the number of rows, for ranking the number of queries. Throws
// std::runtime_error for a name that is not in the list above.
RawData Generate(const std::string& name, int size);

}  // namespace sylvora::bench

#endif  // SYLVORA_BENCH_GENERATORS_H

// The synthetic data sets. A set depends only on its name and size: the seed is fixed.
//
//   continuous            28 columns, two in three normal, the third log-normal; regression
//   coarse                the same rows, each column rounded to 256, 128, 64 or 32 values
//   mixed                 50 columns: continuous, counts, flags, mostly zeros, partly missing
//   ranking               46 columns, queries of 40 to 160 rows, relevance 0 to 4
//   forest-regression     20 columns, half of them continuous, half with few values
//   forest-classification the same columns, four classes
//   census                92 columns: 87 flags of eight categories, five numbers; label 0 or 1
//   onehot                91 columns: 86 flags of nine categories, five continuous
//   prices                9 columns of house prices: places, counts and incomes with heavy tails
//   flights               23 columns of delays: dates, hours, carriers, airports, weather of the
//                         hour, which is partly missing
//   physics               28 columns: momenta, angles, masses, tags of three values; label 0 or 1
//   diamonds              9 columns: sizes in steps of 0.01, grades
#ifndef SYLVORA_BENCH_GENERATORS_H
#define SYLVORA_BENCH_GENERATORS_H

#include <string>

#include "RawData.h"

namespace sylvora::bench {

// Generates the set `name`. `size` is the number of rows, for ranking the number of queries. Throws
// std::runtime_error for a name that is not in the list above.
RawData Generate(const std::string& name, int size);

// The set "continuous" with another number of columns. Throws std::runtime_error if there are fewer
// than 10.
RawData GenerateWide(int numRows, int numColumns);

}  // namespace sylvora::bench

#endif  // SYLVORA_BENCH_GENERATORS_H

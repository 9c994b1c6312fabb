// Synthetic sets with the columns of common tables: flags of categories, heavy tails, dates and
// codes, few rows. Generators.h describes each. All rows are drawn from a fixed seed.
#ifndef SYLVORA_BENCH_TABLES_H
#define SYLVORA_BENCH_TABLES_H

#include "RawData.h"

namespace sylvora::bench {

// The value of a column that a data line omits.
constexpr double kMissing = -2147483648.0;

// A set without rows, with room for `numRows`.
RawData Empty(int numRows, int numColumns);

RawData Census(int numRows);
RawData OneHot(int numRows);
RawData Prices(int numRows);
RawData Flights(int numRows);
RawData Physics(int numRows);
RawData Diamonds(int numRows);

}  // namespace sylvora::bench

#endif  // SYLVORA_BENCH_TABLES_H

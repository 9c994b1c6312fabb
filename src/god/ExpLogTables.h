// Constants of the exponential and the logarithm. docs/exact-math.md explains each choice;
// scripts/exp-log-tables computes the values.
#ifndef SYLVORA_GOD_EXPLOGTABLES_H
#define SYLVORA_GOD_EXPLOGTABLES_H

#include "WideNumber.h"

namespace sylvora {

// A value in two parts is high + low. high has few bits, so that products with it are exact; low is
// the double nearest to the remainder.

// Entry j holds the two parts of 2^(j/128); high is a multiple of 2^-26.
constexpr int kExpEntries = 128;
constexpr int kExpMembers = 2;
extern const double kExpTable[kExpEntries * kExpMembers];

// [kLogBegin, 2 * kLogBegin) is divided into 256 intervals with the same number of doubles each.
// Entry i, for z in interval i, holds `inverse`, about 1/z and a multiple of 2^-9, and the two
// parts of -log(inverse); high is a multiple of 2^-42.
constexpr double kLogBegin = 0.6875;
constexpr int kLogEntries = 256;
constexpr int kLogMembers = 3;
extern const double kLogTable[kLogEntries * kLogMembers];

extern const double kExpStepsPerUnit;           // 128 / log(2)
extern const double kExpStepHigh, kExpStepLow;  // log(2) / 128, high a multiple of 2^-43
extern const double kLn2High, kLn2Low;          // log(2), high a multiple of 2^-42

extern const Wide kLn2;           // log(2)
extern const Wide kInverseOfLn2;  // 1 / log(2)

}  // namespace sylvora

#endif  // SYLVORA_GOD_EXPLOGTABLES_H

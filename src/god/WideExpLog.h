// Exponentials and logarithms in wide fixed point. docs/exact-math.md derives the error bounds. A
// unit is 2^-256, see WideNumber.h.
#ifndef SYLVORA_GOD_WIDEEXPLOG_H
#define SYLVORA_GOD_WIDEEXPLOG_H

#include "WideNumber.h"

namespace sylvora {

// value * 2^exponent, 1 <= value <= 2.
struct Power {
    Wide value;
    int exponent;
};

// e^x for |x| <= 1100, with an error of at most 2^13 units in `value`. `exponent` is an estimate of
// x / log(2), rounded up or down; a worse estimate only costs time.
Power WideExp(const Wide& x, int exponent);

// log(z) for 0.7 <= z <= 1.42, with an error of at most 2^13 units.
Wide WideLog(double z);

// factor * log(2), with an error of at most |factor| units.
Wide TimesLn2(int factor);

}  // namespace sylvora

#endif  // SYLVORA_GOD_WIDEEXPLOG_H

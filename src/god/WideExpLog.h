// Exponentials and logarithms of wide numbers, with the error bounds of docs/exact-math.md.
#ifndef SYLVORA_GOD_WIDEEXPLOG_H
#define SYLVORA_GOD_WIDEEXPLOG_H

#include "WideNumber.h"

namespace sylvora {

// value * 2^exponent, 1 <= value <= 2.
struct Power {
    Wide value;
    int exponent;
};

// e^x for |x| <= 1100, where `wholes` is x / log(2) rounded to either side (any other value only
// takes time). The value is within 2^13 units.
Power WideExp(const Wide& x, int wholes);

// log(z) for 0.7 <= z <= 1.42, within 2^13 units.
Wide WideLog(double z);

// `wholes` * log(2), within |wholes| units.
Wide TimesLn2(int wholes);

}  // namespace sylvora

#endif  // SYLVORA_GOD_WIDEEXPLOG_H

// Exponentials and logarithms, correctly rounded: each result is the double nearest to the true
// value. That is a definition and not an implementation, so the bits depend on nothing else, while
// the C library's functions differ between versions and processors in the last bit.
//
// The functions of one number work with integers of 320 bits and take a microsecond or two; they
// are the reference implementation. Those of arrays give the same results at the speed of the C
// library. docs/exact-math.md proves the error bounds that both rest on.
//
// The floating-point environment must have the default rounding, to nearest. Safe to call from any
// thread.
#ifndef SYLVORA_GOD_CORRECTROUNDING_H
#define SYLVORA_GOD_CORRECTROUNDING_H

#include <cstddef>

namespace sylvora {

// NaN stays NaN. Results too large are infinite, results too small subnormal or 0.
double Exp(double x);
double Exp2(double x);

// The logarithm of 0 is -infinity, that of a negative number NaN, that of 1 is 0.
double Log(double x);
double Log2(double x);

// resultV[i] = Exp(xV[i]) or Log(xV[i]) for i < count. The arrays must not overlap.
void ExpEach(const double* xV, double* resultV, size_t count);
void LogEach(const double* xV, double* resultV, size_t count);

}  // namespace sylvora

#endif  // SYLVORA_GOD_CORRECTROUNDING_H

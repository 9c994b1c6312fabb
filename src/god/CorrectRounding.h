// Correctly rounded exponentials and logarithms: each result is the double nearest to the exact
// value, hence the same on every processor. The C library's functions are not: their last bit
// differs between versions and processors.
//
// The scalar functions are the reference implementation. They use 320-bit integers and take one or
// two microseconds. The array functions return the same results, bit for bit, at about the speed of
// the C library. docs/exact-math.md proves the error bounds of both.
//
// The rounding mode must be round-to-nearest, the default. Safe to call from any thread.
#ifndef SYLVORA_GOD_CORRECTROUNDING_H
#define SYLVORA_GOD_CORRECTROUNDING_H

#include <cstddef>

namespace sylvora {

// NaN gives NaN. Overflow gives infinity; underflow gives a subnormal number or 0.
double Exp(double x);
double Exp2(double x);

// The logarithm of 0 is -infinity, of 1 exactly 0, of a negative number NaN.
double Log(double x);
double Log2(double x);

// resultV[i] = Exp(xV[i]) or Log(xV[i]) for i < count. The arrays must not overlap.
void ExpEach(const double* xV, double* resultV, size_t count);
void LogEach(const double* xV, double* resultV, size_t count);

}  // namespace sylvora

#endif  // SYLVORA_GOD_CORRECTROUNDING_H

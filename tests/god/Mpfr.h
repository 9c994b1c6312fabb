// Correctly rounded results and high-precision numbers, by GNU MPFR. Not thread-safe.
#ifndef SYLVORA_TESTS_GOD_MPFR_H
#define SYLVORA_TESTS_GOD_MPFR_H

#include <mpfr.h>

#include "god/WideNumber.h"

namespace sylvora::tests {

typedef int (*MpfrFunction)(mpfr_ptr result, mpfr_srcptr x, mpfr_rnd_t rounding);

// Owns an MPFR number of a given precision in bits.
class Number {
  public:
    explicit Number(mpfr_prec_t numBits, double value = 0.0) {
        mpfr_init2(number, numBits);
        mpfr_set_d(number, value, MPFR_RNDN);
    }
    Number(mpfr_prec_t numBits, const Wide& wide) : Number(numBits) {
        const Wide magnitude = Magnitude(wide);
        for (int k = Wide::kLimbs - 1; k >= 0; --k) {
            mpfr_mul_2ui(number, number, 64, MPFR_RNDN);
            mpfr_add_ui(number, number, magnitude.limbV[k], MPFR_RNDN);
        }
        mpfr_div_2ui(number, number, Wide::kFractionBits, MPFR_RNDN);
        if (wide.IsNegative()) mpfr_neg(number, number, MPFR_RNDN);
    }
    ~Number() { mpfr_clear(number); }
    Number(const Number&) = delete;
    Number& operator=(const Number&) = delete;

    operator mpfr_ptr() { return number; }
    double Nearest() const { return mpfr_get_d(number, MPFR_RNDN); }

    Number& Apply(MpfrFunction function) {
        function(number, number, MPFR_RNDN);
        return *this;
    }

  private:
    mpfr_t number;
};

// a - b, rounded to a double.
inline double Difference(mpfr_srcptr a, mpfr_srcptr b) {
    Number difference(mpfr_get_prec(a));
    mpfr_sub(difference, a, b, MPFR_RNDN);
    return difference.Nearest();
}

// The double nearest to function(x), including subnormal results.
inline double NearestResult(MpfrFunction function, double x) {
    static Number argument(53), result(53);
    mpfr_set_emin(-1073);
    mpfr_set_emax(1024);
    mpfr_set_d(argument, x, MPFR_RNDN);
    const int direction = function(result, argument, MPFR_RNDN);
    mpfr_subnormalize(result, direction, MPFR_RNDN);
    const double nearest = result.Nearest();
    mpfr_set_emin(mpfr_get_emin_min());
    mpfr_set_emax(mpfr_get_emax_max());
    return nearest;
}

}  // namespace sylvora::tests

#endif  // SYLVORA_TESTS_GOD_MPFR_H

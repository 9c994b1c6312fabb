// Arithmetic on 320-bit fixed-point numbers; see WideNumber.h.
#include "WideNumber.h"

#include <cmath>
#include <cstring>
#include <limits>

namespace sylvora {
namespace {

__extension__ typedef unsigned __int128 TwoLimbs;

constexpr int kLimbBits = 64;

std::uint64_t LowLimb(TwoLimbs value) {
    return static_cast<std::uint64_t>(value);
}

std::uint64_t HighLimb(TwoLimbs value) {
    return static_cast<std::uint64_t>(value >> kLimbBits);
}

// The 64 bits of the value from bit `at` on; bits beyond either end are 0.
std::uint64_t BitsFrom(const Wide& value, int at) {
    const auto limb = [&value](int k) { return k < 0 || k >= Wide::kLimbs ? 0 : value.limbV[k]; };
    const int k = (at + kLimbBits) / kLimbBits - 1;
    const int shift = at - k * kLimbBits;
    return LowLimb((TwoLimbs{limb(k + 1)} << kLimbBits | limb(k)) >> shift);
}

int HighestBit(const Wide& value) {
    int k = Wide::kLimbs - 1;
    while (k > 0 && value.limbV[k] == 0) --k;
    return k * kLimbBits + kLimbBits - 1 - __builtin_clzll(value.limbV[k] | 1);
}

double FromBits(std::uint64_t bits) {
    double value;
    std::memcpy(&value, &bits, sizeof value);
    return value;
}

}  // namespace

Wide WholeNumber(int whole) {
    return {{0, 0, 0, 0, static_cast<std::uint64_t>(whole)}};
}

Wide WideNumber(double value) {
    int exponent;
    const double fraction = std::frexp(std::fabs(value), &exponent);
    const TwoLimbs significand = static_cast<std::uint64_t>(std::ldexp(fraction, 53));
    Wide wide = {};
    int at = exponent - 53 + Wide::kFractionBits;  // bit position of the significand's lowest bit
    if (at <= -53) return wide;
    const TwoLimbs truncated = at < 0 ? significand >> -at : significand;
    if (at < 0) at = 0;
    const TwoLimbs placed = truncated << at % kLimbBits;
    const int k = at / kLimbBits;
    wide.limbV[k] = LowLimb(placed);
    if (k + 1 < Wide::kLimbs) wide.limbV[k + 1] = HighLimb(placed);
    return value < 0 ? -wide : wide;
}

Wide operator+(const Wide& a, const Wide& b) {
    Wide sum;
    TwoLimbs carry = 0;
    for (int k = 0; k < Wide::kLimbs; ++k) {
        carry += TwoLimbs{a.limbV[k]} + b.limbV[k];
        sum.limbV[k] = LowLimb(carry);
        carry = HighLimb(carry);
    }
    return sum;
}

Wide operator-(const Wide& a, const Wide& b) {
    Wide difference;
    std::uint64_t borrow = 0;
    for (int k = 0; k < Wide::kLimbs; ++k) {
        const TwoLimbs limb = TwoLimbs{a.limbV[k]} - b.limbV[k] - borrow;
        difference.limbV[k] = LowLimb(limb);
        borrow = HighLimb(limb) & 1;
    }
    return difference;
}

Wide operator-(const Wide& a) {
    return WholeNumber(0) - a;
}

Wide Magnitude(const Wide& a) {
    return a.IsNegative() ? -a : a;
}

Wide operator*(const Wide& a, const Wide& b) {
    std::uint64_t productV[2 * Wide::kLimbs] = {};
    for (int i = 0; i < Wide::kLimbs; ++i) {
        std::uint64_t carry = 0;
        for (int j = 0; j < Wide::kLimbs; ++j) {
            const TwoLimbs limb = TwoLimbs{a.limbV[i]} * b.limbV[j] + productV[i + j] + carry;
            productV[i + j] = LowLimb(limb);
            carry = HighLimb(limb);
        }
        productV[i + Wide::kLimbs] = carry;
    }
    Wide product;
    std::memcpy(product.limbV, productV + Wide::kFractionBits / kLimbBits, sizeof product.limbV);
    return product;
}

Wide operator/(const Wide& a, int divisor) {
    const std::uint64_t by = static_cast<std::uint64_t>(divisor);
    Wide quotient;
    std::uint64_t rest = 0;
    for (int k = Wide::kLimbs - 1; k >= 0; --k) {
        const TwoLimbs part = TwoLimbs{rest} << kLimbBits | a.limbV[k];
        quotient.limbV[k] = LowLimb(part / by);
        rest = LowLimb(part % by);
    }
    return quotient;
}

double NearestDouble(const Wide& value, int exponent) {
    constexpr int kMinExponent = -1074;  // 2^-1074 is the smallest positive double
    const int highest = HighestBit(value);
    const int binade = highest - Wide::kFractionBits + exponent;  // 2^binade <= the result
    if (binade > 1023) return std::numeric_limits<double>::infinity();
    const bool fNormal = binade >= kMinExponent + 52;
    const int numBits = fNormal ? 53 : binade - kMinExponent + 1;
    if (numBits < 0) return 0.0;
    // Keep one extra bit, add 1 to it and drop it: that rounds to nearest. If the significand grows
    // to 54 bits, its carry moves into the exponent, which gives the right result.
    const int numDropped = highest + 1 - numBits;
    const std::uint64_t mask = (std::uint64_t{1} << (numBits + 1)) - 1;
    const std::uint64_t significand = ((BitsFrom(value, numDropped - 1) & mask) + 1) >> 1;
    const std::uint64_t leading =
        fNormal ? static_cast<std::uint64_t>(binade - kMinExponent - 52) : 0;
    return FromBits((leading << 52) + significand);
}

}  // namespace sylvora

// The links of the losses; see Links.h. Works on blocks of scores, because exponentials and
// logarithms are faster in arrays.
#include "../Links.h"

#include <algorithm>
#include <cmath>
#include <limits>

#include "../god/CorrectRounding.h"

namespace sylvora {
namespace {

constexpr size_t kBlock = 256;

// Only e^-|f| is computed, which cannot overflow. The larger of p and 1 - p is 1 / (1 + e^-|f|).
void Sigmoids(double slope, const double* scoreV, size_t count, double* probabilityV) {
    double argumentV[kBlock] = {}, powerV[kBlock] = {};
    for (size_t i = 0; i < count; ++i) argumentV[i] = -std::fabs(slope * scoreV[i]);
    ExpEach(argumentV, powerV, count);
    for (size_t i = 0; i < count; ++i) {
        probabilityV[i] = (scoreV[i] < 0.0 ? powerV[i] : 1.0) / (1.0 + powerV[i]);
    }
}

// With e = e^-|f|: s(-|f|) = ln(1 + e) and s(|f|) = |f| + ln(1 + e). As 1 + e is rounded, ln(1 + e)
// is ln(u) * e / (u - 1) with u = 1 + e, which is accurate for every e (W. Kahan).
void SoftplusShares(const double* scoreV, size_t count, double* probabilityV) {
    constexpr double kLargest = 1e300;  // an infinite score would give infinity / infinity
    double argumentV[kBlock] = {}, powerV[kBlock] = {}, logV[kBlock] = {};
    for (size_t i = 0; i < count; ++i) argumentV[i] = -std::fabs(scoreV[i]);
    ExpEach(argumentV, powerV, count);
    for (size_t i = 0; i < count; ++i) argumentV[i] = 1.0 + powerV[i];
    LogEach(argumentV, logV, count);
    for (size_t i = 0; i < count; ++i) {
        const double rest = argumentV[i] - 1.0;
        const double small = rest > 0.0 ? logV[i] * (powerV[i] / rest) : powerV[i];
        const double size = std::fabs(scoreV[i]);
        const double large = (size > kLargest ? kLargest : size) + small;
        probabilityV[i] = (scoreV[i] < 0.0 ? small : large) / (large + small);
    }
}

}  // namespace

Link LinkOf(const std::string& lossFunc) {
    if (lossFunc == "LogLoss") return Link::kLogit;
    if (lossFunc == "Exponential") return Link::kHalfLogit;
    return lossFunc == "Logistic" ? Link::kSoftplusShare : Link::kNone;
}

void ProbabilitiesOf(Link link, const double* scoreV, size_t count, double* probabilityV) {
    if (link == Link::kNone) {
        std::fill_n(probabilityV, count, std::numeric_limits<double>::quiet_NaN());
        return;
    }
    for (size_t begin = 0; begin < count; begin += kBlock) {
        const size_t size = std::min(kBlock, count - begin);
        if (link == Link::kSoftplusShare) {
            SoftplusShares(scoreV + begin, size, probabilityV + begin);
        } else {
            Sigmoids(link == Link::kLogit ? 1.0 : 2.0, scoreV + begin, size, probabilityV + begin);
        }
    }
}

}  // namespace sylvora

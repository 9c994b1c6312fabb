// The formulas of the log loss; see LossFunctions.h.
#include <algorithm>
#include <cmath>
#include <cstddef>

#include "../LossFunctions.h"
#include "../god/CorrectRounding.h"

namespace sylvora {

// By blocks, so that the exponentials stay in the L1 cache. An exponential that overflows gives a
// probability of 0, one that underflows a probability of 1.
void LogLossGradient(const double* labelV, const double* scoreV, int numRows, double* gradientV,
                     double* hessianV) {
    constexpr int kBlock = 256;
    double argumentV[kBlock], exponentialV[kBlock];
    for (int at = 0, count; at < numRows; at += count) {
        count = std::min(kBlock, numRows - at);
        for (int i = 0; i < count; ++i) argumentV[i] = -scoreV[at + i];
        ExpEach(argumentV, exponentialV, static_cast<size_t>(count));
        for (int i = 0; i < count; ++i) {
            const double probability = 1 / (1 + exponentialV[i]);
            gradientV[at + i] = (labelV[at + i] > 0 ? 1.0 : 0.0) - probability;
        }
        for (int i = 0; i < count && hessianV != nullptr; ++i) {
            const double size = std::fabs(gradientV[at + i]);
            hessianV[at + i] = size * (1 - size);
        }
    }
}

double LogLossStart(const double* labelV, const int* weightV, int numRows) {
    double weightOf[2] = {0.0, 0.0};
    for (int i = 0; i < numRows; ++i) {
        weightOf[labelV[i] > 0] += weightV != nullptr ? weightV[i] : 1;
    }
    return Log(weightOf[1] / weightOf[0]);
}

}  // namespace sylvora

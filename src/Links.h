// From the scores of a two-class loss to probabilities.
#ifndef SYLVORA_LINKS_H
#define SYLVORA_LINKS_H

#include <cstddef>
#include <string>

#include "Libdef.h"

namespace sylvora {

// The probability p of the larger label at a score f. For every link p(-f) = 1 - p(f). The name is
// that in a model's description (ModelText.h).
enum class Link {
    kNone,           // the loss has no probabilities; its name is empty
    kLogit,          // "logit": p = 1 / (1 + e^-f)
    kHalfLogit,      // "half-logit": p = 1 / (1 + e^-2f)
    kSoftplusShare,  // "softplus-share": p = s(f) / (s(f) + s(-f)) with s(f) = ln(1 + e^f)
};

// The link of a loss, by the name that lossFunc has. It is where the loss has its minimum: kLogit
// for "LogLoss", kHalfLogit for "Exponential", kSoftplusShare for "Logistic", which sets
// p ln(1 + e^-f) = (1 - p) ln(1 + e^f). "HingeSquare" and all others have none.
SYLVORA_API Link LinkOf(const std::string& lossFunc);

// probabilityV[i] = p(scoreV[i]) for i < count; NaN for a score of NaN, and for all scores if the
// link is kNone. Never overflows; the results are the same on every processor. The arrays may be
// the same one, but must not overlap otherwise. Safe to call from any thread.
SYLVORA_API void ProbabilitiesOf(Link link, const double* scoreV, size_t count,
                                 double* probabilityV);

}  // namespace sylvora

#endif  // SYLVORA_LINKS_H

// How many columns a node samples.
#ifndef SYLVORA_NODE_SAMPLEDCOLUMNS_H
#define SYLVORA_NODE_SAMPLEDCOLUMNS_H

#include <limits>

#include "../god/Truncation.h"

namespace sylvora {

// The share `ratio` of `dimFeature` columns, rounded up; the subtraction keeps an exact product
// from being rounded up as well. Any ratio is taken, also one that no validation has seen.
inline int NumSampledColumns(int dimFeature, double ratio) {
    const int whole = Truncate<int>(dimFeature * ratio - 1e-10);
    return whole == std::numeric_limits<int>::max() ? whole : whole + 1;
}

}  // namespace sylvora

#endif  // SYLVORA_NODE_SAMPLEDCOLUMNS_H

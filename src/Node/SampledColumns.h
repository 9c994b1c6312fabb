// The number of columns that a node samples.
#ifndef SYLVORA_NODE_SAMPLEDCOLUMNS_H
#define SYLVORA_NODE_SAMPLEDCOLUMNS_H

#include <limits>

#include "../god/Truncation.h"

namespace sylvora {

// dimFeature * ratio, rounded up. The small subtraction keeps a product that is an integer, up to
// rounding errors, from becoming one larger. Defined for every ratio, also for one that has not
// been validated, and NaN.
inline int NumSampledColumns(int dimFeature, double ratio) {
    const int whole = Truncate<int>(dimFeature * ratio - 1e-10);
    return whole == std::numeric_limits<int>::max() ? whole : whole + 1;
}

}  // namespace sylvora

#endif  // SYLVORA_NODE_SAMPLEDCOLUMNS_H

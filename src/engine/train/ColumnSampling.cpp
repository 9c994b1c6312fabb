// Sampling of columns; see ColumnSampling.h.
#include "ColumnSampling.h"

#include <algorithm>
#include <numeric>
#include <utility>

#include "god/RandomGenerator.h"

namespace sylvora {
namespace engine {

// A partial Fisher-Yates shuffle for each node. Undoing its swaps in reverse order restores the
// sorted pool for the next node in time proportional to numDrawn, not numColumns.
std::vector<int> DrawColumns(int numColumns, int numDrawn, size_t numNodes, long* seed) {
    numDrawn = std::min(numDrawn, numColumns);
    std::vector<int> drawnV(numNodes * static_cast<size_t>(numDrawn));
    std::vector<int> poolV(static_cast<size_t>(numColumns));
    std::vector<int> indexV(static_cast<size_t>(numDrawn));
    std::iota(poolV.begin(), poolV.end(), 0);
    int* const last = poolV.data() + numColumns - 1;
    int* drawn = drawnV.data();
    Draws draws(seed);
    for (size_t node = 0; node < numNodes; ++node) {
        draws.FisherYates(numColumns, numDrawn, indexV.data());
        const auto swap = [&](int i) {
            std::swap(poolV[static_cast<size_t>(indexV[static_cast<size_t>(i)])], last[-i]);
        };
        // Drawn columns gather at the end of the pool, the first one last.
        for (int i = 0; i < numDrawn; ++i) {
            swap(i);
            *drawn++ = last[-i];
        }
        for (int i = numDrawn - 1; i >= 0; --i) swap(i);
    }
    return drawnV;
}

}  // namespace engine
}  // namespace sylvora

// The columns that nodes try; see ColumnSampling.h.
#include "ColumnSampling.h"

#include <algorithm>
#include <numeric>
#include <utility>

#include "god/RandomGenerator.h"

namespace sylvora {
namespace engine {

// A partial Fisher-Yates draw for each node. Its swaps are taken back afterwards, which leaves the
// pool in order for the next node without touching all of it.
std::vector<int> DrawColumns(int numColumns, int numDrawn, size_t numNodes, long* seed) {
    numDrawn = std::min(numDrawn, numColumns);
    std::vector<int> drawnV(numNodes * static_cast<size_t>(numDrawn));
    std::vector<int> poolV(static_cast<size_t>(numColumns));
    std::vector<int> placeV(static_cast<size_t>(numDrawn));
    std::iota(poolV.begin(), poolV.end(), 0);
    int* const last = poolV.data() + numColumns - 1;
    int* drawn = drawnV.data();
    Draws draws(seed);
    for (size_t node = 0; node < numNodes; ++node) {
        draws.FisherYates(numColumns, numDrawn, placeV.data());
        const auto swap = [&](int i) {
            std::swap(poolV[static_cast<size_t>(placeV[static_cast<size_t>(i)])], last[-i]);
        };
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

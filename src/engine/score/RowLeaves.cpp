// The leaves of one row; see RowLeaves.h.
#include "RowLeaves.h"

#include <algorithm>

namespace sylvora {
namespace engine {

// Invariant: pairV[current ^ 1] is the pair that comes next, its coded leaves already found; it is
// empty at the end. Walked bundles are walked only when their turn comes.
bool RowLeaves::Next() {
    current ^= 1;
    if (Current().firstBundle == ensemble.bundleV.size()) return false;
    LookAhead(Current().endBundle);
    endTree = EndBundle()[-1].EndTree();
    if (!FirstBundle()->IsCoded()) Walk(*FirstBundle());
    return true;
}

void RowLeaves::SkipTo(size_t tree) {
    const BundlePair& next = pairV[current ^ 1];
    size_t bundle = next.firstBundle;
    while (ensemble.bundleV[bundle].EndTree() <= tree) ++bundle;
    if (bundle >= next.endBundle) LookAhead(bundle);
    Next();
    // Load all values at once: the branches of a vote are mispredicted so often that later loads
    // would not overlap.
    const bool fCoded = FirstBundle()->IsCoded();
    const size_t numTrees = endTree - FirstBundle()->firstTree;
    for (size_t t = 0; t < numTrees; ++t) {
        valueV[t] = fCoded ? Coded().Value(t) : Walked().Value(t);
    }
}

// Makes the pair ahead the one that `bundle` belongs to. If `bundle` is the number of bundles, the
// pair is empty. A second bundle of a pair has firstLane > 0.
void RowLeaves::LookAhead(size_t bundle) {
    const std::vector<Bundle>& bundleV = ensemble.bundleV;
    BundlePair& next = pairV[current ^ 1];
    next.firstBundle = next.endBundle = bundle;
    if (bundle == bundleV.size()) return;
    if (bundleV[bundle].firstLane > 0) --next.firstBundle;
    ++next.endBundle;
    if (next.endBundle < bundleV.size() && bundleV[next.endBundle].firstLane > 0) ++next.endBundle;
    const Bundle& first = bundleV[next.firstBundle];
    if (first.IsCoded()) FindLeaves(first, next.leafV);
}

// Finds the leaves of a coded bundle and of the one that shares its tests, if any. Consecutive
// bundles mostly share a quantiser, so the codes are kept.
void RowLeaves::FindLeaves(const Bundle& bundle, uint8_t* leafV) {
    const RowQuantiser& rowQuantiser = ensemble.quantiserV[static_cast<size_t>(bundle.quantiser)];
    if (quantiser != bundle.quantiser) rowQuantiser.QuantiseRow(row, codeV);
    quantiser = bundle.quantiser;
    ensemble.kernel->findRowLeaves(ensemble.rowTestsV.data() + bundle.firstTests, bundle.depth,
                                   {codeV, rowQuantiser.NumBands()}, leafV);
}

void RowLeaves::Walk(const Bundle& bundle) {
    const double* rowV[kBundleTrees];
    std::fill_n(rowV, kBundleTrees, row);
    std::copy_n(ensemble.rootV.data() + bundle.firstTree, bundle.numTrees, walkedV);
    ensemble.walked.Walk(rowV, walkedV, bundle.numTrees);
}

}  // namespace engine
}  // namespace sylvora

// One row through the trees; see RowLeaves.h.
#include "RowLeaves.h"

#include <algorithm>

namespace sylvora {
namespace engine {

bool RowLeaves::Next() {
    now ^= 1;
    if (Now().firstBundle == ensemble.bundleV.size()) return false;
    LookAhead(Now().endBundle);
    endTree = EndBundle()[-1].EndTree();
    if (!FirstBundle()->IsCoded()) Walk(*FirstBundle());
    return true;
}

void RowLeaves::SkipTo(size_t tree) {
    const Stretch& next = stretchV[now ^ 1];
    size_t bundle = next.firstBundle;
    while (ensemble.bundleV[bundle].EndTree() <= tree) ++bundle;
    if (bundle >= next.endBundle) LookAhead(bundle);
    Next();
    // All in one go: a vote's branches are guessed wrong so often that nothing would overlap.
    const bool fCoded = FirstBundle()->IsCoded();
    const size_t numTrees = endTree - FirstBundle()->firstTree;
    for (size_t t = 0; t < numTrees; ++t) {
        valueV[t] = fCoded ? Coded().Value(t) : Walked().Value(t);
    }
}

// The bundles after the last are none.
void RowLeaves::LookAhead(size_t bundle) {
    const std::vector<Bundle>& bundleV = ensemble.bundleV;
    Stretch& next = stretchV[now ^ 1];
    next.firstBundle = next.endBundle = bundle;
    if (bundle == bundleV.size()) return;
    if (bundleV[bundle].firstLane > 0) --next.firstBundle;
    ++next.endBundle;
    if (next.endBundle < bundleV.size() && bundleV[next.endBundle].firstLane > 0) ++next.endBundle;
    const Bundle& first = bundleV[next.firstBundle];
    if (first.IsCoded()) FindLeaves(first, next.leafV);
}

void RowLeaves::FindLeaves(const Bundle& bundle, uint8_t* leafV) {
    const ThresholdCodes& codes = ensemble.sectionV[static_cast<size_t>(bundle.section)];
    if (section != bundle.section) codes.CodeRow(row, codeV);
    section = bundle.section;
    ensemble.kernel->findRowLeaves(ensemble.rowTestsV.data() + bundle.firstTests, bundle.depth,
                                   {codeV, codes.NumBands()}, leafV);
}

void RowLeaves::Walk(const Bundle& bundle) {
    const double* rowV[kBundleTrees];
    std::fill_n(rowV, kBundleTrees, row);
    std::copy_n(ensemble.rootV.data() + bundle.firstTree, bundle.numTrees, walkedV);
    ensemble.walked.Walk(rowV, walkedV, bundle.numTrees);
}

}  // namespace engine
}  // namespace sylvora

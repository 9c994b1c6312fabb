// One row through the trees; see RowLeaves.h.
#include "RowLeaves.h"

#include <algorithm>

namespace sylvora {
namespace engine {
bool RowLeaves::Next() {
    const std::vector<Bundle>& bundleV = ensemble.bundleV;
    if (endBundle == bundleV.size()) return false;
    firstBundle = endBundle++;
    const Bundle& bundle = bundleV[firstBundle];
    const bool fPair =
        bundle.IsCoded() && endBundle < bundleV.size() && bundle.PairsWith(bundleV[endBundle]);
    if (fPair) ++endBundle;
    endTree = bundleV[endBundle - 1].EndTree();
    if (bundle.IsCoded()) {
        EvaluateCoded();
    } else {
        EvaluateWalked();
    }
    return true;
}

void RowLeaves::SkipTo(size_t tree) {
    while (ensemble.bundleV[endBundle].EndTree() <= tree) ++endBundle;
    Next();
}

void RowLeaves::EvaluateCoded() {
    const Bundle& bundle = *FirstBundle();
    const ThresholdCodes& codes = ensemble.sectionV[static_cast<size_t>(bundle.section)];
    if (section != bundle.section) codes.CodeRow(row, codeV);
    section = bundle.section;
    const uint16_t* const wordV = ensemble.wordV.data();
    uint16_t leafV[2 * kBundleTrees];
    ensemble.kernel->findRowLeaves(
        {{wordV + bundle.firstWord, wordV + EndBundle()[-1].firstWord}, bundle.depth}, codeV,
        codes.NumBands(), leafV);
    // The first of a pair is full, so that the second one's leaves follow.
    const double* leafValueV = ensemble.leafValueV.data() + bundle.firstLeaf;
    const int numTrees = static_cast<int>(endTree - bundle.firstTree);
    for (int t = 0; t < numTrees; ++t) {
        valueV[t] = leafValueV[leafV[t]];
        leafValueV += size_t{1} << bundle.depth;
    }
}

void RowLeaves::EvaluateWalked() {
    const Bundle& bundle = *FirstBundle();
    const double* rowV[kBundleTrees];
    uint32_t atV[kBundleTrees];
    std::fill_n(rowV, kBundleTrees, row);
    std::copy_n(ensemble.rootV.data() + bundle.firstTree, bundle.numTrees, atV);
    ensemble.walked.Walk(rowV, atV, bundle.numTrees);
    for (int t = 0; t < bundle.numTrees; ++t) valueV[t] = ensemble.walked.Values()[atV[t]];
}

}  // namespace engine
}  // namespace sylvora

// One row through the trees; see RowLeaves.h.
#include "RowLeaves.h"

#include <algorithm>

namespace sylvora {
namespace engine {
namespace {

// Walks kTrees neighbouring padded trees side by side; at each level the position doubles, and goes
// one further to the right if the test says so. With the depth known, so are all distances.
template <int kTrees, int kDepth>
void WalkWords(const uint32_t* wordV, const double* leafValueV, const uint32_t* codeV,
               double* valueV) {
    constexpr size_t kSize = size_t{1} << kDepth;
    size_t at[kTrees];
    std::fill_n(at, kTrees, size_t{1});
    for (int level = 0; level < kDepth; ++level) {
        for (size_t t = 0; t < kTrees; ++t) {
            const uint32_t word = wordV[t * kSize + at[t]];
            const bool fRight = word < codeV[word & 0xffffu];
            at[t] = 2 * at[t] + static_cast<size_t>(fRight);
        }
    }
    for (size_t t = 0; t < kTrees; ++t) valueV[t] = leafValueV[t * kSize + at[t] - kSize];
}

template <int kDepth>
void WalkBundle(const uint32_t* wordV, const double* leafValueV, const uint32_t* codeV,
                int numTrees, double* valueV) {
    constexpr int kTogether = 8;
    int t = 0;
    for (; t + kTogether <= numTrees; t += kTogether) {
        const int first = t << kDepth;
        WalkWords<kTogether, kDepth>(wordV + first, leafValueV + first, codeV, valueV + t);
    }
    for (; t < numTrees; ++t) {
        const int first = t << kDepth;
        WalkWords<1, kDepth>(wordV + first, leafValueV + first, codeV, valueV + t);
    }
}

}  // namespace

void RowLeaves::Evaluate(size_t tree) {
    while (ensemble.bundleV[nextBundle].EndTree() <= tree) ++nextBundle;
    const Bundle& bundle = ensemble.bundleV[nextBundle++];
    firstTree = bundle.firstTree;
    endTree = bundle.EndTree();
    if (bundle.IsCoded()) {
        EvaluateCoded(bundle);
    } else {
        EvaluateWalked(bundle);
    }
}

void RowLeaves::EvaluateCoded(const Bundle& bundle) {
    if (section != bundle.section) {
        section = bundle.section;
        ensemble.sectionV[static_cast<size_t>(section)].CodeRow(row, codeV);
    }
    static constexpr decltype(&WalkBundle<3>) kWalks[] = {
        WalkBundle<3>, WalkBundle<4>, WalkBundle<5>, WalkBundle<6>, WalkBundle<7>, WalkBundle<8>};
    kWalks[bundle.depth - kMinCodedDepth](ensemble.wordV.data() + bundle.firstWord,
                                          ensemble.leafValueV.data() + bundle.firstWord, codeV,
                                          bundle.numTrees, valueV);
}

void RowLeaves::EvaluateWalked(const Bundle& bundle) {
    const double* rowV[kBundleTrees];
    uint32_t atV[kBundleTrees];
    std::fill_n(rowV, kBundleTrees, row);
    std::copy_n(ensemble.rootV.data() + bundle.firstTree, bundle.numTrees, atV);
    ensemble.walked.Walk(rowV, atV, bundle.numTrees);
    for (int t = 0; t < bundle.numTrees; ++t) valueV[t] = ensemble.walked.Values()[atV[t]];
}

}  // namespace engine
}  // namespace sylvora

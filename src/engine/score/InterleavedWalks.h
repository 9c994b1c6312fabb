// Walks through trees that take turns: each step of a walk waits for the previous one, but the
// memory accesses of different walks overlap.
#ifndef SYLVORA_ENGINE_SCORE_INTERLEAVEDWALKS_H
#define SYLVORA_ENGINE_SCORE_INTERLEAVEDWALKS_H

namespace sylvora {
namespace engine {

// Does kWalks walks; see WalkInterleaved.
template <int kWalks, typename Index, typename Step, typename IsAtLeaf>
void WalkTogether(const double* const* rowV, Index* atV, Step step, IsAtLeaf isAtLeaf) {
    constexpr int kStepsPerCheck = 4;
    for (bool fAtLeaves = false; !fAtLeaves;) {
        for (int k = 0; k < kStepsPerCheck; ++k) {
            for (int i = 0; i < kWalks; ++i) atV[i] = step(rowV[i], atV[i]);
        }
        fAtLeaves = true;
        for (int i = 0; i < kWalks; ++i) fAtLeaves &= isAtLeaf(atV[i]);
    }
}

// Walks `num` rows: row rowV[i] starts at node atV[i], and atV[i] becomes the leaf it reaches.
// step(row, node) is the number of the next node, and of a leaf the leaf itself.
template <typename Index, typename Step, typename IsAtLeaf>
void WalkInterleaved(const double* const* rowV, Index* atV, int num, Step step, IsAtLeaf isAtLeaf) {
    constexpr int kManyWalks = 16;
    constexpr int kFewWalks = 4;  // for what is left over
    int i = 0;
    for (; i + kManyWalks <= num; i += kManyWalks) {
        WalkTogether<kManyWalks>(rowV + i, atV + i, step, isAtLeaf);
    }
    for (; i + kFewWalks <= num; i += kFewWalks) {
        WalkTogether<kFewWalks>(rowV + i, atV + i, step, isAtLeaf);
    }
    for (; i < num; ++i) WalkTogether<1>(rowV + i, atV + i, step, isAtLeaf);
}

}  // namespace engine
}  // namespace sylvora

#endif  // SYLVORA_ENGINE_SCORE_INTERLEAVEDWALKS_H

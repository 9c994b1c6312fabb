// The block kernel for every x86-64 processor.
#include "KernelChoice.h"

namespace sylvora {
namespace engine {
namespace {

constexpr int kWidth = 16;
constexpr int kRegisters = 2;
#include "BlockKernel.inl"

// Without byte shuffles, one row walks kTrees trees in lockstep, so that their loads overlap. atV
// are heap positions.
template <int kTrees>
static inline void WalkTrees(const RowTests* testsV, int depth, const int8_t* codeV, int firstLane,
                             uint8_t* leafV) {
    size_t atV[kTrees];
    for (size_t& at : atV) at = 1;
    for (int level = 0; level < depth; ++level) {
        for (int t = 0; t < kTrees; ++t) {
            const RowTests& tests = testsV[atV[t]];
            const bool fRight = codeV[tests.bandV[firstLane + t]] >= tests.testV[firstLane + t];
            atV[t] = 2 * atV[t] + static_cast<size_t>(fRight);
        }
    }
    for (int t = 0; t < kTrees; ++t) {
        leafV[firstLane + t] = static_cast<uint8_t>(atV[t] - (size_t{1} << depth));
    }
}

static void WalkRow(const RowTests* testsV, int depth, const RowCodes& codes, uint8_t* leafV) {
    constexpr int kWalks = 8;
    for (int lane = 0; lane < kRowTrees; lane += kWalks) {
        WalkTrees<kWalks>(testsV, depth, codes.codeV, lane, leafV);
    }
}

}  // namespace

const BlockKernel kBaselineKernel = {"baseline", FillBand, FindLeaves, WalkRow};

}  // namespace engine
}  // namespace sylvora

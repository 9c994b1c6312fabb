// The block kernel for every x86-64 processor.
#include "KernelChoice.h"

namespace sylvora {
namespace engine {
namespace {

constexpr int kWidth = 16;
constexpr int kTogether = 2;
#include "BlockKernel.inl"

}  // namespace

const BlockKernel kBaselineKernel = {"baseline", FillBand, FindLeaves, WalkRow};

}  // namespace engine
}  // namespace sylvora

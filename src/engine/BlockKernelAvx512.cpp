// The block kernel for processors with AVX-512 F, BW, DQ and VL.
#include "KernelChoice.h"

namespace sylvora {
namespace engine {
namespace {

constexpr int kWidth = 64;
constexpr int kTogether = 1;
#include "BlockKernel.inl"

}  // namespace

const BlockKernel kAvx512Kernel = {"avx512", FillSlot, FindLeaves};

}  // namespace engine
}  // namespace sylvora

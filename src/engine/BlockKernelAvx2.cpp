// The block kernel for processors with AVX2.
#include "KernelChoice.h"

namespace sylvora {
namespace engine {
namespace {

constexpr int kWidth = 32;
constexpr int kTogether = 2;
#include "BlockKernel.inl"

}  // namespace

const BlockKernel kAvx2Kernel = {"avx2", FillSlot, FindLeaves};

}  // namespace engine
}  // namespace sylvora

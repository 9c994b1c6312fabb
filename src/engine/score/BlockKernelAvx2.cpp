// The block kernel for processors with AVX2.
#include <immintrin.h>

#include "KernelChoice.h"

namespace sylvora {
namespace engine {
namespace {

constexpr int kWidth = 32;
constexpr int kRegisters = 2;
#include "BlockKernel.inl"
#include "RowKernel.inl"

}  // namespace

const BlockKernel kAvx2Kernel = {"avx2", FillBand, FindLeaves, FindRowLeaves};

}  // namespace engine
}  // namespace sylvora

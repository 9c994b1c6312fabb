// The block kernel for processors with AVX-512 F, BW, DQ and VL.
#include <immintrin.h>

#include "KernelChoice.h"

namespace sylvora {
namespace engine {
namespace {

constexpr int kWidth = 64;
constexpr int kRegisters = 1;
#include "BlockKernel.inl"
#include "RowKernel.inl"

}  // namespace

const BlockKernel kAvx512Kernel = {"avx512", FillBand, FindLeaves, FindRowLeaves};

}  // namespace engine
}  // namespace sylvora

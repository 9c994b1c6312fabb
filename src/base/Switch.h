// What the environment decides about the engine: whether it is used, and with which kernel.
#ifndef SYLVORA_BASE_SWITCH_H
#define SYLVORA_BASE_SWITCH_H

namespace sylvora {

// True if SYLVORA_PLAIN is "1". Then the reference implementation trains and scores, for tests or
// to check a result. Read at the start of a training run and when an ensemble is compiled for
// scoring.
bool UseReferenceImplementation();

// The value of SYLVORA_KERNEL: "baseline", "avx2" or "avx512", not checked; null if it is not set.
// It names the kernels for batches, for single rows and for training, but for those of
// RowKernels.h, exp and log, which are always the fastest. For tests and comparisons. Read when an
// ensemble is compiled for scoring, by ParamInit, and when a training run starts. The environment
// owns the string.
const char* ForcedKernel();

}  // namespace sylvora

#endif  // SYLVORA_BASE_SWITCH_H

// Whether the engine is to be used at all.
#ifndef SYLVORA_BASE_SWITCH_H
#define SYLVORA_BASE_SWITCH_H

namespace sylvora {

// True when the environment has SYLVORA_PLAIN=1: everything then runs in the plain form, for tests
// or to check a result. Asked at the start of a run and when a model is loaded.
bool UsePlainForm();

// The kernel that the environment asks for, as in SYLVORA_KERNEL=baseline (or avx2, avx512); null
// where it does not. Batches and single rows are both scored with it. For tests and comparisons;
// asked when an ensemble is compiled for scoring.
const char* ForcedKernel();

}  // namespace sylvora

#endif  // SYLVORA_BASE_SWITCH_H

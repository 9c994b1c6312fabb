// Whether the engine is to be used at all.
#ifndef SYLVORA_ENGINE_SWITCH_H
#define SYLVORA_ENGINE_SWITCH_H

namespace sylvora {
namespace engine {

// True when the environment has SYLVORA_PLAIN=1: everything then runs in the plain form, for tests
// and doubts. Asked at the start of a run and when a model is loaded.
bool UsePlainForm();

// The kernel of batch scoring that the environment asks for, as in SYLVORA_KERNEL=baseline (or
// avx2, avx512); null where it does not. For tests and comparisons.
const char* ForcedKernel();

}  // namespace engine
}  // namespace sylvora

#endif  // SYLVORA_ENGINE_SWITCH_H

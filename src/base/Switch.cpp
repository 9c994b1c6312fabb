// Environment variables of the engine; see Switch.h.
#include "Switch.h"

#include <cstdlib>
#include <cstring>

namespace sylvora {

bool UseReferenceImplementation() {
    const char* value = std::getenv("SYLVORA_PLAIN");
    return value != nullptr && std::strcmp(value, "1") == 0;
}

const char* ForcedKernel() {
    return std::getenv("SYLVORA_KERNEL");
}

}  // namespace sylvora

// How much memory this process may use.
#ifndef SYLVORA_GOD_USABLEMEMORY_H
#define SYLVORA_GOD_USABLEMEMORY_H

#include "ControlGroups.h"

namespace sylvora {

// The machine's memory, or what its control group (a container's limit) or the process's limit on
// address space (ulimit -v) allows if that is less; in bytes.
double UsableMemory();

// The limit of the control groups found there in bytes, the lowest of all; infinite: no limit.
double MemoryOfControlGroup(const ControlGroupPlaces& places);

}  // namespace sylvora

#endif  // SYLVORA_GOD_USABLEMEMORY_H

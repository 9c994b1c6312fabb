// How much memory this process may use.
#ifndef SYLVORA_FRONTEND_USABLEMEMORY_H
#define SYLVORA_FRONTEND_USABLEMEMORY_H

#include "god/ControlGroups.h"

namespace sylvora::frontend {

// The machine's memory, or what its control group (a container's limit) allows if that is less; in
// bytes.
double UsableMemory();

// The limit of the control groups found there in bytes, the lowest of all; infinite: no limit.
double MemoryOfControlGroup(const ControlGroupPlaces& places);

}  // namespace sylvora::frontend

#endif  // SYLVORA_FRONTEND_USABLEMEMORY_H

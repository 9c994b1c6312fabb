// How much memory this process may use.
#ifndef SYLVORA_GOD_USABLEMEMORY_H
#define SYLVORA_GOD_USABLEMEMORY_H

#include "ControlGroups.h"

namespace sylvora {

// In bytes: the least of the machine's memory, the limit of the process's control groups (a
// container's limit) and the process's limit on address space (ulimit -v).
double UsableMemory();

// The lowest limit, in bytes, of the control groups found under `paths`; infinity if there is none.
double MemoryOfControlGroup(const ControlGroupPaths& paths);

}  // namespace sylvora

#endif  // SYLVORA_GOD_USABLEMEMORY_H

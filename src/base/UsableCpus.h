// The number of processors that this process may use.
#ifndef SYLVORA_BASE_USABLECPUS_H
#define SYLVORA_BASE_USABLECPUS_H

#include "god/ControlGroups.h"

namespace sylvora {

// The number of processors in the process's affinity mask, or the CPU limit of its control group
// (as containers set it) if that is lower; at least 1. Reads files, so it takes some microseconds.
int NumUsableCpus();

// The CPU limit of the process's control group and its ancestors: the lowest quota / period,
// rounded up; 0 if there is no limit. `places` says where to look; tests pass their own.
int CpusOfControlGroup(const ControlGroupPaths& places);

}  // namespace sylvora

#endif  // SYLVORA_BASE_USABLECPUS_H

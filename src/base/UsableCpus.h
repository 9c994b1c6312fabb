// How many processors this process may use.
#ifndef SYLVORA_BASE_USABLECPUS_H
#define SYLVORA_BASE_USABLECPUS_H

#include "god/ControlGroups.h"

namespace sylvora {

// The processors that the process is allowed on, or as many as its control group (a container's CPU
// limit) has time for, if that is fewer; at least 1.
int NumUsableCpus();

// The limit of the control groups found there: quota / period, rounded up, the lowest of all; 0: no
// limit.
int CpusOfControlGroup(const ControlGroupPaths& places);

}  // namespace sylvora

#endif  // SYLVORA_BASE_USABLECPUS_H

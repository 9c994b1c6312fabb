// How many processors this process may use.
#ifndef SYLVORA_ENGINE_USABLECPUS_H
#define SYLVORA_ENGINE_USABLECPUS_H

#include <string>

namespace sylvora {
namespace engine {

// The processors that the process is allowed on, or as many as its control group (a container's CPU
// limit) has time for, if that is fewer; at least 1.
int NumUsableCpus();

// The limit of the control group that `cgroupFile` (/proc/self/cgroup) names, as found in the
// hierarchy mounted at `mount`, versions 1 and 2: quota / period, rounded up, the lowest of the
// group and those it is part of; 0: no limit.
int CpusOfControlGroup(const std::string& cgroupFile, const std::string& mount);

}  // namespace engine
}  // namespace sylvora

#endif  // SYLVORA_ENGINE_USABLECPUS_H

// How much memory this process may use.
#ifndef SYLVORA_FRONTEND_USABLEMEMORY_H
#define SYLVORA_FRONTEND_USABLEMEMORY_H

#include <string>

namespace sylvora::frontend {

// The machine's memory, or what its control group (a container's limit) allows if that is less; in
// bytes.
double UsableMemory();

// The limit of the control group that `cgroupFile` (/proc/self/cgroup) names, as found in the
// hierarchy mounted at `mount`, versions 1 and 2: in bytes, the lowest of the group and those it is
// part of; infinite: no limit.
double MemoryOfControlGroup(const std::string& cgroupFile, const std::string& mount);

}  // namespace sylvora::frontend

#endif  // SYLVORA_FRONTEND_USABLEMEMORY_H

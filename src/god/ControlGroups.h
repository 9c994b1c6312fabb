// The control groups (cgroups) of this process, which hold the limits of a container.
#ifndef SYLVORA_GOD_CONTROLGROUPS_H
#define SYLVORA_GOD_CONTROLGROUPS_H

#include <string>
#include <vector>

namespace sylvora {

// The paths that are read. Tests pass their own.
struct ControlGroupPaths {
    std::string cgroupFile = "/proc/self/cgroup";
    std::string mount = "/sys/fs/cgroup";
};

// The folders whose files may limit `controller` ("cpu", "memory"): those of the process's group
// and of all its parents, in the hierarchies of cgroup versions 1 and 2. They need not exist.
std::vector<std::string> ControlGroupFolders(const std::string& controller,
                                             const ControlGroupPaths& paths);

}  // namespace sylvora

#endif  // SYLVORA_GOD_CONTROLGROUPS_H

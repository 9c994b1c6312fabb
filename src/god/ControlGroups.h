// The control groups that this process is in: a container's limits are set there.
#ifndef SYLVORA_GOD_CONTROLGROUPS_H
#define SYLVORA_GOD_CONTROLGROUPS_H

#include <string>
#include <vector>

namespace sylvora {

// Where /proc/self/cgroup and the hierarchies are; tests have others.
struct ControlGroupPlaces {
    std::string cgroupFile = "/proc/self/cgroup";
    std::string mount = "/sys/fs/cgroup";
};

// The folders, existing or not, whose files may limit what `controller` ("cpu", "memory") controls:
// those of the process's group and of the groups that it is part of, in the hierarchies of versions
// 1 and 2.
std::vector<std::string> ControlGroupFolders(const std::string& controller,
                                             const ControlGroupPlaces& places);

}  // namespace sylvora

#endif  // SYLVORA_GOD_CONTROLGROUPS_H

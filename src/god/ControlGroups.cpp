// Control groups; see ControlGroups.h.
#include "ControlGroups.h"

#include <filesystem>
#include <fstream>

namespace sylvora {
namespace {

// The hierarchies to search for `controller`, given the controller names of one line of
// /proc/self/cgroup. Version 2 has a single hierarchy and no names. In version 1 a hierarchy serves
// one or more controllers, and is mounted under the list of their names or under each name.
std::vector<std::string> HierarchiesOf(const std::string& names, const std::string& controller) {
    if (names.empty()) return {""};
    if (("," + names + ",").find("," + controller + ",") == std::string::npos) return {};
    if (names == controller) return {"/" + names};
    return {"/" + names, "/" + controller};
}

}  // namespace

std::vector<std::string> ControlGroupFolders(const std::string& controller,
                                             const ControlGroupPaths& paths) {
    std::vector<std::string> folderV;
    std::ifstream file(paths.cgroupFile);
    // Each line is number:names:/path.
    for (std::string number, names, path; std::getline(file, number, ':');) {
        if (!std::getline(file, names, ':') || !std::getline(file, path)) break;
        for (const std::string& hierarchy : HierarchiesOf(names, controller)) {
            // From the group up to the root. Inside a container the path may be the host's, and
            // the mounted root is then the container's group.
            for (std::filesystem::path group = path;; group = group.parent_path()) {
                folderV.push_back(paths.mount + hierarchy + group.string());
                if (group == group.parent_path()) break;
            }
        }
    }
    return folderV;
}

}  // namespace sylvora

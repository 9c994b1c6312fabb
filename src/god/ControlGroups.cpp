// Control groups; see ControlGroups.h.
#include "ControlGroups.h"

#include <filesystem>
#include <fstream>

namespace sylvora {
namespace {

// Version 2 has one hierarchy, with no names; version 1 one for some controllers each, which is
// found by all their names or by one alone.
std::vector<std::string> HierarchiesOf(const std::string& names, const std::string& controller) {
    if (names.empty()) return {""};
    if (("," + names + ",").find("," + controller + ",") == std::string::npos) return {};
    if (names == controller) return {"/" + names};
    return {"/" + names, "/" + controller};
}

}  // namespace

std::vector<std::string> ControlGroupFolders(const std::string& controller,
                                             const ControlGroupPlaces& places) {
    std::vector<std::string> folderV;
    std::ifstream file(places.cgroupFile);
    // number:names:/path
    for (std::string number, names, path; std::getline(file, number, ':');) {
        if (!std::getline(file, names, ':') || !std::getline(file, path)) break;
        for (const std::string& hierarchy : HierarchiesOf(names, controller)) {
            // From the group upwards; in a container, the root is the container's own.
            for (std::filesystem::path group = path;; group = group.parent_path()) {
                folderV.push_back(places.mount + hierarchy + group.string());
                if (group == group.parent_path()) break;
            }
        }
    }
    return folderV;
}

}  // namespace sylvora

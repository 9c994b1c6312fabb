// Control groups as both versions lay them out, in a folder of a test's own.
#ifndef SYLVORA_TESTS_CONTROLGROUPFOLDER_H
#define SYLVORA_TESTS_CONTROLGROUPFOLDER_H

#include <filesystem>
#include <string>
#include <utility>
#include <vector>

#include "Support.h"
#include "god/ControlGroups.h"

namespace sylvora::tests {

class ControlGroupFolder {
  public:
    // `cgroup` as in /proc/self/cgroup; `files` by their paths below the mount point.
    ControlGroupFolder(const char* cgroup,
                       const std::vector<std::pair<const char*, const char*>>& files) {
        for (const auto& [name, text] : files) {
            std::filesystem::create_directories(
                std::filesystem::path(folder.Path(name)).parent_path());
            folder.Write(name, text);
        }
        places = {folder.Write("cgroup", cgroup), folder.Path("")};
        places.mount.pop_back();  // the slash
    }

    const ControlGroupPlaces& Places() const { return places; }

  private:
    TempFolder folder;
    ControlGroupPlaces places;
};

}  // namespace sylvora::tests

#endif  // SYLVORA_TESTS_CONTROLGROUPFOLDER_H

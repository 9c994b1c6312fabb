// Control groups as both versions lay them out, in a folder of a test's own.
#ifndef SYLVORA_TESTS_CONTROLGROUPCASES_H
#define SYLVORA_TESTS_CONTROLGROUPCASES_H

#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <utility>
#include <vector>

#include "Support.h"
#include "god/ControlGroups.h"

namespace sylvora::tests {

template <typename Limit>
struct ControlGroupCase {
    const char* what;
    const char* cgroup;                                      // as in /proc/self/cgroup
    std::vector<std::pair<const char*, const char*>> files;  // by their paths below the mount point
    Limit limit;
};

template <typename Limit>
void TryControlGroups(Limit (*limitOf)(const ControlGroupPlaces& places),
                      const std::vector<ControlGroupCase<Limit>>& caseV) {
    for (const ControlGroupCase<Limit>& c : caseV) {
        const TempFolder folder;
        for (const auto& [name, text] : c.files) {
            std::filesystem::create_directories(
                std::filesystem::path(folder.Path(name)).parent_path());
            folder.Write(name, text);
        }
        ControlGroupPlaces places = {folder.Write("cgroup", c.cgroup), folder.Path("")};
        places.mount.pop_back();  // the slash
        EXPECT_EQ(limitOf(places), c.limit) << c.what;
    }
}

}  // namespace sylvora::tests

#endif  // SYLVORA_TESTS_CONTROLGROUPCASES_H

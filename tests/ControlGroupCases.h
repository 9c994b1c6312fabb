// Table-driven tests of control groups (versions 1 and 2), laid out in a temporary folder.
#ifndef SYLVORA_TESTS_CONTROLGROUPCASES_H
#define SYLVORA_TESTS_CONTROLGROUPCASES_H

#include <gtest/gtest.h>

#include <filesystem>
#include <sstream>
#include <string>
#include <vector>

#include "Support.h"
#include "god/ControlGroups.h"

namespace sylvora::tests {

// Splits the text at the separator and trims blanks.
inline std::vector<std::string> Fields(const std::string& text, char separator) {
    std::vector<std::string> fieldV;
    std::istringstream in(text);
    for (std::string field; std::getline(in >> std::ws, field, separator);) {
        fieldV.push_back(field.erase(field.find_last_not_of(' ') + 1));
    }
    return fieldV;
}

// Each line of the table has four fields: a name, the content of /proc/self/cgroup, files (path
// below the mount point = content), and the expected limit. Semicolons separate the lines of the
// second field and the files of the third.
template <typename Limit>
void TryControlGroups(Limit (*limitOf)(const ControlGroupPaths& places), const char* table) {
    for (const std::string& line : Fields(table, '\n')) {
        const std::vector<std::string> fieldV = Fields(line, '|');
        ASSERT_EQ(fieldV.size(), 4U) << line;
        const TempFolder folder;
        for (const std::string& file : Fields(fieldV[2], ';')) {
            const size_t equals = file.find('=');
            const std::filesystem::path path = folder.Path(file.substr(0, equals));
            std::filesystem::create_directories(path.parent_path());
            std::ofstream(path) << file.substr(equals + 1) << '\n';
        }
        std::string groups;
        for (const std::string& group : Fields(fieldV[1], ';')) groups += group + '\n';
        ControlGroupPaths places = {folder.Write("cgroup", groups), folder.Path("")};
        places.mount.pop_back();  // the slash
        EXPECT_EQ(limitOf(places), static_cast<Limit>(std::stod(fieldV[3]))) << line;
    }
}

}  // namespace sylvora::tests

#endif  // SYLVORA_TESTS_CONTROLGROUPCASES_H

// The files of the command, checked before any work is done.
#ifndef SYLVORA_FRONTEND_PATHS_H
#define SYLVORA_FRONTEND_PATHS_H

#include <string>
#include <vector>

#include "Modes.h"

namespace sylvora::frontend {

struct NamedPath {
    std::string parameter;  // that names the file; an empty path is one that was not given
    std::string path;
};

// Checks that `wanted` was given. `purpose` says what it is for. Returns 0, or -1 after a message.
[[nodiscard]] int RequirePath(const NamedPath& wanted, const std::string& purpose);

// Refuses a device that might never end, such as /dev/zero. Returns 0, or -1 after a message.
[[nodiscard]] int RefuseEndless(const NamedPath& input);

// Checks, without changing anything, that no data file or label map is a device that might never
// end, that every output can be written and that none of them would overwrite another file of the
// command. Returns 0, or -1 after a message.
[[nodiscard]] int CheckFiles(const Command& command, const std::vector<NamedPath>& outputV);

}  // namespace sylvora::frontend

#endif  // SYLVORA_FRONTEND_PATHS_H

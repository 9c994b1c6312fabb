// Checks the command's input and output paths before any work is done.
#ifndef SYLVORA_FRONTEND_PATHS_H
#define SYLVORA_FRONTEND_PATHS_H

#include <string>
#include <vector>

#include "Modes.h"

namespace sylvora::frontend {

struct NamedPath {
    std::string parameter;  // the parameter that names the file
    std::string path;       // empty: not given
};

// Checks that the path was given. `purpose` completes "name ..." in the message. Returns 0, or -1
// after a message.
[[nodiscard]] int RequirePath(const NamedPath& wanted, const std::string& purpose);

// Refuses a device that might never end, such as /dev/zero. Returns 0, or -1 after a message.
[[nodiscard]] int RefuseEndless(const NamedPath& input);

// Refuses a pipe or device that several ranks would each read from: it gives its content once.
// Returns 0, or -1 after a message.
[[nodiscard]] int RefuseUnshared(const Command& command, const NamedPath& input);

// Checks that no data file or label map is a device that might never end or, with several ranks, a
// pipe, that every output can be written, and that no output would overwrite another file of the
// command. Changes no file. Returns 0, or -1 after a message.
[[nodiscard]] int CheckFiles(const Command& command, const std::vector<NamedPath>& outputV);

}  // namespace sylvora::frontend

#endif  // SYLVORA_FRONTEND_PATHS_H

// Names and locks of files.
#ifndef SYLVORA_OUTPUT_FILESYSTEM_H
#define SYLVORA_OUTPUT_FILESYSTEM_H

#include <string>

namespace sylvora {

// The folder that a file is in, without a slash at its end; "." for a bare name.
std::string FolderOf(const std::string& path);

// Follows symbolic links; the file at the end need not exist yet. A link to something other than a
// regular file is not followed: /dev/stdout can be a link to a pipe, which has no path.
std::string ResolveLinks(std::string path);

// Whether `name` still names the file that is open as `fd`.
bool IsSameFile(const std::string& name, int fd);

// flock(fd, operation), again after a signal. Returns false with errno set.
[[nodiscard]] bool LockFile(int fd, int operation);

}  // namespace sylvora

#endif  // SYLVORA_OUTPUT_FILESYSTEM_H

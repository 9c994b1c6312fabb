// File attributes: owner, group, mode, access control list and other extended attributes.
#ifndef SYLVORA_OUTPUT_FILEATTRIBUTES_H
#define SYLVORA_OUTPUT_FILEATTRIBUTES_H

#include <string>

namespace sylvora {

// Copies the attributes of the old file `path` to the new file `fd`, which is about to replace it.
// `fd` must belong to this process's user and have mode 0600, so that nobody else can use it yet.
// Returns a list of what could not be kept ("owner, group, mode"), or "" if all was kept. Hard
// links to the old file are never kept: they still refer to the old content.
//
// The new file never gives anybody a right that the old one did not:
// - If the owner cannot be kept, the file is not setuid.
// - If the group cannot be kept, the file is not setgid. Group and others then have only the rights
//   that both had before, because a user may have moved from one class to the other. In an access
//   control list this includes the entries of named groups.
// - If the access control list cannot be set, only the owner has any rights.
//
// All visible extended attributes are copied, except those in the kernel's "security." namespace
// that are not labels: signatures and capabilities belong to the old content. The default access
// control list of the folder does not replace that of the old file.
//
// Safe to call from any thread on distinct files. Throws std::bad_alloc.
[[nodiscard]] std::string CopyAttributes(const std::string& path, int fd);

}  // namespace sylvora

#endif  // SYLVORA_OUTPUT_FILEATTRIBUTES_H

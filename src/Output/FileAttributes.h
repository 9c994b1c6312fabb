// What a file has beside its content: owner, group, mode, access control list and other extended
// attributes.
#ifndef SYLVORA_OUTPUT_FILEATTRIBUTES_H
#define SYLVORA_OUTPUT_FILEATTRIBUTES_H

#include <string>

namespace sylvora {

// Gives the new file that is open as `fd` the attributes of the older file `path`, which it is
// about to replace. `fd` must be a file of this process's user that nobody else may use yet (mode
// 0600). Returns what could not be kept, in words ("owner, group, mode"); empty: all was kept.
// Other names (hard links) of the older file are never kept, because they still lead to it.
//
// Nobody gets a right that the older file did not give:
// - without its owner, the file is not setuid;
// - without its group, it is not setgid, and its group and the others may do what both might do
//   before, as the members of either may have been in the other; so in an access control list,
//   where the entries of named groups count too;
// - where the access control list cannot be set, it is for its owner alone.
//
// All extended attributes that this process sees are copied, but for those of the kernel's
// "security." namespace other than labels: signatures and capabilities belong to the older content.
// A folder's default access control list does not replace that of the older file.
//
// Throws std::bad_alloc.
[[nodiscard]] std::string CopyAttributes(const std::string& path, int fd);

}  // namespace sylvora

#endif  // SYLVORA_OUTPUT_FILEATTRIBUTES_H

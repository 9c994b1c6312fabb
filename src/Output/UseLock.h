// The right to use a file that its user replaces.
#ifndef SYLVORA_OUTPUT_USELOCK_H
#define SYLVORA_OUTPUT_USELOCK_H

#include <string>

#include "Descriptor.h"

namespace sylvora {

// Held by one object at a time, of all processes that use the same file. The lock is on an empty
// file beside it, `.sylvora-NAME.lock`, because the file itself may be missing or replaced. It ends
// with the process. The destructor removes the empty file; that of a killed process stays and is
// taken over by the next one. On a file system without locks everyone gets the right.
class UseLock {
  public:
    UseLock() = default;
    ~UseLock();
    UseLock(const UseLock&) = delete;
    UseLock& operator=(const UseLock&) = delete;

    // Call at most once. Symbolic links of `path` are followed. Returns "" or, as the rest of a
    // sentence that begins with the file, why this object did not get the right.
    [[nodiscard]] std::string Take(const std::string& path);

  private:
    std::string name;  // of the empty file; empty: not held
    Descriptor lock;
};

}  // namespace sylvora

#endif  // SYLVORA_OUTPUT_USELOCK_H

// The size of the processor's nearest cache, for choosing sizes of working memory. It affects
// speed, never results.
#ifndef SYLVORA_BASE_CACHESIZE_H
#define SYLVORA_BASE_CACHESIZE_H

#include <string>

namespace sylvora {

// The size of a core's L1 data cache in bytes, from the C library or else the kernel; 32 KB if
// neither knows a sensible one. Read once per process. Thread-safe.
int L1CacheBytes();

// The same as the kernel reports it in `folder`; 0 if it reports none. Tests pass their own folder.
int L1CacheBytesIn(const std::string& folder);

}  // namespace sylvora

#endif  // SYLVORA_BASE_CACHESIZE_H

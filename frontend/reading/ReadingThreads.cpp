// Starts the reading threads when there are blocks for them.
#include "ReadingThreads.h"

#include <algorithm>

#include "base/UsableCpus.h"

namespace sylvora::frontend {

WorkerPool& ReadingThreads::For(size_t numBlocks) {
    constexpr int kMaxThreads = 256;
    if (numBlocks <= 1) return pool;
    if (numThread <= 0) numThread = NumUsableCpus();
    numThread = std::min(numThread, kMaxThreads);
    const size_t numUseful = std::min(numBlocks, static_cast<size_t>(numThread));
    static_cast<void>(pool.Start(static_cast<int>(numUseful)));
    return pool;
}

}  // namespace sylvora::frontend

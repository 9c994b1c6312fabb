// The worker pool that reads data files.
#ifndef SYLVORA_FRONTEND_READING_READINGTHREADS_H
#define SYLVORA_FRONTEND_READING_READINGTHREADS_H

#include <cstddef>

#include "CheckIn.h"
#include "base/WorkerPool.h"

namespace sylvora::frontend {

// The number of threads for reading and scoring: numThread if it is set, else 0, which means one
// per usable processor.
inline int AskedThreads(const CheckCfgCLS& cfg) {
    return cfg.fSetThread ? cfg.numThread : 0;
}

// One pool for all files of a run. The rows and messages do not depend on the number of threads or
// on the block size. Not thread-safe.
class ReadingThreads {
  public:
    static constexpr size_t kBlockBytes = size_t{1} << 16;

    // At most `mostThreads`, including the calling thread; 0 or less: one per usable processor.
    explicit ReadingThreads(int mostThreads, size_t bytesOfBlock = kBlockBytes)
        : numThread(mostThreads), blockBytes(bytesOfBlock) {}

    // The pool, with no more threads than blocks. If some threads cannot be started, the others do
    // their work.
    WorkerPool& For(size_t numBlocks);

    size_t BlockBytes() const { return blockBytes; }

  private:
    int numThread;
    size_t blockBytes;
    WorkerPool pool;
};

}  // namespace sylvora::frontend

#endif  // SYLVORA_FRONTEND_READING_READINGTHREADS_H

// The threads that read data files.
#ifndef SYLVORA_FRONTEND_READING_READINGTHREADS_H
#define SYLVORA_FRONTEND_READING_READINGTHREADS_H

#include <cstddef>

#include "CheckIn.h"
#include "base/WorkerPool.h"

namespace sylvora::frontend {

// The number of threads that the user asked for; 0: as many as there are usable processors, which
// is what reading and scoring take where numThread is not given.
inline int AskedThreads(const CheckCfgCLS& cfg) {
    return cfg.fSetThread ? cfg.numThread : 0;
}

// One pool for all files of a run. What is read does not depend on the number of threads, nor on
// the size of the blocks that they take from a file.
class ReadingThreads {
  public:
    static constexpr size_t kBlockBytes = size_t{1} << 16;

    // At most `mostThreads`, the caller's included; 0 or less: one per usable processor.
    explicit ReadingThreads(int mostThreads, size_t bytesOfBlock = kBlockBytes)
        : numThread(mostThreads), blockBytes(bytesOfBlock) {}

    // The pool, with the threads that so many blocks can employ. Where not all can be started,
    // fewer do the same work.
    WorkerPool& For(size_t numBlocks);

    size_t BlockBytes() const { return blockBytes; }

  private:
    int numThread;
    size_t blockBytes;
    WorkerPool pool;
};

}  // namespace sylvora::frontend

#endif  // SYLVORA_FRONTEND_READING_READINGTHREADS_H

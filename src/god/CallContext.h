// What the calls of a learner use instead of process-wide state: a random stream and a sink of
// messages of their own.
#ifndef SYLVORA_GOD_CALLCONTEXT_H
#define SYLVORA_GOD_CALLCONTEXT_H

#include <cstddef>
#include <mutex>

#include "../Libdef.h"
#include "../RandomStream.h"

namespace sylvora {

// Everything is borrowed. The stream is only dereferenced by draws, the sink only by messages.
struct CallContext {
    RandomStream* stream = nullptr;  // null: gseed and the process-wide table
    MessageSinkType sink = nullptr;  // null: the standard streams
    void* sinkContext = nullptr;
    std::mutex* sinkMutex = nullptr;  // held while the sink runs
};

// The context of the calling thread; null: none. Draws and messages look it up here, and code that
// hands work to another thread passes it on.
const CallContext* CurrentContext();

// Replaces the context of the calling thread, by null as well, for its own lifetime.
class ContextScope {
  public:
    explicit ContextScope(const CallContext* context);
    ~ContextScope();
    ContextScope(const ContextScope&) = delete;
    ContextScope& operator=(const ContextScope&) = delete;

  private:
    const CallContext* const outer;
};

// Whether messages of the calling thread go to a sink. A message that arises in a sink does not.
bool HasSink();

// Hands a message to the sink of the calling thread; false if there is none. `text[size]` is 0.
// NULs in the text, which would end it early, become blanks. Ignores exceptions of the sink.
bool SendToSink(int stream, char* text, size_t size);

}  // namespace sylvora

#endif  // SYLVORA_GOD_CALLCONTEXT_H

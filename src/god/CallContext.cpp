// The context of a thread; see CallContext.h.
#include "CallContext.h"

#include <cxxabi.h>

#include <algorithm>

namespace sylvora {
namespace {

thread_local const CallContext* current = nullptr;
thread_local bool fInSink = false;  // the thread is running a sink

// Marks the thread as running a sink, for its own lifetime.
class SinkMark {
  public:
    SinkMark() { fInSink = true; }
    ~SinkMark() { fInSink = false; }
    SinkMark(const SinkMark&) = delete;
    SinkMark& operator=(const SinkMark&) = delete;
};

}  // namespace

const CallContext* CurrentContext() {
    return current;
}

ContextScope::ContextScope(const CallContext* context) : outer(current) {
    current = context;
}

ContextScope::~ContextScope() {
    current = outer;
}

bool HasSink() {
    return current != nullptr && current->sink != nullptr && !fInSink;
}

// The unwinding of a cancelled thread is not stopped: glibc requires that it goes on.
bool SendToSink(int stream, char* text, size_t size) {
    if (!HasSink()) return false;
    std::replace(text, text + size, '\0', ' ');
    const CallContext& context = *current;
    const std::lock_guard<std::mutex> lock(*context.sinkMutex);
    const SinkMark mark;
    try {
        context.sink(context.sinkContext, stream, text);
    } catch (const abi::__forced_unwind&) {
        throw;
    } catch (...) {
    }
    return true;
}

}  // namespace sylvora

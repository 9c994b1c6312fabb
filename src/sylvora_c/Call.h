// One call of the C interface: keeps exceptions and messages inside the library, and makes an error
// text of the messages of a call that fails.
#ifndef SYLVORA_SYLVORA_C_CALL_H
#define SYLVORA_SYLVORA_C_CALL_H

#include <exception>
#include <mutex>
#include <string>
#include <string_view>

#include "../god/CallContext.h"
#include "../god/Report.h"
#include "../sylvora_c.h"

namespace sylvora::c {

// Collects the messages of the calling thread, and of the threads that it starts, while it lives.
class Call {
  public:
    explicit Call(sylvora_message forwardTo = nullptr, void* forwardContext = nullptr)
        : forward(forwardTo),
          forwardee(forwardContext),
          context{nullptr, Receive, this, &mutex, true},
          scope(&context) {}
    Call(const Call&) = delete;
    Call& operator=(const Call&) = delete;

    // Runs `action`, which returns 0 or, after messages, something else. Returns 0 or -1.
    template <typename Action>
    int Run(const Action& action) {
        try {
            if (action() == 0) return 0;
            SetError(textV);
        } catch (const std::bad_alloc&) {
            SetError("ERROR: Failed to allocate memory!\n");
        } catch (const std::exception& failure) {
            SetError(failure.what());
        } catch (...) {
            SetError("ERROR: An unknown exception!\n");
        }
        return -1;
    }

    // A MessageSinkType; `call` is a Call.
    static void Receive(void* call, int stream, const char* text);

  private:
    // Keeps a text as the calling thread's error: without notices and warnings, if there is more,
    // and without "ERROR: ".
    static void SetError(std::string_view text) noexcept;

    const sylvora_message forward;
    void* const forwardee;
    std::string textV;  // messages for standard error so far
    std::mutex mutex;
    const CallContext context;
    const ContextScope scope;
};

// A call without messages to forward.
template <typename Action>
int Run(const Action& action) {
    return Call().Run(action);
}

// Reports a null argument; returns -1.
int RefuseNull(const char* what);

}  // namespace sylvora::c

#endif  // SYLVORA_SYLVORA_C_CALL_H

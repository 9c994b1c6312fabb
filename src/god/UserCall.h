// Calls of functions that the user supplied.
#ifndef SYLVORA_GOD_USERCALL_H
#define SYLVORA_GOD_USERCALL_H

#include <cxxabi.h>

#include <exception>

#include "Report.h"

namespace sylvora {

// Runs `call`, which calls the user's function `name`, and returns its status. An exception is
// reported on standard error; fThrew is then set and the result is -1. The unwinding of a cancelled
// thread is not stopped: glibc requires that it goes on.
template <typename Flag, typename Call>
[[nodiscard]] int CallUser(const char* name, Flag& fThrew, const Call& call) {
    try {
        return call();
    } catch (const abi::__forced_unwind&) {
        throw;
    } catch (const std::exception& exception) {
        Warn("ERROR: The user's ", name, " threw an exception: ", exception.what(), "\n");
    } catch (...) {
        Warn("ERROR: The user's ", name, " threw an exception!\n");
    }
    fThrew = true;
    return -1;
}

}  // namespace sylvora

#endif  // SYLVORA_GOD_USERCALL_H

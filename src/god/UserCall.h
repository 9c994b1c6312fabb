// Calls of functions that the user supplies.
#ifndef SYLVORA_GOD_USERCALL_H
#define SYLVORA_GOD_USERCALL_H

#include <cxxabi.h>

#include <exception>

#include "Report.h"

namespace sylvora {

// Returns the status of `call`, a call of the user's function `name`. An exception is written to
// standard error and becomes -1, with fThrew set. Only the unwinding of a cancelled thread goes on,
// as it must.
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

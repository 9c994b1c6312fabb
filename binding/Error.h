// How code that knows nothing of Python raises the module's exception.
#ifndef SYLVORA_BINDING_ERROR_H
#define SYLVORA_BINDING_ERROR_H

#include <cstddef>

// Makes `sylvora.error` with this text the calling thread's pending Python exception, in place of
// any other. Returns null, which is what a function called by the interpreter then has to return.
std::nullptr_t RaiseError(const char* text);

#endif  // SYLVORA_BINDING_ERROR_H

// The live handles. An integer from the interpreter is looked up here and never dereferenced, so a
// wrong or stale one is an error and not a crash.
//
// Not locked: every caller holds the interpreter's global lock.
#ifndef SYLVORA_BINDING_HANDLES_H
#define SYLVORA_BINDING_HANDLES_H

#include <memory>

#include "Model.h"

// Takes ownership of a model's content and returns its handle: the address of the Model that now
// has it. No other model of this process ever gets the same handle, so a stale one never becomes
// valid again. To ensure this the Model itself (32 bytes) is never freed, only what it owns. Throws
// std::bad_alloc.
unsigned long AddHandle(Model&& model);

// The model of a handle, null when the handle is not live. The model outlives the removal of its
// handle for as long as the caller keeps the pointer.
std::shared_ptr<Model> FindHandle(unsigned long handle);

// Removes a handle and frees what its model owns. If a scoring call is still using the model, it is
// freed when that call ends. Does nothing if the handle is not live.
void RemoveHandle(unsigned long handle);

#endif  // SYLVORA_BINDING_HANDLES_H

// The live handles. An integer from the interpreter is looked up here and never dereferenced, so a
// wrong or stale one is an error and not a crash.
//
// Not locked: every caller holds the interpreter's global lock.
#ifndef SYLVORA_BINDING_HANDLES_H
#define SYLVORA_BINDING_HANDLES_H

#include <memory>

#include "Model.h"

// Takes over a model and returns its handle: the address of the model that took its content. No
// other model of this process ever gets the same one, so a stale handle stays wrong for good. For
// this the Model itself (32 bytes) is never freed; what it owns is. Throws std::bad_alloc.
unsigned long AddHandle(Model&& model);

// The model of a handle, null when the handle is not live. The model outlives the removal of its
// handle for as long as the caller keeps the pointer.
std::shared_ptr<Model> FindHandle(unsigned long handle);

// Ends the life of a handle and frees what its model owns, unless a scoring call is still using it,
// which then does so. Does nothing when the handle is not live.
void RemoveHandle(unsigned long handle);

#endif  // SYLVORA_BINDING_HANDLES_H

// A Python object that lets ranks exchange bytes, as a communicator of the library.
#ifndef SYLVORA_PYTHON_CORE_COMMUNICATORS_H
#define SYLVORA_PYTHON_CORE_COMMUNICATORS_H

#include "Support.h"
#include "sylvora_c.h"

namespace sylvora::python {

// An exception of a function of Python that the library called, kept for the caller of the library.
struct KeptError {
    Reference_t part[3];  // type, value, traceback

    // Takes over the current exception, unless there is one already.
    void Keep();
    // Raises the exception that was kept. Returns false if there is none.
    bool Raise();
};

// Lives as long as the data sets that were made with it; used with the lock held.
struct CommunicatorState {
    Reference_t object;
    int numRanks = 0;
    bool fEnding = false;  // the interpreter was ending when the library was called
    KeptError error;

    // The functions for the library; raises and returns false if the object lacks something.
    bool Describe(sylvora_communicator& functions);
};

}  // namespace sylvora::python

#endif  // SYLVORA_PYTHON_CORE_COMMUNICATORS_H

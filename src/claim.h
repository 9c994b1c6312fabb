// The process-wide seed of tree slot 0.
#ifndef SYLVORA_CLAIM_H
#define SYLVORA_CLAIM_H

#include "Libdef.h"

// State word of the generator that the first tree of every round draws from (see ranz in god.h).
// It is 0 at load time. Set it to a negative number before training to choose the run's random
// stream; the library changes it only by drawing. Do not read or write it during a run: access is
// not synchronised. Learners with a stream of their own (RandomStream.h) do not use it.
extern SYLVORA_API long gseed;

#endif  // SYLVORA_CLAIM_H

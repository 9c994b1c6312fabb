// What the ranks of a training agree about before it begins and between its rounds.
#ifndef SYLVORA_FRONTEND_RANKSETTINGS_H
#define SYLVORA_FRONTEND_RANKSETTINGS_H

#include "Communicator.h"
#include "reading/TemporaryCopy.h"

namespace sylvora::frontend {

// Checks that the version, the configuration file and the options of this rank are those of rank 0.
// Collective.
// Returns 0 at all ranks, or -1, after a message at those that differ.
[[nodiscard]] int CheckSameSettings(Communicator& ranks, const RereadableFile& file, int argc,
                                    char** argv);

// Waits until all ranks have come here. Returns 0, or -1 if a rank has left.
[[nodiscard]] int WaitForAll(Communicator& ranks);

// Whether a signal has arrived at any rank, which is then recorded at all of them, or a rank has
// left. Collective.
[[nodiscard]] bool IsStopWantedByAny(Communicator& ranks);

}  // namespace sylvora::frontend

#endif  // SYLVORA_FRONTEND_RANKSETTINGS_H

// What the programs sylvora and sylvora-mpi have in common: all but the start of MPI.
#ifndef SYLVORA_FRONTEND_PROGRAM_H
#define SYLVORA_FRONTEND_PROGRAM_H

#include "Communicator.h"

namespace sylvora::frontend {

enum ExitStatus { kDone = 0, kFailure = 1, kWrongUsage = 2 };

struct Program {
    const char* name;                      // as --version prints it
    Communicator* communicator = nullptr;  // of the ranks that train; null: one process
};

// Installs the signal handlers of the programs; call it once, first thing in main().
void PrepareSignals();

// Carries out a command line, NAME CFG [-option value]..., and returns the exit status: 0 for
// success; 1 for a failure, after a line on standard error that begins "ERROR: " and names the
// file, line or parameter, or a message of the library; 2 for wrong usage; 130 or 143 after SIGINT
// or SIGTERM. Throws nothing.
//
// All ranks of a training call it with the same command line.
int RunProgram(const Program& program, int argc, char** argv);

}  // namespace sylvora::frontend

#endif  // SYLVORA_FRONTEND_PROGRAM_H

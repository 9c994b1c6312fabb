// The command for several processes: mpirun -n RANKS sylvora-mpi CFG [-option value]...
//
// Each rank runs the command; rank 0 writes the files and prints. With one rank, the program is the
// same as sylvora. See docs/scale-out.md.
#include "Job.h"
#include "MpiCommunicator.h"
#include "Program.h"
#include "RankLink.h"
#include "StopSignals.h"

int main(int argc, char** argv) {
    sylvora::frontend::PrepareSignals();
    return sylvora::mpi::RunJob(argc, argv, [&](sylvora::mpi::RankLink& link) {
        sylvora::frontend::Program program = {"sylvora-mpi"};
        if (link.Size() == 1) return sylvora::frontend::RunProgram(program, argc, argv);
        if (link.Rank() != 0) sylvora::frontend::StopQuietly();
        sylvora::mpi::MpiCommunicator communicator(link);
        program.communicator = &communicator;
        return sylvora::frontend::RunProgram(program, argc, argv);
    });
}

// A program that runs as the ranks of an MPI job.
#ifndef SYLVORA_MPI_JOB_H
#define SYLVORA_MPI_JOB_H

#include <functional>

#include "RankLink.h"

namespace sylvora::mpi {

// Starts MPI, calls task(link), which returns an exit status and throws nothing, and ends MPI.
// Returns the exit status of the run; see RankLink::End. Only rank 0 writes to standard output and,
// while all goes well, to standard error.
int RunJob(int argc, char** argv, const std::function<int(RankLink&)>& task);

}  // namespace sylvora::mpi

#endif  // SYLVORA_MPI_JOB_H

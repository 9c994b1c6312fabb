// Time of a round by the ranks of an MPI job on one machine; see docs/scale-out.md.
//
//   mpirun -n RANKS mpi-rounds rows columns rounds [threads]
//
// The data and the training are those of rank-rounds. Each rank has only its own columns, and
// `threads` threads. Rank 0 prints its figures; its CPU time is its own.
#include <cstdlib>
#include <exception>
#include <iostream>
#include <vector>

#include "Job.h"
#include "MpiCommunicator.h"
#include "RankTraining.h"

namespace {

using namespace sylvora;

int TrainAsRank(mpi::RankLink& link, int argc, char** argv) {
    const int numRounds = std::atoi(argv[3]), numThread = argc == 5 ? std::atoi(argv[4]) : 1;
    if (numRounds < 2 || numThread < 1) return 2;
    const std::vector<int> ownerV =
        bench::OwnersInTurn(std::strtoul(argv[2], nullptr, 10), link.Size());
    const bench::Table table(std::strtoul(argv[1], nullptr, 10), ownerV, link.Rank());
    mpi::MpiCommunicator communicator(link);
    bench::TimedCommunicator timed(communicator);
    bench::RoundFigures figures;
    if (!bench::Train(table, numRounds, numThread, ownerV, &timed, figures)) return 1;
    std::cout << link.Size() << " ranks of " << numThread << " threads:";
    bench::Print(figures, true);
    std::cout << '\n';
    return 0;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 4 && argc != 5) {
        std::cerr << "usage: mpirun -n RANKS mpi-rounds rows columns rounds [threads]\n";
        return 2;
    }
    return mpi::RunJob(argc, argv, [&](mpi::RankLink& link) {
        try {
            return TrainAsRank(link, argc, argv);
        } catch (const std::exception& failure) {
            std::cerr << failure.what() << '\n';
            return 1;
        }
    });
}

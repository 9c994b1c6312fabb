// Starts and ends MPI; see Job.h.
#include "Job.h"

#include <mpi.h>
#include <unistd.h>

#include <csignal>
#include <exception>
#include <iostream>
#include <string_view>

#include "Recorder.h"

namespace sylvora::mpi {
namespace {

constexpr int kFailure = 1;
constexpr unsigned kStartSeconds = 60, kEndSeconds = 8;

// There are no signs of life before MPI has started, nor while it ends.
void GiveUp(int) {
    constexpr std::string_view kLine =
        "ERROR: the ranks did not start or end in time: one is stopped, or its machine is lost\n";
    static_cast<void>(!::write(STDERR_FILENO, kLine.data(), kLine.size()));
    ::_exit(kFailure);
}

// Starts or ends MPI, which waits for all ranks, within so many seconds.
template <typename Operation>
void InTime(unsigned seconds, Operation operation) {
    ::alarm(seconds);
    operation();
    ::alarm(0);
}

int RunRank(const std::function<int(RankLink&)>& task) {
    Recorder output(std::cout);
    Recorder errors(std::cerr);
    RankLink link(errors);
    if (link.Rank() != 0) {
        output.Hide();
        errors.Hide();
    }
    const int status = link.End(task(link));
    // mpirun sends it to the ranks that are left once one has ended with a status other than 0.
    std::signal(SIGTERM, SIG_IGN);
    return status;
}

}  // namespace

int RunJob(int argc, char** argv, const std::function<int(RankLink&)>& task) {
    int provided = MPI_THREAD_SINGLE;
    std::signal(SIGALRM, GiveUp);
    InTime(kStartSeconds, [&] { MPI_Init_thread(&argc, &argv, MPI_THREAD_SERIALIZED, &provided); });
    int status = kFailure;
    try {
        if (provided >= MPI_THREAD_SERIALIZED) {
            status = RunRank(task);
        } else {
            std::cerr << "ERROR: this MPI cannot be called by several threads\n";
        }
    } catch (const std::exception& error) {
        std::cerr << "ERROR: a rank cannot be started: " << error.what() << std::endl;
        MPI_Abort(MPI_COMM_WORLD, kFailure);
    }
    InTime(kEndSeconds, MPI_Finalize);
    return status;
}

}  // namespace sylvora::mpi

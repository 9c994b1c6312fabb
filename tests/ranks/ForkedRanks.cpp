// Runs the command by several ranks that are processes of this machine, without MPI, for tests:
//
//   forked_ranks RANKS[:RANK:EXCHANGE] CFG [-option value]...
//
// Rank RANK kills itself before its EXCHANGE-th exchange, from 0. Rank 0 prints, and its exit
// status is that of the program; 128 plus the signal if it was killed.
#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <system_error>
#include <vector>

#include "Program.h"
#include "SocketRank.h"
#include "StopSignals.h"

namespace sylvora::tests {
namespace {

struct Setting {
    int numRanks = 0;
    int killedRank = -1;
    int lastExchange = -1;
};

int RunRank(const Setting& setting, int rank, const Sockets& sockets, int argc, char** argv) {
    if (rank != 0) {
        const int nowhere = ::open("/dev/null", O_WRONLY | O_CLOEXEC);
        if (nowhere < 0 || ::dup2(nowhere, STDOUT_FILENO) < 0 ||
            ::dup2(nowhere, STDERR_FILENO) < 0) {
            return frontend::kFailure;
        }
        frontend::StopQuietly();
    }
    SocketRank communicator(sockets, rank, [&](int exchange) {
        if (rank == setting.killedRank && exchange == setting.lastExchange) {
            static_cast<void>(std::raise(SIGKILL));
        }
    });
    frontend::Program program = {"forked_ranks"};
    if (setting.numRanks > 1) program.communicator = &communicator;
    return frontend::RunProgram(program, argc, argv);
}

int StatusOf(pid_t process) {
    int status = 0;
    while (::waitpid(process, &status, 0) < 0) {
        if (errno != EINTR) throw std::system_error(errno, std::generic_category(), "waitpid");
    }
    return WIFSIGNALED(status) ? 128 + WTERMSIG(status) : WEXITSTATUS(status);
}

int RunAll(const Setting& setting, int argc, char** argv) {
    Sockets sockets(setting.numRanks);
    std::vector<pid_t> processV;
    for (int rank = 0; rank < setting.numRanks; ++rank) {
        const pid_t process = ::fork();
        if (process < 0) throw std::system_error(errno, std::generic_category(), "fork");
        if (process == 0) {
            sockets.KeepOnly(rank);
            std::exit(RunRank(setting, rank, sockets, argc, argv));
        }
        processV.push_back(process);
    }
    sockets.KeepOnly(-1);
    std::vector<int> statusV;
    for (const pid_t process : processV) statusV.push_back(StatusOf(process));
    return statusV[0];
}

}  // namespace
}  // namespace sylvora::tests

int main(int argc, char** argv) {
    sylvora::tests::Setting setting;
    if (argc < 2 ||
        std::sscanf(argv[1], "%d:%d:%d", &setting.numRanks, &setting.killedRank,
                    &setting.lastExchange) < 1 ||
        setting.numRanks < 1) {
        std::fprintf(stderr, "usage: forked_ranks RANKS[:RANK:EXCHANGE] CFG [-option value]...\n");
        return 2;
    }
    sylvora::frontend::PrepareSignals();
    return sylvora::tests::RunAll(setting, argc - 1, argv + 1);
}

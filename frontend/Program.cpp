// Reads the settings, runs the mode and determines the exit status.
#include "Program.h"

#include <cerrno>
#include <csignal>
#include <cstring>
#include <exception>
#include <iostream>
#include <new>
#include <string>
#include <vector>

#include "ConfigChecks.h"
#include "ConfigHints.h"
#include "Help.h"
#include "Modes.h"
#include "Paths.h"
#include "RankSettings.h"
#include "StopSignals.h"
#include "god/Report.h"
#include "reading/TemporaryCopy.h"

namespace sylvora::frontend {
namespace {

int RefuseUsage(const Program& program, const std::string& complaint) {
    Warn("ERROR: ", complaint, "\n", UsageText(program.name));
    return kWrongUsage;
}

int RunMode(Command& command) {
    const std::string& mode = command.cfg.mode;
    if (mode.empty() || mode == "train") return Train(command);
    if (command.ranks != nullptr) {
        return Fail("ERROR: mode ", mode, ": needs one process, not ", command.ranks->Size(),
                    " ranks; run it with sylvora\n");
    }
    if (mode == "predict") return Predict(command);
    return Analyze(command);
}

bool IsMode(const std::string& mode) {
    return mode.empty() || mode == "train" || mode == "predict" || mode == "analyze";
}

// Reads the configuration file and the options with the library, then applies the command's own,
// stricter checks. Returns 0, or -1 after a message.
int ReadSettings(const RereadableFile& file, int argc, char** argv, CheckCfgCLS& cfg) {
    if (!file.Complaint().empty()) return Fail("ERROR: ", argv[1], ": ", file.Complaint(), "\n");
    std::string path = file.Path();
    std::vector<char*> argumentV(argv, argv + argc + 1);
    argumentV[1] = path.data();
    const int status = cfg.ReadCfg(argc, argumentV.data());
    // Checked even if the library failed: wrong line ends are often the cause of its error.
    if (CheckLineEnds(file, argv[1]) != 0 || status != 0) return -1;
    if (CheckIntegers(file, argv[1]) != 0) return -1;
    return CheckIntegerOptions(argc, argv);
}

int RunConfiguration(const Program& program, int argc, char** argv) {
    Command command;
    command.ranks = program.communicator;
    command.fileCfg = argv[1];
    const NamedPath input = {"configuration file", command.fileCfg};
    if (RefuseEndless(input) != 0 || RefuseUnshared(command, input) != 0) return kFailure;
    const RereadableFile file(command.fileCfg);
    if (ReadSettings(file, argc, argv, command.cfg) != 0) return kFailure;
    if (command.ranks != nullptr && CheckSameSettings(*command.ranks, file, argc, argv) != 0) {
        return kFailure;
    }
    if (!IsMode(command.cfg.mode)) {
        return RefuseUsage(program, "unknown mode \"" + command.cfg.mode +
                                        "\": expected train, predict or analyze");
    }
    WarnOfUnknownKeys(file, command.fileCfg);
    return RunMode(command) == 0 ? kDone : kFailure;
}

int Dispatch(const Program& program, int argc, char** argv) {
    if (argc < 2) return RefuseUsage(program, "no configuration file given");
    const std::string first = argv[1];
    if (first == "--help") {
        Print(HelpText(program.name));
    } else if (first == "--help=markdown") {
        Print(ParametersDocument());
    } else if (first == "--version") {
        Print(program.name, " ", SYLVORA_VERSION, "\n");
    } else if (first.rfind("--", 0) == 0) {
        return RefuseUsage(program, "unknown option " + first);
    } else {
        return RunConfiguration(program, argc, argv);
    }
    return kDone;
}

// Turns success into failure if standard output could not be written, so that a full disk does not
// go unnoticed.
int Finish(int status) {
    errno = 0;
    std::cout.flush();
    if (std::cout.good() || status != kDone) return status;
    const int error =
        errno != 0 ? errno : EIO;  // the failed write was earlier, and its errno is lost
    Warn("ERROR: standard output: cannot be written: ", std::strerror(error), "\n");
    return kFailure;
}

// The exit status after a recorded signal, even if it arrived too late to stop anything.
int StatusOf(int status) {
    if (!IsStopWanted()) return status;
    if (status == kDone) Warn("Notice: Stopped by a signal, after all work was done!\n");
    return StopStatus();
}

}  // namespace

void PrepareSignals() {
    CatchStopSignals();
    // Makes exceeding the file size limit (ulimit -f) a write error, like a full disk.
    std::signal(SIGXFSZ, SIG_IGN);
    // Makes a reader that closes its end (of a FIFO, a pipe) a write error too.
    std::signal(SIGPIPE, SIG_IGN);
}

int RunProgram(const Program& program, int argc, char** argv) {
    try {
        return StatusOf(Finish(Dispatch(program, argc, argv)));
    } catch (const std::bad_alloc&) {
        std::cerr << "ERROR: out of memory\n";
    } catch (const std::exception& error) {
        std::cerr << "ERROR: " << error.what() << "\n";
    }
    return kFailure;
}

}  // namespace sylvora::frontend

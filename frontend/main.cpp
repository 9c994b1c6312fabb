// The command: sylvora CFG [-option value]...
//
// Exit status: 0 for success; 1 for a failure, after a line on standard error that begins "ERROR: "
// and names the file, line or parameter, or a message of the library; 2 for wrong usage; 130 or 143
// after SIGINT or SIGTERM.
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
#include "StopSignals.h"
#include "god/Report.h"
#include "reading/TemporaryCopy.h"

namespace {

using sylvora::Fail;
using sylvora::Print;
using sylvora::Warn;
using sylvora::frontend::Command;
using sylvora::frontend::RereadableFile;

enum ExitStatus { kDone = 0, kFailure = 1, kWrongUsage = 2 };

int RefuseUsage(const std::string& complaint) {
    Warn("ERROR: ", complaint, "\n", sylvora::frontend::UsageText());
    return kWrongUsage;
}

int RunMode(Command& command) {
    const std::string& mode = command.cfg.mode;
    if (mode.empty() || mode == "train") return sylvora::frontend::Train(command);
    if (mode == "predict") return sylvora::frontend::Predict(command);
    return sylvora::frontend::Analyze(command);
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
    if (sylvora::frontend::CheckLineEnds(file, argv[1]) != 0 || status != 0) return -1;
    if (sylvora::frontend::CheckIntegers(file, argv[1]) != 0) return -1;
    return sylvora::frontend::CheckIntegerOptions(argc, argv);
}

int RunConfiguration(int argc, char** argv) {
    Command command;
    command.fileCfg = argv[1];
    if (sylvora::frontend::RefuseEndless({"configuration file", command.fileCfg}) != 0) {
        return kFailure;
    }
    const RereadableFile file(command.fileCfg);
    if (ReadSettings(file, argc, argv, command.cfg) != 0) return kFailure;
    if (!IsMode(command.cfg.mode)) {
        return RefuseUsage("unknown mode \"" + command.cfg.mode +
                           "\": expected train, predict or analyze");
    }
    sylvora::frontend::WarnOfUnknownKeys(file, command.fileCfg);
    return RunMode(command) == 0 ? kDone : kFailure;
}

int Dispatch(int argc, char** argv) {
    if (argc < 2) return RefuseUsage("no configuration file given");
    const std::string first = argv[1];
    if (first == "--help") {
        Print(sylvora::frontend::HelpText());
    } else if (first == "--help=markdown") {
        Print(sylvora::frontend::ParametersDocument());
    } else if (first == "--version") {
        Print("sylvora ", SYLVORA_VERSION, "\n");
    } else if (first.rfind("--", 0) == 0) {
        return RefuseUsage("unknown option " + first);
    } else {
        return RunConfiguration(argc, argv);
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
    if (!sylvora::frontend::IsStopWanted()) return status;
    if (status == kDone) Warn("Notice: Stopped by a signal, after all work was done!\n");
    return sylvora::frontend::StopStatus();
}

}  // namespace

int main(int argc, char** argv) {
    sylvora::frontend::CatchStopSignals();
    // Makes exceeding the file size limit (ulimit -f) a write error, like a full disk.
    std::signal(SIGXFSZ, SIG_IGN);
    // Makes a reader that closes its end (of a FIFO, a pipe) a write error too.
    std::signal(SIGPIPE, SIG_IGN);
    try {
        return StatusOf(Finish(Dispatch(argc, argv)));
    } catch (const std::bad_alloc&) {
        std::cerr << "ERROR: out of memory\n";
    } catch (const std::exception& error) {
        std::cerr << "ERROR: " << error.what() << "\n";
    }
    return kFailure;
}

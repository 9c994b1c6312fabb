// Path checks: required files, endless devices, outputs that collide or cannot be written.
#include "Paths.h"

#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <system_error>

#include "Output/WholeFile.h"
#include "god/Report.h"

namespace sylvora::frontend {
namespace {

namespace fs = std::filesystem;

// True if both paths name the same file, which need not exist yet. Several outputs may share a file
// that is not regular, such as /dev/null; the answer for those is false.
bool IsSameFile(const std::string& a, const std::string& b) {
    std::error_code failed;
    if (fs::exists(a, failed) && !fs::is_regular_file(a, failed)) return false;
    if (fs::equivalent(a, b, failed)) return true;
    const fs::path canonicalA = fs::weakly_canonical(fs::absolute(a), failed);
    if (failed) return false;
    const fs::path canonicalB = fs::weakly_canonical(fs::absolute(b), failed);
    return !failed && canonicalA == canonicalB;
}

// True for a character device that may never end, such as /dev/zero. /dev/null and the device
// behind standard input (a terminal, for example) are allowed.
bool IsEndless(const std::string& path) {
    struct stat file = {};
    struct stat other = {};
    if (::stat(path.c_str(), &file) != 0 || !S_ISCHR(file.st_mode)) return false;
    if (::stat("/dev/null", &other) == 0 && file.st_rdev == other.st_rdev) return false;
    return ::fstat(STDIN_FILENO, &other) != 0 || file.st_rdev != other.st_rdev;
}

int CheckOutput(const NamedPath& output, const std::vector<NamedPath>& otherV) {
    for (const NamedPath& other : otherV) {
        if (other.path.empty() || other.parameter == output.parameter) continue;
        if (IsSameFile(output.path, other.path)) {
            return Fail("ERROR: ", output.parameter, " ", output.path, ": is the same file as ",
                        other.parameter, ", which it would overwrite\n");
        }
    }
    const std::string reason = WhyNotWritable(output.path);
    if (reason.empty()) return 0;
    return Fail("ERROR: ", output.parameter, " ", output.path, ": cannot be written: ", reason,
                "\n");
}

}  // namespace

int RefuseEndless(const NamedPath& input) {
    if (!IsEndless(input.path)) return 0;
    return Fail("ERROR: ", input.parameter, " ", input.path, ": is a device, not a file\n");
}

int RefuseUnshared(const Command& command, const NamedPath& input) {
    struct stat file = {};
    struct stat null = {};
    if (command.ranks == nullptr || ::stat(input.path.c_str(), &file) != 0) return 0;
    if (S_ISREG(file.st_mode) || S_ISDIR(file.st_mode)) return 0;
    if (::stat("/dev/null", &null) == 0 && file.st_rdev == null.st_rdev) return 0;
    return Fail("ERROR: ", input.parameter, " ", input.path,
                ": is no regular file, so several ranks cannot read it; copy it to a file\n");
}

int RequirePath(const NamedPath& wanted, const std::string& purpose) {
    if (!wanted.path.empty()) return 0;
    return Fail("ERROR: ", wanted.parameter, " is not set: name ", purpose, "\n");
}

int CheckFiles(const Command& command, const std::vector<NamedPath>& outputV) {
    const CheckCfgCLS& cfg = command.cfg;
    std::vector<NamedPath> otherV = {{"fileTrain", cfg.fileTrain},
                                     {"fileTest", cfg.fileTest},
                                     {"fileDev", cfg.fileDev},
                                     {"labelTran", cfg.fileTran}};
    for (const NamedPath& input : otherV) {
        if (RefuseEndless(input) != 0 || RefuseUnshared(command, input) != 0) return -1;
    }
    otherV.push_back({"the configuration file", command.fileCfg});
    otherV.push_back({"fileModel", cfg.fileModel});
    for (const NamedPath& output : outputV) {
        if (output.path.empty()) continue;
        if (CheckOutput(output, otherV) != 0) return -1;
        otherV.push_back(output);
    }
    return 0;
}

}  // namespace sylvora::frontend

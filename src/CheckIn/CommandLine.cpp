// The command line: a configuration file, then option-value pairs that override it.
#include <string>

#include "../CheckIn.h"
#include "../god/Report.h"
#include "Parameters.h"

namespace {

using sylvora::Fail;
using sylvora::ParameterRow;
using sylvora::Print;

const ParameterRow* FindOption(const std::string& argument) {
    if (argument.empty() || argument[0] != '-') return nullptr;
    const ParameterRow* row = sylvora::FindParameter(argument.substr(1));
    return row != nullptr && row->fOption ? row : nullptr;
}

int ApplyOption(const std::string& option, const std::string& value, CheckCfgCLS& cfg) {
    const ParameterRow* row = FindOption(option);
    if (row == nullptr) {
        return Fail("ERROR: Unrecognized command line argument: ", option, "!\n");
    }
    if (!sylvora::AssignParameter(*row, value, cfg)) {
        return Fail("ERROR: ", option, row->optionError);
    }
    if (cfg.fPrint) Print("read: ", option, "\t", value, "\n");
    return 0;
}

}  // namespace

int CheckCfgCLS::ReadCfg(int argc, char** argv) {
    return sylvora::Guarded([&] {
        if (argc < 2 || argv[1] == nullptr) {
            return Fail("ERROR: No config file: give its name as the first argument!\n");
        }
        if (ReadCfgFile(argv[1]) != 0) return Fail("ERROR: Failed to read config file!\n");
        if (fPrint) Print("Checking command line ...\n");
        for (int i = 2; i < argc; i += 2) {
            if (i + 1 >= argc || argv[i + 1] == nullptr) {
                return Fail("ERROR: No input for arg: ", argv[i], "\n");
            }
            if (ApplyOption(argv[i], argv[i + 1], *this) != 0) return -1;
        }
        return 0;
    });
}

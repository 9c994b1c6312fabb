// The table of parameters. The readers of the configuration file and the command line, the help
// text and docs/parameters.md all use it, so a parameter is described only once.
#ifndef SYLVORA_CHECKIN_PARAMETERS_H
#define SYLVORA_CHECKIN_PARAMETERS_H

#include <string>
#include <variant>
#include <vector>

#include "../CheckIn.h"

namespace sylvora {

typedef std::variant<std::string CheckCfgCLS::*, bool CheckCfgCLS::*, int CheckCfgCLS::*,
                     double CheckCfgCLS::*>
    ParameterMember;

struct ParameterRow {
    const char* name;          // key in the configuration file; the option is "-" + name
    ParameterMember member;    // where the value is stored; its type selects the parser
    bool CheckCfgCLS::*given;  // flag to set when a value is given, or null
    bool fOption;              // may also be set on the command line
    bool fFileName;            // the value is a file name
    const char* fileError;     // end of the message about an invalid number in the file
    const char* optionError;   // the same, on the command line
    const char* range;         // accepted values, in words
    const char* meaning;       // what it does, in one sentence
};

// All parameters, in the order of the help text. The table is built once and never changes; safe to
// call from any thread.
const std::vector<ParameterRow>& ParameterTable();

// The row of the parameter `name`, or null.
const ParameterRow* FindParameter(const std::string& name);

// Parses `text` into the row's member and sets its `given` flag. Returns false, and changes
// nothing, if `text` is not a value of the member's type.
[[nodiscard]] bool AssignParameter(const ParameterRow& row, const std::string& text,
                                   CheckCfgCLS& cfg);

// The value of the row's member in `cfg`, as text ("true", "0.09", ...).
std::string ParameterValue(const ParameterRow& row, const CheckCfgCLS& cfg);

}  // namespace sylvora

#endif  // SYLVORA_CHECKIN_PARAMETERS_H

// The one table of parameters: the configuration file, the command line, the help text and
// docs/parameters.md all come from it.
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
    const char* name;             // key in the configuration file; the option is "-" and the name
    ParameterMember member;       // where the value goes; its type decides how it is parsed
    bool CheckCfgCLS::*given;     // a flag that records that a value was given, or null
    bool fOption;                 // settable on the command line too
    bool fFileName;               // names a file
    const char* fileComplaint;    // end of the message about a bad number in the file
    const char* optionComplaint;  // and on the command line
    const char* range;            // accepted values, in words
    const char* meaning;          // one sentence
};

// All parameters, in the order in which help and documentation show them.
const std::vector<ParameterRow>& ParameterTable();

// The row of a key, or null.
const ParameterRow* FindParameter(const std::string& name);

// Parses `text` into the row's member and sets its flag. False, with nothing changed, when the
// text is not a value of the member's type.
[[nodiscard]] bool AssignParameter(const ParameterRow& row, const std::string& text,
                                   CheckCfgCLS& cfg);

// The value that the row's member has in `cfg`, as text ("true", "0.09", ...).
std::string ParameterValue(const ParameterRow& row, const CheckCfgCLS& cfg);

}  // namespace sylvora

#endif  // SYLVORA_CHECKIN_PARAMETERS_H

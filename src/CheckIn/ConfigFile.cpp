// The configuration file.
//
//   file    = { line LF }
//   line    = ""  |  any one character                 ignored
//           | "#" ...                                  comment; "#" must be in the first column
//           | blanks key white "=" white value [...]   setting; text after the value is ignored
//
// A line has at most 4095 characters.
#include <fstream>
#include <locale>
#include <sstream>
#include <string>

#include "../CheckIn.h"
#include "../god/Report.h"
#include "../god/StreamReading.h"
#include "Parameters.h"

namespace {

using sylvora::Fail;
using sylvora::ParameterRow;
using sylvora::Print;

constexpr size_t kLongestLine = 4095;

// The line without leading blanks, or "" if it is to be ignored.
std::string Setting(const std::string& line) {
    if (line.size() <= 1 || line[0] == '#') return "";
    const size_t begin = line.find_first_not_of(" \t");
    if (begin == std::string::npos || line.size() - begin <= 1) return "";
    return line.substr(begin);
}

int RefuseValue(const ParameterRow& row) {
    if (std::holds_alternative<bool CheckCfgCLS::*>(row.member)) {
        return Fail("Error: value is illegal: ", row.name, "!\n");
    }
    return Fail("ERROR: ", row.name, row.fileError);
}

int ApplySetting(const std::string& key, const std::string& value, CheckCfgCLS& cfg) {
    const ParameterRow* row = sylvora::FindParameter(key);
    if (row == nullptr) return 0;
    if (!sylvora::AssignParameter(*row, value, cfg)) return RefuseValue(*row);
    if (cfg.fPrint && key != "fPrint") {
        Print("read: ", key, row->fFileName ? "\n\t" : "\t", value, "\n");
    }
    return 0;
}

int ReadLines(std::istream& in, CheckCfgCLS& cfg) {
    std::string line;
    for (int numLine = 1; sylvora::ReadLine(in, line); ++numLine) {
        const std::string setting = Setting(line);
        if (setting.empty()) continue;
        if (line.size() > kLongestLine) {
            return Fail("ERROR: wrong config line format at ", numLine, " : more than ",
                        kLongestLine, " characters\n");
        }
        std::istringstream tokens(setting);
        tokens.imbue(std::locale::classic());
        tokens.exceptions(std::ios::badbit);  // otherwise lack of memory would look like no value
        std::string key, separator, value;
        tokens >> key >> separator >> value;
        if (value.empty() || separator != "=") {
            return Fail("ERROR: wrong config line format at ", numLine, " : ", setting, "\n");
        }
        if (ApplySetting(key, value, cfg) != 0) return -1;
    }
    return 0;
}

}  // namespace

int CheckCfgCLS::ReadCfgFile(std::string file) {
    return sylvora::Guarded([&] {
        std::ifstream in(file);
        // A directory can be opened but not read.
        if (!in || (in.peek(), in.bad())) return Fail("Error: can not open ", file, "\n");
        in.clear();
        if (ReadLines(in, *this) != 0) return -1;
        return in.bad() ? Fail("Error: can not read ", file, " to its end\n") : 0;
    });
}

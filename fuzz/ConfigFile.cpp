// Configuration files: reading one must equal reading its lines one by one. Then validation, and
// the command's own checks.
#include <map>
#include <sstream>

#include "../frontend/ConfigChecks.h"
#include "../frontend/ConfigHints.h"
#include "Settings.h"

using namespace sylvora;
using namespace sylvora::fuzz;

namespace {

// Reads each line as a file of its own, up to the first one that is refused.
int ReadByLine(const std::string& text, CheckCfgCLS& cfg) {
    static tests::MemoryFile file;
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);) {
        if (cfg.ReadCfgFile(file.Fill(line)) != 0) return -1;
    }
    return 0;
}

// True if a line has text on both sides of a carriage return.
bool HasInnerReturn(const std::string& text) {
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);) {
        const std::string blanks = " \t\n\v\f\r";
        const size_t first = line.find_first_not_of(blanks);
        if (first == std::string::npos) continue;
        const size_t end = line.find_last_not_of(blanks);
        if (line.substr(first, end - first).find('\r') != std::string::npos) return true;
    }
    return false;
}

// An integer's text in the form in which the library prints it.
std::string Printed(const std::string& value) {
    const size_t sign = value.find_first_of("+-") == 0 ? 1 : 0;
    const size_t digits = value.find_first_not_of('0', sign);
    if (digits == std::string::npos) return "0";
    return (value[0] == '-' ? "-" : "") + value.substr(digits);
}

// True if each integer parameter has the value that its last setting says.
bool HasIntegersAsWritten(const std::string& text, const CheckCfgCLS& cfg) {
    std::istringstream lines(text);
    std::map<std::string, std::string> lastM;
    for (std::string line; std::getline(lines, line);) {
        const frontend::Setting setting = frontend::SettingOf(line);
        lastM[setting.key] = setting.value;
    }
    for (const auto& [key, value] : lastM) {
        const ParameterRow* const row = FindParameter(key);
        if (row == nullptr || !std::holds_alternative<int CheckCfgCLS::*>(row->member)) continue;
        if (Printed(value) != ParameterValue(*row, cfg)) return false;
    }
    return true;
}

// The command's checks of a file that the library accepts.
void CheckCommand(const std::string& path, const std::string& text, const CheckCfgCLS& cfg,
                  tests::Messages& messages) {
    const frontend::RereadableFile file(path);
    frontend::WarnOfUnknownKeys(file, "cfg");
    messages.Take();
    const bool fEnds = frontend::CheckLineEnds(file, "cfg") == 0;
    Demand(fEnds == messages.Take().empty() && fEnds != HasInnerReturn(text), "line ends");
    const bool fIntegers = frontend::CheckIntegers(file, "cfg") == 0;
    Demand(fIntegers == messages.Take().empty(), "a refusal has a message");
    Demand(!fIntegers || HasIntegersAsWritten(text, cfg), "an integer is read as another");
}

// A message without the line number in it.
std::string WithoutLine(const std::string& said) {
    const std::string head = "ERROR: wrong config line format at ";
    return said.rfind(head, 0) == 0 ? head + said.substr(said.find(" : ", head.size())) : said;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static Counter counter;
    static tests::Messages messages;
    static tests::MemoryFile file;
    const std::string text = TextOf(data, size);
    const std::string path = file.Fill(text);
    CheckCfgCLS cfg, byLine;
    const int status = cfg.ReadCfgFile(path);
    const std::string said = messages.Take();
    counter.Add(status, said);
    Demand(ReadByLine(text, byLine) == status, "line by line: another status, with " + said);
    Demand(WithoutLine(messages.Take()) == WithoutLine(said), "line by line: not " + said);
    Demand(ValuesOf(cfg) == ValuesOf(byLine), "line by line: other values");
    if (status == 0) CheckCommand(path, text, cfg, messages);
    CheckValidation(cfg, messages);
    return 0;
}

// A configuration file, which must come to the same as its lines one by one; then validation, and
// the command's hints.
#include <sstream>

#include "../frontend/ConfigHints.h"
#include "Settings.h"

using namespace sylvora;
using namespace sylvora::fuzz;

namespace {

// Reads the lines as files of their own, as far as they are taken.
int ReadByLine(const std::string& text, CheckCfgCLS& cfg) {
    static tests::MemoryFile file;
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);) {
        if (cfg.ReadCfgFile(file.Fill(line)) != 0) return -1;
    }
    return 0;
}

// A message less the number of the line that it names.
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
    CheckValidation(cfg, messages);
    frontend::WarnOfUnknownKeys(path);
    messages.Take();
    return 0;
}

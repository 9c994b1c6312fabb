// Command lines: reading one must equal reading its options one by one, and each option must equal
// the same line in a configuration file. Arguments are separated by NUL.
#include <vector>

#include "Settings.h"

using namespace sylvora;
using namespace sylvora::fuzz;

namespace {

std::vector<std::string> Split(const std::string& text) {
    std::vector<std::string> partV(1);
    for (const char c : text) {
        if (c == '\0') {
            partV.emplace_back();
        } else {
            partV.back() += c;
        }
    }
    return partV;
}

int ReadArguments(std::vector<std::string> argumentV, const std::string& path, CheckCfgCLS& cfg) {
    argumentV.insert(argumentV.begin(), {"sylvora", path});
    std::vector<char*> pointerV;
    for (std::string& argument : argumentV) pointerV.push_back(argument.data());
    pointerV.push_back(nullptr);
    return cfg.ReadCfg(static_cast<int>(argumentV.size()), pointerV.data());
}

// False for values that a configuration file cannot express.
bool IsWord(const std::string& value) {
    return !value.empty() && value.size() < 4000 &&
           value.find_first_of(" \t\n\v\f\r") == std::string::npos;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static Counter counter;
    static tests::Messages messages;
    static tests::MemoryFile file, line;
    const std::string empty = file.Fill("");
    const std::vector<std::string> argumentV = Split(TextOf(data, size));
    CheckCfgCLS cfg, byOption;
    const int status = ReadArguments(argumentV, empty, cfg);
    const std::string said = messages.Take();
    counter.Add(status, said);
    for (size_t i = 0; i < argumentV.size(); i += 2) {
        const size_t end = std::min(i + 2, argumentV.size());
        CheckCfgCLS byLine = byOption;
        const int taken = ReadArguments(
            {argumentV.begin() + static_cast<long>(i), argumentV.begin() + static_cast<long>(end)},
            empty, byOption);
        if (taken != 0) break;
        if (!IsWord(argumentV[i + 1])) continue;
        const std::string setting = argumentV[i].substr(1) + " = " + argumentV[i + 1];
        Demand(byLine.ReadCfgFile(line.Fill(setting)) == 0, "as a line: refused, " + setting);
        Demand(ValuesOf(byLine) == ValuesOf(byOption), "as a line: other values, " + setting);
    }
    Demand(messages.Take() == said, "one by one: not " + said);
    Demand(ValuesOf(cfg) == ValuesOf(byOption), "one by one: other values");
    CheckValidation(cfg, messages);
    return 0;
}

// Implementation of the configuration checks, which read each file a second time, line by line.
#include "ConfigChecks.h"

#include <algorithm>
#include <charconv>
#include <fstream>
#include <limits>
#include <locale>
#include <sstream>
#include <string_view>
#include <system_error>

#include "CheckIn/Parameters.h"
#include "god/NumberParsing.h"
#include "god/Report.h"
#include "god/StreamReading.h"

namespace sylvora::frontend {
namespace {

// Calls check(line, number) for each line, numbered from 1, until a call fails. Returns 0 for a
// file that cannot be read a second time.
template <typename Check>
int ForEachLine(const RereadableFile& file, Check check) {
    if (!file.CanBeRead()) return 0;
    std::ifstream in(file.Path());
    std::string line;
    for (long number = 1; ReadLine(in, line); ++number) {
        if (check(line, number) != 0) return -1;
    }
    return 0;
}

// True if the text is an optional sign followed by digits, and fits into an int.
bool IsInt(std::string_view text) {
    if (text.substr(0, 1) == "+") text.remove_prefix(1);
    int value = 0;
    const char* const end = text.data() + text.size();
    const auto read = std::from_chars(text.data(), end, value);
    return read.ec == std::errc() && read.ptr == end;
}

// `place` says in the message where the value is; it ends with the parameter's name.
int CheckInteger(const std::string& key, const std::string& value, const std::string& place) {
    const ParameterRow* const row = FindParameter(key);
    if (row == nullptr || !std::holds_alternative<int CheckCfgCLS::*>(row->member)) return 0;
    if (IsInt(value)) return 0;
    int number = 0;
    static_cast<void>(ParseNumber(value, number));
    return Fail("ERROR: ", place, " \"", value, "\" would be read as ", number,
                ": write an integer in digits, from ", std::numeric_limits<int>::min(), " to ",
                std::numeric_limits<int>::max(), "\n");
}

}  // namespace

Setting SettingOf(const std::string& line) {
    if (line.empty() || line[0] == '#') return {};
    std::istringstream tokens(line);
    tokens.imbue(std::locale::classic());
    tokens.exceptions(
        std::ios::badbit);  // otherwise running out of memory would look like a missing value
    std::string separator;
    Setting setting;
    tokens >> setting.key >> separator >> setting.value;
    return separator == "=" ? setting : Setting{};
}

int CheckLineEnds(const RereadableFile& file, const std::string& name) {
    return ForEachLine(file, [&](const std::string& line, long number) {
        constexpr char kBlanks[] = " \t\n\v\f\r";
        const size_t end = line.find('\r', std::min(line.find_first_not_of(kBlanks), line.size()));
        if (line.find_first_not_of(kBlanks, end) == std::string::npos) return 0;
        return Fail("ERROR: ", name, ", line ", number,
                    ": has text after a carriage return: lines end with LF or CR LF, not with CR "
                    "alone\n");
    });
}

int CheckIntegers(const RereadableFile& fileCfg, const std::string& name) {
    return ForEachLine(fileCfg, [&](const std::string& line, long number) {
        const Setting setting = SettingOf(line);
        return CheckInteger(setting.key, setting.value,
                            Text(name, ", line ", number, ": ", setting.key));
    });
}

int CheckIntegerOptions(int argc, char** argv) {
    for (int i = 2; i + 1 < argc; i += 2) {
        const std::string option = argv[i];
        if (CheckInteger(option.substr(1), argv[i + 1], option) != 0) return -1;
    }
    return 0;
}

}  // namespace sylvora::frontend

#include "ConfigHints.h"

#include <algorithm>
#include <cctype>
#include <filesystem>
#include <fstream>
#include <numeric>
#include <set>
#include <sstream>
#include <system_error>
#include <vector>

#include "CheckIn/Parameters.h"
#include "god/Report.h"

namespace sylvora::frontend {
namespace {

bool SameLetter(char a, char b) {
    return std::tolower(static_cast<unsigned char>(a)) ==
           std::tolower(static_cast<unsigned char>(b));
}

// Levenshtein's edit distance (1965), by rows, upper and lower case being equal.
size_t EditDistance(const std::string& a, const std::string& b) {
    std::vector<size_t> row(b.size() + 1);
    std::iota(row.begin(), row.end(), size_t{0});
    for (size_t i = 0; i < a.size(); ++i) {
        size_t diagonal = row[0];
        row[0] = i + 1;
        for (size_t j = 0; j < b.size(); ++j) {
            const size_t replaced = diagonal + (SameLetter(a[i], b[j]) ? 0 : 1);
            diagonal = row[j + 1];
            row[j + 1] = std::min({replaced, diagonal + 1, row[j] + 1});
        }
    }
    return row.back();
}

std::string NearestKey(const std::string& key) {
    const auto& table = ParameterTable();
    const auto nearer = [&key](const ParameterRow& a, const ParameterRow& b) {
        return EditDistance(key, a.name) < EditDistance(key, b.name);
    };
    return std::min_element(table.begin(), table.end(), nearer)->name;
}

// The key of a line that the library accepts; empty where it skips the line.
std::string KeyOf(const std::string& line) {
    if (line.empty() || line[0] == '#') return "";
    std::string key, separator;
    std::istringstream(line) >> key >> separator;
    return separator == "=" ? key : "";
}

}  // namespace

void WarnOfUnknownKeys(const std::string& fileCfg) {
    std::error_code unknown;
    if (!std::filesystem::is_regular_file(fileCfg, unknown)) return;
    std::ifstream in(fileCfg);
    std::set<std::string> warnedS;
    std::string line;
    for (int numLine = 1; std::getline(in, line); ++numLine) {
        const std::string key = KeyOf(line);
        if (key.empty() || FindParameter(key) != nullptr || !warnedS.insert(key).second) continue;
        Warn("WARNING: ", fileCfg, ", line ", numLine, ": no parameter is named \"", key,
             "\", the line is ignored; the nearest name is \"", NearestKey(key), "\"\n");
    }
}

}  // namespace sylvora::frontend

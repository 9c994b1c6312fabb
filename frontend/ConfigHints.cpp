// Finds unknown keys in a configuration file, and for each the known key nearest in spelling.
#include "ConfigHints.h"

#include <algorithm>
#include <cctype>
#include <fstream>
#include <numeric>
#include <set>
#include <vector>

#include "CheckIn/Parameters.h"
#include "ConfigChecks.h"
#include "god/Report.h"

namespace sylvora::frontend {
namespace {

bool SameLetter(char a, char b) {
    return std::tolower(static_cast<unsigned char>(a)) ==
           std::tolower(static_cast<unsigned char>(b));
}

// Levenshtein's edit distance (1965), ignoring case. Keeps one row of the table: before step i,
// row[j] is the distance between the first i letters of a and the first j letters of b.
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

}  // namespace

void WarnOfUnknownKeys(const RereadableFile& fileCfg, const std::string& name) {
    if (!fileCfg.CanBeRead()) return;
    std::ifstream in(fileCfg.Path());
    std::set<std::string> warnedS;
    std::string line;
    for (int numLine = 1; std::getline(in, line); ++numLine) {
        const std::string key = SettingOf(line).key;
        if (key.empty() || FindParameter(key) != nullptr || !warnedS.insert(key).second) continue;
        Warn("WARNING: ", name, ", line ", numLine, ": no parameter is named \"", key,
             "\", the line is ignored; the nearest name is \"", NearestKey(key), "\"\n");
    }
}

}  // namespace sylvora::frontend

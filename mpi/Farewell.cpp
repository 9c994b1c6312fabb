// Composes the messages of the ranks that print nothing themselves.
#include "Farewell.h"

#include <algorithm>
#include <cstddef>
#include <set>
#include <sstream>
#include <string_view>
#include <utility>

namespace sylvora::mpi {
namespace {

std::vector<std::string> LinesOf(const std::string& text) {
    std::vector<std::string> lineV;
    std::istringstream in(text);
    for (std::string line; std::getline(in, line);) lineV.push_back(line);
    return lineV;
}

// "rank 2", "ranks 1, 2 and 3", "ranks 1, 2, 3, 4 and 96 more".
std::string NamesOf(const std::vector<std::size_t>& rankV) {
    constexpr std::size_t kMostNamed = 5;
    const std::size_t numNamed = rankV.size() <= kMostNamed ? rankV.size() : kMostNamed - 1;
    std::string names = rankV.size() == 1 ? "rank " : "ranks ";
    for (std::size_t i = 0; i < numNamed; ++i) {
        const bool fLast = i + 1 == rankV.size();
        names += i == 0 ? "" : fLast ? " and " : ", ";
        names += std::to_string(rankV[i]);
    }
    if (numNamed < rankV.size()) {
        names += " and " + std::to_string(rankV.size() - numNamed) + " more";
    }
    return names;
}

std::string Named(const std::string& line, const std::string& names) {
    for (const std::string_view head : {"ERROR: ", "WARNING: ", "Notice: "}) {
        if (line.compare(0, head.size(), head) == 0) {
            return std::string(head) + names + ": " + line.substr(head.size());
        }
    }
    return names + ": " + line;
}

}  // namespace

void Farewell::SetMessages(const std::string& text) {
    std::size_t begin = 0;
    if (text.size() >= sizeof messages) {
        begin = text.find('\n', text.size() - sizeof messages) + 1;
        if (begin == 0 || begin == text.size()) begin = text.size() - sizeof messages + 1;
    }
    messages[text.copy(messages, sizeof messages - 1, begin)] = '\0';
}

std::string LinesOfOthers(const std::vector<Farewell>& farewellV, const std::string& shown) {
    const std::vector<std::string> shownV = LinesOf(shown);
    const std::set<std::string> shownS(shownV.begin(), shownV.end());
    std::vector<std::pair<std::string, std::vector<std::size_t>>> lineV;
    for (std::size_t rank = 0; rank < farewellV.size(); ++rank) {
        for (const std::string& line : LinesOf(farewellV[rank].messages)) {
            if (line.empty() || shownS.count(line) > 0) continue;
            auto found = std::find_if(lineV.begin(), lineV.end(),
                                      [&](const auto& known) { return known.first == line; });
            if (found == lineV.end()) found = lineV.insert(found, {line, {}});
            if (found->second.empty() || found->second.back() != rank) {
                found->second.push_back(rank);
            }
        }
    }
    std::string text;
    for (const auto& [line, rankV] : lineV) text += Named(line, NamesOf(rankV)) + "\n";
    return text;
}

}  // namespace sylvora::mpi

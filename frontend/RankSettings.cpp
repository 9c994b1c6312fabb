// Compares the settings of the ranks, and asks all of them whether to stop.
#include "RankSettings.h"

#include <algorithm>
#include <cstdint>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "StopSignals.h"
#include "god/Report.h"

namespace sylvora::frontend {
namespace {

// The text of rank 0, in which this rank takes part with its own. Returns 0, or -1 if a rank has
// left.
int TextOfFirst(Communicator& ranks, const std::string& mine, std::string& first) {
    std::uint64_t size = mine.size();
    if (ranks.Broadcast(&size, sizeof size, 0) != 0) return -1;
    first = mine;
    first.resize(static_cast<size_t>(size));
    return ranks.Broadcast(first.data(), first.size(), 0);
}

std::string ContentOf(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

}  // namespace

// No rank leaves before all of them have the texts of rank 0.
int CheckSameSettings(Communicator& ranks, const RereadableFile& file, int argc, char** argv) {
    std::string options;
    for (int i = 2; i < argc; ++i) (options += argv[i]) += '\n';
    const std::string content = ContentOf(file.Path());
    std::string firstVersion, firstOptions, firstContent;
    if (TextOfFirst(ranks, SYLVORA_VERSION, firstVersion) != 0 ||
        TextOfFirst(ranks, options, firstOptions) != 0 ||
        TextOfFirst(ranks, content, firstContent) != 0 || WaitForAll(ranks) != 0) {
        return -1;
    }
    if (firstVersion != SYLVORA_VERSION) {
        return Fail("ERROR: this is version ", SYLVORA_VERSION, ", and rank 0 has ", firstVersion,
                    ": install the same one everywhere\n");
    }
    if (firstContent != content) {
        return Fail("ERROR: ", argv[1], ": is not the file that rank 0 has\n");
    }
    if (firstOptions != options) return Fail("ERROR: the options are not those of rank 0\n");
    return WaitForAll(ranks);
}

int WaitForAll(Communicator& ranks) {
    const char mine = 0;
    std::vector<char> allV(static_cast<size_t>(ranks.Size()));
    return ranks.AllGather(&mine, sizeof mine, allV.data());
}

bool IsStopWantedByAny(Communicator& ranks) {
    const int mine = StopSignal();
    std::vector<int> signalV(static_cast<size_t>(ranks.Size()));
    if (ranks.AllGather(&mine, sizeof mine, signalV.data()) != 0) return true;
    const int signal = *std::max_element(signalV.begin(), signalV.end());
    if (signal != 0) RecordStop(signal);
    return signal != 0;
}

}  // namespace sylvora::frontend

// Reads the tuning from the environment; see Tuning.h.
#include "Tuning.h"

#include <algorithm>
#include <cstdlib>
#include <sstream>
#include <string>

#include "base/CacheSize.h"
#include "god/NumberParsing.h"

namespace sylvora {
namespace engine {

namespace {

// Histograms are filled two columns at a time, with cells of 16 bytes. Their cells should fit the
// L1 cache, with a little room for the rows' own: 1,489 bins for 48 KB, 992 for 32 KB.
int BinsOfCache(int l1Bytes) {
    constexpr int kBytesPerBin = 2 * 16 + 1;
    return std::clamp(l1Bytes / kBytesPerBin, 512, 3000);
}

}  // namespace

// Ignores words that it does not know: only tests set this variable.
Tuning CurrentTuning() {
    Tuning tuning;
    tuning.mostBins = BinsOfCache(L1CacheBytes());
    const char* text = std::getenv("SYLVORA_TUNING");
    std::istringstream words(text != nullptr ? text : "");
    for (std::string word; words >> word;) {
        const size_t equals = word.find('=');
        const std::string name = word.substr(0, equals);
        int value = 0;
        if (equals == std::string::npos || !ParseNumber(word.substr(equals + 1), value)) continue;
        if (name == "smallNode") tuning.smallNode = value;
        if (name == "tinyNode") tuning.tinyNode = value;
        if (name == "mostBins") tuning.mostBins = value;
        if (name == "rankBits") tuning.rankBits = std::clamp(value, 1, 16);
        if (name == "fewKeys") tuning.fewKeys = value;
        if (name == "cellCost") tuning.cellCost = value;
        if (name == "chunkRows") tuning.chunkRows = std::max(value, 1);
        if (name == "teamRows") tuning.teamRows = value;
        if (name == "listPercent") tuning.listPercent = value;
        if (name == "leastRows") tuning.leastRows = value;
    }
    return tuning;
}

}  // namespace engine
}  // namespace sylvora

// Sends the runs of queries in blocks of text; see QueryExchange.h.
#include "QueryExchange.h"

#include <cstring>

#include "OwnColumns/Agreement.h"

namespace sylvora::frontend {
namespace {

constexpr size_t kBlockBytes = size_t{1} << 20;

// A run in a block: this head, and then the text of the query.
struct RunHead {
    long numRows, firstLine, lastLine;
    size_t size;
};

// The runs from number `next` on, which moves behind the last one; empty: there are no more.
std::string Pack(const std::vector<QueryRun>& runV, size_t& next) {
    std::string block;
    for (; next < runV.size() && block.size() < kBlockBytes; ++next) {
        const QueryRun& run = runV[next];
        const RunHead head = {run.numRows, run.firstLine, run.lastLine, run.queryId.size()};
        block.append(reinterpret_cast<const char*>(&head), sizeof head);
        block += run.queryId;
    }
    return block;
}

std::vector<QueryRun> Unpack(const std::string& block) {
    std::vector<QueryRun> runV;
    for (size_t at = 0; at < block.size();) {
        RunHead head = {};
        std::memcpy(&head, block.data() + at, sizeof head);
        at += sizeof head;
        runV.push_back({block.substr(at, head.size), head.numRows, head.firstLine, head.lastLine});
        at += head.size;
    }
    return runV;
}

}  // namespace

std::string NumberAllQueries(Ranks& ranks, int numRanks, const DataFile& file,
                             const std::vector<QueryRun>& mineV, DataSet& set) {
    QueryNumbers numbers(file, true);
    for (int from = 0; from < numRanks; ++from) {
        size_t next = 0;
        for (;;) {
            const std::string mine = ranks.Rank() == from ? Pack(mineV, next) : "";
            const std::string block = BroadcastText(ranks, mine, from);
            if (block.empty()) break;
            // All ranks find the same wrong query, but one of them may lack memory.
            std::string complaint =
                ComplaintOfAny(ranks, [&] { return NumberQueries(numbers, Unpack(block), set); });
            if (!complaint.empty()) return complaint;
        }
    }
    return "";
}

}  // namespace sylvora::frontend

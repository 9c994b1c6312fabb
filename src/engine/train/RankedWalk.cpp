// Walks by ranks; see RankedWalk.h.
#include "RankedWalk.h"

#include <algorithm>
#include <cstdint>

#include "SplitExchange.h"
#include "base/Chunks.h"

namespace sylvora {
namespace engine {
namespace {

constexpr int kChunkRows = 1 << 15;  // a multiple of 8, so that no two chunks share a byte

// The rows at a node of the level: rowV[begin, begin + count).
struct Group {
    int node;
    int begin;
    int count;
};

// A part of a group, for one worker.
struct Part {
    size_t group;
    int begin;
    int end;
};

std::vector<Part> PartsOf(const std::vector<Group>& groupV) {
    std::vector<Part> partV;
    for (size_t g = 0; g < groupV.size(); ++g) {
        const Chunks chunks = {groupV[g].count, kChunkRows};
        for (int chunk = 0; chunk < chunks.Num(); ++chunk) {
            partV.push_back({g, chunks.Begin(chunk), chunks.End(chunk)});
        }
    }
    return partV;
}

// Sends a group's left rows to the front of its slice in `toV`, and the others behind them, both in
// order. Returns how many went left.
int MoveRows(const Group& group, const uint8_t* bits, const LargeArray<int>& rowV,
             LargeArray<int>& toV) {
    const int* const from = rowV.data() + group.begin;
    int numLeft = 0;
    for (int i = 0; i < group.count; ++i) numLeft += (bits[i / 8] >> (i % 8)) & 1;
    int* left = toV.data() + group.begin;
    int* right = left + numLeft;
    for (int i = 0; i < group.count; ++i) {
        if (((bits[i / 8] >> (i % 8)) & 1) != 0) {
            *left++ = from[i];
        } else {
            *right++ = from[i];
        }
    }
    return numLeft;
}

}  // namespace

// Level by level: the owners of the splits' columns find the sides, and all ranks move the rows.
void WalkByRanks(const std::vector<WalkSplit>& treeV, const Matrix& values, LargeArray<int> rowV,
                 Ranks& ranks, WorkerPool& pool, const AtLeaf& atLeaf) {
    struct NoRecord {};
    SplitExchange exchange(ranks);
    LargeArray<int> otherV(rowV.size());
    std::vector<Group> groupV = {{0, 0, static_cast<int>(rowV.size())}};
    std::vector<Group> nextV;
    const auto add = [&](int node, int begin, int count, const LargeArray<int>& at) {
        if (count == 0) return;
        if (treeV[static_cast<size_t>(node)].column >= 0)
            return nextV.push_back({node, begin, count});
        atLeaf(node, at.data() + begin, at.data() + begin + count);
    };
    add(0, 0, static_cast<int>(rowV.size()), rowV);
    for (groupV.swap(nextV); !groupV.empty(); groupV.swap(nextV)) {
        std::vector<int> rankV;
        std::vector<std::vector<uint8_t>> bitVV;
        std::vector<uint8_t*> bytesV;
        std::vector<size_t> numBytesV;
        for (const Group& group : groupV) {
            rankV.push_back(ranks.OwnerOf(treeV[static_cast<size_t>(group.node)].column));
            bitVV.emplace_back(SplitExchange::NumBytes(group.count));
            bytesV.push_back(bitVV.back().data());
            numBytesV.push_back(bitVV.back().size());
        }
        const std::vector<Part> partV = PartsOf(groupV);
        pool.For(static_cast<int>(partV.size()), [&](int i, int) {
            const Part& part = partV[static_cast<size_t>(i)];
            const Group& group = groupV[part.group];
            if (!exchange.IsOwn(rankV[part.group])) return;
            const WalkSplit& split = treeV[static_cast<size_t>(group.node)];
            const int* const rows = rowV.data() + group.begin;
            uint8_t* const bits = bytesV[part.group];
            for (int k = part.begin; k < part.end; ++k) {
                const bool fLeft = values.At(rows[k], split.column) <= split.threshold;
                bits[k / 8] = static_cast<uint8_t>(bits[k / 8] | (fLeft ? 1 : 0) << (k % 8));
            }
        });
        std::vector<NoRecord> recordV(groupV.size());
        exchange.Share(rankV, recordV, bytesV, numBytesV);
        std::vector<int> numLeftV(groupV.size());
        pool.For(static_cast<int>(groupV.size()), [&](int i, int) {
            const size_t g = static_cast<size_t>(i);
            numLeftV[g] = MoveRows(groupV[g], bytesV[g], rowV, otherV);
        });
        rowV.swap(otherV);
        nextV.clear();
        for (size_t g = 0; g < groupV.size(); ++g) {
            const Group& group = groupV[g];
            const WalkSplit& split = treeV[static_cast<size_t>(group.node)];
            add(split.lson, group.begin, numLeftV[g], rowV);
            add(split.rson, group.begin + numLeftV[g], group.count - numLeftV[g], rowV);
        }
    }
}

}  // namespace engine
}  // namespace sylvora

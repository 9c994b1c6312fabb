// Walks by ranks; see RankedWalk.h.
#include "RankedWalk.h"

#include <algorithm>
#include <cstdint>

#include "RowKernels.h"
#include "SplitExchange.h"
#include "base/Chunks.h"

namespace sylvora {
namespace engine {
namespace {

constexpr int kBlockRows = WalkSteps::kBlockRows;
constexpr int kChunkRows = 32 * kBlockRows;
static_assert(kBlockRows % 8 == 0, "no two blocks share a byte of bits");

// The rows at a node of the level: rowV[begin, begin + count), and their sides.
struct Group {
    int node;
    int begin;
    int count;
    std::vector<uint8_t> bitV = {};
    int numLeft = 0;
};

// A part of a group, for one worker: its rows [begin, end).
struct Part {
    Group* group;
    int begin;
    int end;
    int numLeft = 0;     // in the part
    int leftBefore = 0;  // in the group, before the part

    uint8_t* BitsAt(int row) const { return group->bitV.data() + row / 8; }
    // Calls visit(begin, count) for its blocks.
    template <typename Visit>
    void ForBlocks(const Visit& visit) const {
        for (int at = begin; at < end; at += kBlockRows) visit(at, std::min(kBlockRows, end - at));
    }
};

std::vector<Part> PartsOf(std::vector<Group>& groupV) {
    std::vector<Part> partV;
    for (Group& group : groupV) {
        const Chunks chunks = {group.count, kChunkRows};
        for (int chunk = 0; chunk < chunks.Num(); ++chunk) {
            partV.push_back({&group, chunks.Begin(chunk), chunks.End(chunk)});
        }
    }
    return partV;
}

// Finds the sides of a part's rows.
void MarkPart(const Part& part, const int* groupRowV, const WalkSteps& steps) {
    uint8_t fLeftV[kBlockRows];
    part.ForBlocks([&](int at, int count) {
        steps.markLeft(part.group->node, groupRowV + at, count, fLeftV);
        SplitExchange::Pack(fLeftV, count, part.BitsAt(at));
    });
}

// Sends the left rows of a part to the front of its group's slice, and the others behind those of
// the whole group, both in order.
void MovePart(const Part& part, const int* groupRowV, int* toV) {
    const RowKernels& kernels = BestRowKernels();
    int* left = toV + part.leftBefore;
    int* right = toV + part.group->numLeft + part.begin - part.leftBefore;
    uint8_t fLeftV[kBlockRows];
    int sideVV[2][kBlockRows + RowKernels::kSlack];
    part.ForBlocks([&](int at, int count) {
        SplitExchange::Unpack(part.BitsAt(at), count, fLeftV);
        const int numLeft = kernels.split(groupRowV + at, fLeftV, count, sideVV[0], sideVV[1]);
        left = std::copy_n(sideVV[0], numLeft, left);
        right = std::copy_n(sideVV[1], count - numLeft, right);
    });
}

// One level of a walk: the owners of the splits' columns find the sides, and all ranks move the
// rows from `rowV` to `toV`.
class Level {
  public:
    Level(std::vector<Group>& groups, const LargeArray<int>& rows, WorkerPool& workers)
        : groupV(groups), rowV(rows), pool(workers), partV(PartsOf(groups)) {}

    void Exchange(const std::vector<WalkSplit>& treeV, Ranks& ranks, const WalkSteps& steps) {
        struct NoRecord {};
        SplitExchange exchange(ranks);
        std::vector<int> rankV;
        std::vector<uint8_t*> bytesV;
        std::vector<size_t> numBytesV;
        for (Group& group : groupV) {
            group.bitV.resize(SplitExchange::NumBytes(group.count));
            rankV.push_back(ranks.OwnerOf(treeV[static_cast<size_t>(group.node)].column));
            bytesV.push_back(group.bitV.data());
            numBytesV.push_back(group.bitV.size());
        }
        ForParts([&](Part& part, const int* groupRowV) {
            const int column = treeV[static_cast<size_t>(part.group->node)].column;
            if (ranks.Owns(column)) MarkPart(part, groupRowV, steps);
        });
        std::vector<NoRecord> recordV(groupV.size());
        exchange.Share(rankV, recordV, bytesV, numBytesV);
    }

    void Move(LargeArray<int>& toV) {
        ForParts([](Part& part, const int*) {
            part.numLeft = SplitExchange::CountLeft(part.BitsAt(part.begin), part.end - part.begin);
        });
        for (Part& part : partV) {
            part.leftBefore = part.group->numLeft;
            part.group->numLeft += part.numLeft;
        }
        ForParts([&](Part& part, const int* groupRowV) {
            MovePart(part, groupRowV, toV.data() + part.group->begin);
        });
    }

  private:
    // Calls step(part, the rows of its group) for all parts.
    template <typename Step>
    void ForParts(const Step& step) {
        pool.For(static_cast<int>(partV.size()), [&](int i, int) {
            Part& part = partV[static_cast<size_t>(i)];
            step(part, rowV.data() + part.group->begin);
        });
    }

    std::vector<Group>& groupV;
    const LargeArray<int>& rowV;
    WorkerPool& pool;
    std::vector<Part> partV;
};

}  // namespace

void WalkByRanks(const std::vector<WalkSplit>& treeV, LargeArray<int> rowV, Ranks& ranks,
                 WorkerPool& pool, const WalkSteps& steps) {
    LargeArray<int> toV(rowV.size());
    std::vector<Group> groupV, nextV;
    const auto add = [&](int node, int begin, int count) {
        if (count == 0) return;
        if (treeV[static_cast<size_t>(node)].column >= 0)
            return nextV.push_back({node, begin, count});
        steps.atLeaf(node, rowV.data() + begin, rowV.data() + begin + count);
    };
    add(0, 0, static_cast<int>(rowV.size()));
    for (groupV.swap(nextV); !groupV.empty(); groupV.swap(nextV)) {
        Level level(groupV, rowV, pool);
        level.Exchange(treeV, ranks, steps);
        level.Move(toV);
        rowV.swap(toV);
        nextV.clear();
        for (const Group& group : groupV) {
            const WalkSplit& split = treeV[static_cast<size_t>(group.node)];
            add(split.lson, group.begin, group.numLeft);
            add(split.rson, group.begin + group.numLeft, group.count - group.numLeft);
        }
    }
}

}  // namespace engine
}  // namespace sylvora

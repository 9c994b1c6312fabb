// Lists of rows sorted by column; see SortedColumns.h.
#include "SortedColumns.h"

#include <algorithm>

#include "engine/train/KeySort.h"

namespace sylvora {
namespace engine {
namespace {

constexpr uint32_t kAbsent = kRise - 1;
constexpr int kLineEntries = 64 / sizeof(Entry);
constexpr int kKeysAhead = 32;
constexpr int kAhead = 6 * kLineEntries;

}  // namespace

std::unique_ptr<SortedColumns> SortedColumns::Make(std::shared_ptr<const ColumnOrders> orders) {
    if (orders->AreLists()) return std::make_unique<KeptLists>(std::move(orders));
    return std::make_unique<SortedLists>(std::move(orders));
}

KeptLists::KeptLists(std::shared_ptr<const ColumnOrders> columnOrders)
    : SortedColumns(std::move(columnOrders)) {
    for (int column = 0; column < Data().NumColumns(); ++column) {
        listOfV.push_back(numLists);
        numLists += !IsConstant(column);
    }
}

void KeptLists::Take(const int* indexV, int num, WorkerPool& pool) {
    // The stride is an odd number of cache lines, so that equal slices of different columns map to
    // different cache sets. It leaves space for the one entry that TakeColumn writes past the end.
    const size_t numLines = static_cast<size_t>(num / kLineEntries) + 1;
    stride = (numLines | 1) * kLineEntries;
    entryV.resize(stride * numLists);
    positionV.assign(static_cast<size_t>(Data().NumRows()), kAbsent);
    // Maps rows of the data to positions in the tree's row index.
    for (int i = 0; i < num; ++i) {
        positionV[static_cast<size_t>(indexV[i])] = static_cast<uint32_t>(i);
    }
    pool.For(Data().NumColumns(), [&](int column, int) { TakeColumn(column); });
}

// Copies the entries of the tree's rows. A skipped entry passes its rise on to the next entry kept.
void KeptLists::TakeColumn(int column) {
    if (IsConstant(column)) return;
    Entry* to = entryV.data() + Offset(column);
    Entry rise = 0;
    for (const Entry entry : orders->Of(static_cast<size_t>(column))) {
        const uint32_t position = positionV[PositionOf(entry)];
        rise |= entry & kRise;
        *to = position | rise;
        const bool fPresent = position != kAbsent;
        to += fPresent;
        rise = fPresent ? 0 : rise;
    }
}

// Each entry is written to both sides, and only one of them advances, so there is no branch to
// mispredict. Writing in place is safe: never more entries have been written to the front than
// read. A side's pending rise carries over until that side keeps an entry.
void KeptLists::Partition(int column, const NodeRows& rows, const uint32_t* toV, int middle,
                          Entry* other) {
    if (IsConstant(column)) return;
    const int count = rows.count;
    Entry* const list = entryV.data() + Offset(column) + static_cast<size_t>(rows.begin);
    const uint32_t* const toOf = toV - rows.begin;
    const uint32_t firstRight = static_cast<uint32_t>(middle);
    // The next node's slices follow these, one per column: too many streams for the hardware
    // prefetcher.
    const std::ptrdiff_t numBehind = entryV.data() + entryV.size() - (list + count);
    const std::ptrdiff_t numAhead =
        std::min<std::ptrdiff_t>(std::min(count, kAhead) + kLineEntries, numBehind);
    for (std::ptrdiff_t i = kLineEntries; i < numAhead; i += kLineEntries) {
        __builtin_prefetch(list + count + i);
    }
    Entry* left = list;
    Entry* right = other;
    Entry riseL = 0;
    Entry riseR = 0;
    // Invariant: `left` <= list + i, so no entry is overwritten before it is read. A side's rise
    // accumulates the rises of the entries that went to the other side.
    for (int i = 0; i < count; ++i) {
        const Entry entry = list[i];
        const uint32_t to = toOf[PositionOf(entry)];
        const bool fLeft = to < firstRight;
        riseL |= entry & kRise;
        riseR |= entry & kRise;
        *left = to | riseL;
        *right = to | riseR;
        left += fLeft;
        right += !fLeft;
        riseL = fLeft ? 0 : riseL;
        riseR = fLeft ? riseR : 0;
    }
    std::copy(other, right, left);
}

// Sorts the node's rows by rank, and marks the rises. Rows are scattered over rankV, hence the
// prefetch.
const Entry* SortedLists::List(int column, const NodeRows& rows, ListBuffers& buffers,
                               Entry* made) const {
    const uint32_t* const rankV = orders->Of(static_cast<size_t>(column)).data();
    const int* const rowV = rows.rowV.data() + rows.begin;
    std::vector<uint64_t>& keyV = buffers.keyV;
    keyV.resize(static_cast<size_t>(rows.count));
    for (int i = 0; i < rows.count; ++i) {
        __builtin_prefetch(rankV + rowV[i + std::min(kKeysAhead, rows.count - 1 - i)]);
        keyV[static_cast<size_t>(i)] = KeyOf(rankV[rowV[i]], rows.begin + i);
    }
    SortKeys(keyV, buffers.otherV);
    uint32_t previous = 0;
    for (size_t i = 0; i < keyV.size(); ++i) {
        const uint32_t rank = RankOf(keyV[i]);
        made[i] = static_cast<Entry>(ItemOf(keyV[i])) | (rank != previous ? kRise : 0);
        previous = rank;
    }
    return made;
}

}  // namespace engine
}  // namespace sylvora

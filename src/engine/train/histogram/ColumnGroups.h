// Groups of narrow columns that share an 8-bit code per row. A code numbers a combination of the
// columns' bins that occurs in the data, so columns that depend on each other, such as the flags
// of one category, fit together. A histogram of a group is counted with one addition per row, and
// the cells of its columns are sums of the cells of its codes. The sums are of integers, so their
// order does not matter.
#ifndef SYLVORA_ENGINE_TRAIN_HISTOGRAM_COLUMNGROUPS_H
#define SYLVORA_ENGINE_TRAIN_HISTOGRAM_COLUMNGROUPS_H

#include <cstddef>
#include <cstdint>
#include <vector>

#include "base/LargeArray.h"
#include "base/WorkerPool.h"

namespace sylvora {
namespace engine {

constexpr int kGroupCodes = 256;  // the most codes of a group, and bins of a narrow column

// A group, but for the codes of its rows. Its members are narrow columns, at least one. The codes
// of a group of one column are the column's bins.
struct GroupShape {
    // A member's bin, other than the member's most frequent one.
    struct RareBin {
        size_t member;
        int bin;
    };

    // By member: the column.
    std::vector<int> columnV;
    int numCodes = 0;
    // The bins of the first member by code, then those of the second, and so on.
    std::vector<uint8_t> binOfCodeV;
    // By member: the bin that most rows have.
    std::vector<int> frequentBinV;
    // By code: the bins that are not frequent ones are rareBinV[firstRareV[code]] up to
    // rareBinV[firstRareV[code + 1] - 1].
    std::vector<size_t> firstRareV;
    std::vector<RareBin> rareBinV;

    bool IsJoint() const { return columnV.size() > 1; }
    // A member's bins by code, numCodes of them.
    const uint8_t* BinsOfCodes(size_t member) const {
        return binOfCodeV.data() + member * static_cast<size_t>(numCodes);
    }
};

struct ColumnGroup : GroupShape {
    // By row.
    LargeArray<uint8_t> codeV;

    // The group on the rows rowV[0], rowV[1], ...
    ColumnGroup Of(const std::vector<int>& rowV) const;
};

// A column to be grouped.
struct NarrowColumn {
    int column;
    int numBins;  // at most kGroupCodes
    // By row: the bin. Taken over by the group.
    LargeArray<uint8_t> binV;
};

// Groups columns of the same rows. The time is linear in the number of columns. The workers of
// `pool` share the rows. The groups do not depend on the number of workers. Throws std::bad_alloc.
std::vector<ColumnGroup> GroupColumns(std::vector<NarrowColumn> narrowV, WorkerPool& pool);

}  // namespace engine
}  // namespace sylvora

#endif  // SYLVORA_ENGINE_TRAIN_HISTOGRAM_COLUMNGROUPS_H

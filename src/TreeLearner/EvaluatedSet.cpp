// Scoring the rows of an evaluated set; see EvaluatedSet.h. Of a block only the columns that a
// group splits on are read.
#include "EvaluatedSet.h"

#include <algorithm>
#include <utility>

namespace sylvora {

WalkedGroup::WalkedGroup(const EnsembleView& ensemble, size_t group, double groupShrink,
                         bool fCompact)
    : shrink(groupShrink) {
    std::vector<std::vector<engine::PackedNode>> treeV;
    size_t numNodes = 0;
    for (size_t t = 0; t < ensemble.GroupSize(group); ++t) {
        const TreeView tree = ensemble.Tree(group, t);
        std::vector<engine::PackedNode>& nodeV = treeV.emplace_back();
        for (size_t k = 0; k < tree.NumNodes(); ++k) {
            nodeV.push_back(tree.Node(k));
            if (!nodeV.back().IsLeaf()) columnV.push_back(nodeV.back().splitFea);
        }
        numNodes += nodeV.size();
    }
    std::sort(columnV.begin(), columnV.end());
    columnV.erase(std::unique(columnV.begin(), columnV.end()), columnV.end());
    trees.Reserve(numNodes);
    for (std::vector<engine::PackedNode>& nodeV : treeV) {
        for (engine::PackedNode& node : nodeV) {
            if (!fCompact || node.IsLeaf()) continue;
            const auto at = std::lower_bound(columnV.begin(), columnV.end(), node.splitFea);
            node.splitFea = static_cast<int>(at - columnV.begin());
        }
        uint32_t root = 0;
        if (!trees.Append(nodeV.data(), nodeV.size(), root)) throw std::bad_alloc();
        rootV.push_back(root);
    }
}

// The order of the operations is that of OnlineTesting, so the scores are the same bit for bit.
void WalkedGroup::AddTo(const double* const* rowV, int numRows, uint32_t* leafV, double* sumV,
                        double* scoreV) const {
    const size_t count = static_cast<size_t>(numRows);
    std::fill_n(sumV, count, 0.0);
    for (const uint32_t root : rootV) {
        std::fill_n(leafV, count, root);
        trees.Walk(rowV, leafV, numRows);
        for (size_t i = 0; i < count; ++i) sumV[i] += trees.Values()[leafV[i]];
    }
    const double numTrees = static_cast<double>(rootV.size());
    for (size_t i = 0; i < count; ++i) scoreV[i] += shrink * (sumV[i] / numTrees);
}

EvaluatedSet::EvaluatedSet(std::string setName, const DataBlock& block, MeasuredSet measuredSet)
    : name(std::move(setName)),
      reader(std::make_unique<const BlockReader>(block)),
      measured(std::move(measuredSet)),
      scoreV(measured.NumRows(), 0.0) {}

EvaluatedSet::EvaluatedSet(std::string setName, const double* const* rows, MeasuredSet measuredSet)
    : name(std::move(setName)),
      rowVV(rows),
      measured(std::move(measuredSet)),
      scoreV(measured.NumRows(), 0.0) {}

void EvaluatedSet::AddGroup(const WalkedGroup& group, size_t piece) {
    const size_t begin = piece * kPieceRows;
    const int numRows = static_cast<int>(std::min(kPieceRows, NumRows() - begin));
    uint32_t leafV[kPieceRows];
    double sumV[kPieceRows];
    if (!IsBlock()) {
        group.AddTo(rowVV + begin, numRows, leafV, sumV, scoreV.data() + begin);
        return;
    }
    const size_t width = std::max(group.Columns().size(), size_t{1});  // a leaf reads column 0
    std::vector<double> valueV(width * kPieceRows);
    const double* rowV[kPieceRows];
    for (size_t i = 0; i < kPieceRows; ++i) rowV[i] = valueV.data() + i * width;
    const int first = static_cast<int>(begin);
    double* values = valueV.data();
    for (const int column : group.Columns()) {
        reader->ForColumn(column, first, first + numRows, [=](int row, double value) {
            values[static_cast<size_t>(row - first) * width] = value;
        });
        ++values;
    }
    group.AddTo(rowV, numRows, leafV, sumV, scoreV.data() + begin);
}

void EvaluatedSet::ReadRows(size_t begin, size_t end, int dim, double* values) const {
    if (IsBlock()) {
        reader->ReadRows(static_cast<int>(begin), static_cast<int>(end), dim, values);
        return;
    }
    for (size_t row = begin; row < end; ++row, values += dim) {
        std::copy_n(rowVV[row], dim, values);
    }
}

}  // namespace sylvora

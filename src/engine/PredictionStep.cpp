// The step of the training predictions; see PredictionStep.h.
#include "PredictionStep.h"

#include <algorithm>

namespace sylvora {
namespace engine {
namespace {

constexpr int kChunkRows = 8192;
constexpr int kTogether = 8;  // rows that walk side by side, so that their loads overlap

// A node as the walk needs it; a leaf leads to itself.
struct WalkNode {
    double threshold;
    int column;
    int sonV[2];  // where a row goes: [0] when its value is above the threshold, else [1]
    double step;
};

std::vector<WalkNode> MakeWalk(const std::vector<GrownNode>& nodeV, double dynShrink,
                               double valShrink) {
    std::vector<WalkNode> walkV;
    for (size_t k = 0; k < nodeV.size(); ++k) {
        const GrownNode& node = nodeV[k];
        const bool fLeaf = node.splitFea < 0;
        const int self = static_cast<int>(k);
        const double value = node.gradAll / node.wgtAll;
        walkV.push_back({node.splitElemFea,
                         fLeaf ? 0 : node.splitFea,
                         {fLeaf ? self : node.rson, fLeaf ? self : node.lson},
                         value * dynShrink * valShrink});
    }
    return walkV;
}

// Rows [begin, end) that are not marked in fInV, or all where that is empty.
class Walker {
  public:
    Walker(const std::vector<WalkNode>& nodes, int treeDepth, const Columns& columns,
           double* predictions)
        : walkV(nodes), depth(treeDepth), data(columns), predictV(predictions) {}

    void Walk(int begin, int end, const LargeArray<uint8_t>& fInV) const {
        int rowV[kTogether];
        int num = 0;
        for (int row = begin; row < end; ++row) {
            if (!fInV.empty() && fInV[static_cast<size_t>(row)] != 0) continue;
            rowV[num++] = row;
            if (num == kTogether) {
                WalkTogether(rowV, num);
                num = 0;
            }
        }
        WalkTogether(rowV, num);
    }

  private:
    void WalkTogether(const int* rowV, int num) const {
        int atV[kTogether] = {};
        for (int level = 0; level < depth; ++level) {
            for (int i = 0; i < num; ++i) {
                const WalkNode& node = walkV[static_cast<size_t>(atV[i])];
                atV[i] = node.sonV[data.Value(rowV[i], node.column) <= node.threshold];
            }
        }
        for (int i = 0; i < num; ++i) {
            predictV[rowV[i]] += walkV[static_cast<size_t>(atV[i])].step;
        }
    }

    const std::vector<WalkNode>& walkV;
    int depth;
    const Columns& data;
    double* predictV;
};

// A piece of a leaf's slice.
struct LeafPiece {
    int begin;
    int end;
    double step;
};

std::vector<LeafPiece> CutLeaves(const std::vector<GrownNode>& nodeV,
                                 const std::vector<WalkNode>& walkV) {
    std::vector<LeafPiece> pieceV;
    for (size_t k = 0; k < nodeV.size(); ++k) {
        if (nodeV[k].splitFea >= 0) continue;
        const int end = nodeV[k].startDoc + nodeV[k].countDoc;
        for (int begin = nodeV[k].startDoc; begin < end; begin += kChunkRows) {
            pieceV.push_back({begin, std::min(begin + kChunkRows, end), walkV[k].step});
        }
    }
    return pieceV;
}

}  // namespace

void StepPredictions(const RegressionGrowth& growth, const Columns& data, WorkerPool& pool,
                     double dynShrink, double valShrink, double* predictV) {
    const std::vector<WalkNode> walkV = MakeWalk(growth.Nodes(), dynShrink, valShrink);
    const Walker walker(walkV, growth.Nodes().back().depth, data, predictV);
    const LargeArray<int>& indexV = growth.Rows();
    const bool fSlices = growth.SlicesTrue();
    if (fSlices) {
        const std::vector<LeafPiece> pieceV = CutLeaves(growth.Nodes(), walkV);
        pool.For(static_cast<int>(pieceV.size()), [&](int p, int) {
            const LeafPiece& piece = pieceV[static_cast<size_t>(p)];
            for (int i = piece.begin; i < piece.end; ++i) {
                predictV[indexV[static_cast<size_t>(i)]] += piece.step;
            }
        });
        if (indexV.size() == static_cast<size_t>(data.NumRows())) return;
    }
    static const LargeArray<uint8_t> kNone;
    const LargeArray<uint8_t>& fInV = fSlices ? growth.RowMarks() : kNone;
    pool.For((data.NumRows() + kChunkRows - 1) / kChunkRows, [&](int chunk, int) {
        walker.Walk(chunk * kChunkRows, std::min((chunk + 1) * kChunkRows, data.NumRows()), fInV);
    });
}

}  // namespace engine
}  // namespace sylvora

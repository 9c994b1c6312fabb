// The step of the training predictions; see PredictionStep.h.
#include "PredictionStep.h"

#include <algorithm>
#include <cstring>

#include "Chunks.h"

namespace sylvora {
namespace engine {
namespace {

constexpr int kChunkRows = 8192;
constexpr int kTogether = 8;  // rows that walk side by side, so that their loads overlap
constexpr int kAhead = 32;    // rows fetched in advance

// A node as the walk needs it; a leaf leads to itself. Codes say where a row goes, except for those
// of the bin that the threshold lies in.
struct WalkNode {
    const uint8_t* codes;  // of the column, in the first row
    size_t rowBytes;       // from row to row
    uint32_t codeMask;
    uint32_t bin;        // codes below go left, those above right
    uint32_t unsureBin;  // the code that does not decide; beyond all codes where each does
    int sonV[2];         // [0] to the right, [1] to the left
    int column;
    double threshold;
    double step;
};

template <typename Code>
void SetCodes(const RowCodes<Code>& rows, int place, WalkNode& walk) {
    walk.codes = reinterpret_cast<const uint8_t*>(rows.codeV.data() + place);
    walk.rowBytes = rows.stride * sizeof(Code);
    walk.codeMask = static_cast<Code>(~Code{0});
}

WalkNode MakeWalkNode(const GrownNode& node, int self, const Columns& data) {
    const bool fLeaf = node.splitFea < 0;
    const Column& column = data.At(fLeaf ? 0 : node.splitFea);
    WalkNode walk = {};
    walk.column = fLeaf ? 0 : node.splitFea;
    walk.threshold = node.splitElemFea;
    walk.sonV[0] = fLeaf ? self : node.rson;
    walk.sonV[1] = fLeaf ? self : node.lson;
    if (column.fNarrow) {
        SetCodes(data.NarrowRows(), column.place, walk);
    } else {
        SetCodes(data.WideRows(), column.place, walk);
    }
    const auto past =
        std::upper_bound(column.binValueV.begin(), column.binValueV.end(), walk.threshold);
    // A leaf's threshold may be below all values.
    walk.bin =
        static_cast<uint32_t>(std::max<std::ptrdiff_t>(past - column.binValueV.begin(), 1) - 1);
    walk.unsureBin = column.fExact || fLeaf ? ~uint32_t{0} : walk.bin;
    return walk;
}

std::vector<WalkNode> MakeWalk(const std::vector<GrownNode>& nodeV, const Columns& data,
                               double dynShrink, double valShrink) {
    std::vector<WalkNode> walkV;
    for (size_t k = 0; k < nodeV.size(); ++k) {
        walkV.push_back(MakeWalkNode(nodeV[k], static_cast<int>(k), data));
        const double value = nodeV[k].gradAll / nodeV[k].wgtAll;
        walkV.back().step = value * dynShrink * valShrink;
    }
    return walkV;
}

// Walks by codes, which needs thresholds with values on both sides; or by values.
class Walker {
  public:
    Walker(const std::vector<WalkNode>& nodes, int treeDepth, const Columns& columns,
           double* predictions)
        : walkV(nodes), depth(treeDepth), data(columns), predictV(predictions) {}

    // The rows [begin, end) that are not marked in fInV.
    void WalkUnmarked(int begin, int end, const LargeArray<uint8_t>& fInV) const {
        int rowV[kChunkRows];
        int num = 0;
        for (int row = begin; row < end; ++row) {
            rowV[num] = row;
            num += fInV[static_cast<size_t>(row)] == 0;
        }
        for (int i = 0; i < num; i += kTogether) {
            for (int k = i + kAhead; k < std::min(i + kAhead + kTogether, num); ++k) {
                __builtin_prefetch(data.NarrowRows().Row(rowV[k]));
                __builtin_prefetch(data.WideRows().Row(rowV[k]));
            }
            WalkTogether(rowV + i, std::min(kTogether, num - i));
        }
    }

    void WalkByValue(int begin, int end) const {
        for (int row = begin; row < end; ++row) {
            int at = 0;
            for (int level = 0; level < depth; ++level) {
                const WalkNode& node = walkV[static_cast<size_t>(at)];
                at = node.sonV[data.Value(row, node.column) <= node.threshold];
            }
            predictV[row] += walkV[static_cast<size_t>(at)].step;
        }
    }

  private:
    bool GoesLeft(const WalkNode& node, int row) const {
        uint16_t two;
        std::memcpy(&two, node.codes + static_cast<size_t>(row) * node.rowBytes, sizeof two);
        const uint32_t code = two & node.codeMask;
        if (code == node.unsureBin) return data.Value(row, node.column) <= node.threshold;
        return code <= node.bin;
    }

    void WalkTogether(const int* rowV, int num) const {
        int atV[kTogether] = {};
        for (int level = 0; level < depth; ++level) {
            for (int i = 0; i < num; ++i) {
                const WalkNode& node = walkV[static_cast<size_t>(atV[i])];
                atV[i] = node.sonV[GoesLeft(node, rowV[i])];
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
        const Chunks chunks = {nodeV[k].countDoc, kChunkRows};
        const int begin = nodeV[k].startDoc;
        for (int chunk = 0; chunk < chunks.Num(); ++chunk) {
            pieceV.push_back(
                {begin + chunks.Begin(chunk), begin + chunks.End(chunk), walkV[k].step});
        }
    }
    return pieceV;
}

}  // namespace

void StepPredictions(const RegressionGrowth& growth, const Columns& data, WorkerPool& pool,
                     double dynShrink, double valShrink, double* predictV) {
    const std::vector<WalkNode> walkV = MakeWalk(growth.Nodes(), data, dynShrink, valShrink);
    const Walker walker(walkV, growth.Nodes().back().depth, data, predictV);
    const int numRows = data.NumRows();
    const Chunks chunks = {numRows, kChunkRows};
    if (!growth.SlicesTrue()) {
        pool.For(chunks.Num(), [&](int chunk, int) {
            walker.WalkByValue(chunks.Begin(chunk), chunks.End(chunk));
        });
        return;
    }
    const LargeArray<int>& indexV = growth.Rows();
    const std::vector<LeafPiece> pieceV = CutLeaves(growth.Nodes(), walkV);
    pool.For(static_cast<int>(pieceV.size()), [&](int p, int) {
        const LeafPiece& piece = pieceV[static_cast<size_t>(p)];
        for (int i = piece.begin; i < piece.end; ++i) {
            __builtin_prefetch(
                predictV + indexV[static_cast<size_t>(std::min(i + kAhead, piece.end - 1))], 1);
            predictV[indexV[static_cast<size_t>(i)]] += piece.step;
        }
    });
    if (indexV.size() == static_cast<size_t>(numRows)) return;
    pool.For(chunks.Num(), [&](int chunk, int) {
        walker.WalkUnmarked(chunks.Begin(chunk), chunks.End(chunk), growth.RowMarks());
    });
}

}  // namespace engine
}  // namespace sylvora

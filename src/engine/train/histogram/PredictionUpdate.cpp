// The step of the training predictions; see PredictionUpdate.h.
#include "PredictionUpdate.h"

#include <algorithm>
#include <cstring>

#include "base/Chunks.h"

namespace sylvora {
namespace engine {
namespace {

constexpr int kChunkRows = 8192;
constexpr int kTogether = 8;  // rows that walk side by side, so that their loads overlap
constexpr int kAhead = 32;    // rows fetched in advance

// A node as the walk needs it; a leaf leads to itself. Codes say where a row goes, except for those
// of the bin that the threshold lies in.
struct WalkNode {
    uint32_t fWide;      // which matrix has the column
    uint32_t codeAt;     // where in a row of it, in bytes
    uint32_t codeMask;   // of two bytes
    uint32_t bin;        // codes below go left, those above right
    uint32_t unsureBin;  // the code that does not decide; beyond all codes where each does
    int column;
    int sonV[2];  // [0] to the right, [1] to the left
};
static_assert(sizeof(WalkNode) == 32, "a node is found by a shift");

WalkNode MakeWalkNode(const GrownNode& node, int self, const BinnedColumns& data) {
    const bool fLeaf = node.splitFea < 0;
    const Column& column = data.At(fLeaf ? 0 : node.splitFea);
    WalkNode walk = {};
    walk.column = fLeaf ? 0 : node.splitFea;
    walk.sonV[0] = fLeaf ? self : node.rson;
    walk.sonV[1] = fLeaf ? self : node.lson;
    walk.fWide = !column.fNarrow;
    walk.codeAt = static_cast<uint32_t>(column.place) << walk.fWide;
    walk.codeMask = column.fNarrow ? 0xff : 0xffff;
    const auto past =
        std::upper_bound(column.binValueV.begin(), column.binValueV.end(), node.splitElemFea);
    // A leaf's threshold may be below all values.
    walk.bin =
        static_cast<uint32_t>(std::max<std::ptrdiff_t>(past - column.binValueV.begin(), 1) - 1);
    walk.unsureBin = column.fExact || fLeaf ? ~uint32_t{0} : walk.bin;
    return walk;
}

// Walks by codes, which needs thresholds with values on both sides; or by values.
class Walker {
  public:
    Walker(const std::vector<GrownNode>& nodes, const double* steps, const BinnedColumns& columns,
           double* predictions)
        : nodeV(nodes),
          stepV(steps),
          depth(nodes.back().depth),
          data(columns),
          predictV(predictions) {
        for (size_t k = 0; k < nodeV.size(); ++k) {
            walkV.push_back(MakeWalkNode(nodeV[k], static_cast<int>(k), data));
        }
    }

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
                at = node.sonV[data.Value(row, node.column) <= ThresholdOf(at)];
            }
            predictV[row] += stepV[at];
        }
    }

  private:
    double ThresholdOf(int node) const { return nodeV[static_cast<size_t>(node)].splitElemFea; }

    // The codes of a row, narrow and wide.
    struct CodedRow {
        const uint8_t* codes[2];
    };

    int Next(int at, int row, const CodedRow& coded) const {
        const WalkNode& node = walkV[static_cast<size_t>(at)];
        uint16_t two;
        std::memcpy(&two, coded.codes[node.fWide] + node.codeAt, sizeof two);
        const uint32_t code = two & node.codeMask;
        if (code == node.unsureBin) {
            return node.sonV[data.Value(row, node.column) <= ThresholdOf(at)];
        }
        return node.sonV[code <= node.bin];
    }

    void WalkTogether(const int* rowV, int num) const {
        CodedRow codedV[kTogether];
        int atV[kTogether] = {};
        for (int i = 0; i < num; ++i) {
            codedV[i] = {{data.NarrowRows().Row(rowV[i]),
                          reinterpret_cast<const uint8_t*>(data.WideRows().Row(rowV[i]))}};
        }
        for (int level = 0; level < depth; ++level) {
            for (int i = 0; i < num; ++i) atV[i] = Next(atV[i], rowV[i], codedV[i]);
        }
        for (int i = 0; i < num; ++i) predictV[rowV[i]] += stepV[atV[i]];
    }

    const std::vector<GrownNode>& nodeV;
    const double* stepV;  // by node
    std::vector<WalkNode> walkV;
    int depth;
    const BinnedColumns& data;
    double* predictV;
};

// A piece of a leaf's slice.
struct LeafPiece {
    int begin;
    int end;
    double step;
};

std::vector<LeafPiece> CutLeaves(const std::vector<GrownNode>& nodeV, const double* stepV) {
    std::vector<LeafPiece> pieceV;
    for (size_t k = 0; k < nodeV.size(); ++k) {
        if (nodeV[k].splitFea >= 0) continue;
        const Chunks chunks = {nodeV[k].countDoc, kChunkRows};
        const int begin = nodeV[k].startDoc;
        for (int chunk = 0; chunk < chunks.Num(); ++chunk) {
            pieceV.push_back({begin + chunks.Begin(chunk), begin + chunks.End(chunk), stepV[k]});
        }
    }
    return pieceV;
}

}  // namespace

void StepPredictions(const HistogramGrower& growth, const BinnedColumns& data, WorkerPool& pool,
                     double dynShrink, double valShrink, double* predictV) {
    std::vector<double> stepV;
    for (const GrownNode& node : growth.Nodes()) {
        const double value = node.gradAll / node.wgtAll;
        stepV.push_back(value * dynShrink * valShrink);
    }
    const Walker walker(growth.Nodes(), stepV.data(), data, predictV);
    const int numRows = data.NumRows();
    const Chunks chunks = {numRows, kChunkRows};
    if (!growth.SlicesTrue()) {
        pool.For(chunks.Num(), [&](int chunk, int) {
            walker.WalkByValue(chunks.Begin(chunk), chunks.End(chunk));
        });
        return;
    }
    const LargeArray<int>& indexV = growth.Rows();
    const std::vector<LeafPiece> pieceV = CutLeaves(growth.Nodes(), stepV.data());
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

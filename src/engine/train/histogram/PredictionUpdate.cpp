// Updates the training predictions; see PredictionUpdate.h.
#include "PredictionUpdate.h"

#include <algorithm>
#include <cstring>

#include "base/Chunks.h"
#include "engine/train/RankedWalk.h"
#include "engine/train/RowKernels.h"

namespace sylvora {
namespace engine {
namespace {

constexpr int kChunkRows = 8192;
constexpr int kTogether = 8;  // rows that walk side by side, to overlap their loads
constexpr int kAhead = 32;    // rows prefetched

// A node as the walk needs it. A leaf's children are the leaf itself. The row's bin decides its
// side, unless it is the bin that holds the threshold.
struct WalkNode {
    uint32_t fWide;      // 1: the column is in the wide row codes
    uint32_t codeAt;     // offset within a row's codes, in bytes
    uint32_t bin;        // bins up to this one go left, others right
    uint32_t unsureBin;  // the bin for which only the value decides; none: ~0
    // The bins of a group's codes; of a wide column any table, whose entries are not used.
    const uint8_t* binOfCodeV;
    int childV[2];  // [0] right, [1] left
};
static_assert(sizeof(WalkNode) == 32, "a node is found by a shift");

// Finds the bin that holds the threshold. Bins below it go left, bins above it right. In an exact
// column the bin's only value decides, and it is at or below the threshold.
WalkNode MakeWalkNode(const GrownNode& node, int self, const BinnedColumns& data) {
    static constexpr uint8_t kAnyBins[kGroupCodes] = {};
    const bool fLeaf = node.splitFea < 0;
    const Column& column = data.At(fLeaf ? 0 : node.splitFea);
    WalkNode walk = {};
    walk.childV[0] = fLeaf ? self : node.rson;
    walk.childV[1] = fLeaf ? self : node.lson;
    walk.fWide = !column.fNarrow;
    walk.codeAt = static_cast<uint32_t>(column.codeIndex) << walk.fWide;
    walk.binOfCodeV = column.fNarrow ? data.BinsOfCodes(column) : kAnyBins;
    const auto past =
        std::upper_bound(column.binValueV.begin(), column.binValueV.end(), node.splitElemFea);
    // A leaf has no threshold; its -1 may be below all values.
    walk.bin =
        static_cast<uint32_t>(std::max<std::ptrdiff_t>(past - column.binValueV.begin(), 1) - 1);
    walk.unsureBin = column.fExact || fLeaf ? ~uint32_t{0} : walk.bin;
    return walk;
}

// Adds the steps of rows that walk the tree, by codes or by values. Walking by codes needs
// thresholds that separate the values next to them.
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

    // Walks the rows of [begin, end) that are 0 in fInTreeV.
    void WalkUnmarked(int begin, int end, const LargeArray<uint8_t>& fInTreeV) const {
        int rowV[kChunkRows + RowKernels::kSlack];
        const int num = BestRowKernels().list(fInTreeV.data() + begin, 0, begin, end - begin, rowV);
        for (int i = 0; i < num; i += kTogether) {
            for (int k = i + kAhead; k < std::min(i + kAhead + kTogether, num); ++k) {
                __builtin_prefetch(data.GroupRows().Row(rowV[k]));
                __builtin_prefetch(data.WideRows().Row(rowV[k]));
            }
            WalkTogether(rowV + i, std::min(kTogether, num - i));
        }
    }

    // Walks all rows by value: slower, but right for any threshold, NaN included.
    void WalkByValue(int begin, int end) const {
        for (int row = begin; row < end; ++row) {
            int at = 0;
            for (int level = 0; level < depth; ++level) {
                const WalkNode& node = walkV[static_cast<size_t>(at)];
                at = node.childV[data.Value(row, ColumnOf(at)) <= ThresholdOf(at)];
            }
            predictV[row] += stepV[at];
        }
    }

  private:
    double ThresholdOf(int node) const { return nodeV[static_cast<size_t>(node)].splitElemFea; }
    // Of a leaf any column, as both of its children are the leaf.
    int ColumnOf(int node) const { return std::max(nodeV[static_cast<size_t>(node)].splitFea, 0); }

    // The codes of a row: [0] of the groups, [1] of the wide columns.
    struct CodedRow {
        const uint8_t* codes[2];
    };

    // Returns the child that the row goes to, or the leaf itself.
    int Next(int at, int row, const CodedRow& coded) const {
        const WalkNode& node = walkV[static_cast<size_t>(at)];
        uint16_t two;
        std::memcpy(&two, coded.codes[node.fWide] + node.codeAt, sizeof two);
        const uint32_t bin = node.fWide ? two : node.binOfCodeV[two & 0xff];
        if (bin == node.unsureBin) {
            return node.childV[data.Value(row, ColumnOf(at)) <= ThresholdOf(at)];
        }
        return node.childV[bin <= node.bin];
    }

    // Takes all rows one level down before the next level. Rows that have reached a leaf stay
    // there.
    void WalkTogether(const int* rowV, int num) const {
        CodedRow codedV[kTogether];
        int atV[kTogether] = {};
        for (int i = 0; i < num; ++i) {
            codedV[i] = {{data.GroupRows().Row(rowV[i]),
                          reinterpret_cast<const uint8_t*>(data.WideRows().Row(rowV[i]))}};
        }
        for (int level = 0; level < depth; ++level) {
            for (int i = 0; i < num; ++i) atV[i] = Next(atV[i], rowV[i], codedV[i]);
        }
        for (int i = 0; i < num; ++i) predictV[rowV[i]] += stepV[atV[i]];
    }

    const std::vector<GrownNode>& nodeV;
    // By node: what to add to a row's prediction.
    const double* stepV;
    std::vector<WalkNode> walkV;
    int depth;
    const BinnedColumns& data;
    double* predictV;
};

// A chunk of a leaf's slice.
struct LeafChunk {
    int begin;
    int end;
    double step;
};

// Cuts the leaves' slices into chunks, so that a large leaf is shared by several workers.
std::vector<LeafChunk> ChunkLeaves(const std::vector<GrownNode>& nodeV, const double* stepV) {
    std::vector<LeafChunk> chunkV;
    for (size_t k = 0; k < nodeV.size(); ++k) {
        if (nodeV[k].splitFea >= 0) continue;
        const Chunks chunks = {nodeV[k].countDoc, kChunkRows};
        const int begin = nodeV[k].startDoc;
        for (int chunk = 0; chunk < chunks.Num(); ++chunk) {
            chunkV.push_back({begin + chunks.Begin(chunk), begin + chunks.End(chunk), stepV[k]});
        }
    }
    return chunkV;
}

// Steps the tree's rows by the leaves in whose slices they lie.
void StepSlices(const HistogramGrower& grower, WorkerPool& pool, const double* stepV,
                double* predictV) {
    const LargeArray<int>& indexV = grower.Rows();
    const std::vector<LeafChunk> chunkV = ChunkLeaves(grower.Nodes(), stepV);
    pool.For(static_cast<int>(chunkV.size()), [&](int p, int) {
        const LeafChunk& leafChunk = chunkV[static_cast<size_t>(p)];
        // The rows of a leaf are scattered over predictV, hence the prefetch.
        for (int i = leafChunk.begin; i < leafChunk.end; ++i) {
            __builtin_prefetch(
                predictV + indexV[static_cast<size_t>(std::min(i + kAhead, leafChunk.end - 1))], 1);
            predictV[indexV[static_cast<size_t>(i)]] += leafChunk.step;
        }
    });
}

}  // namespace

// Each row belongs to exactly one chunk, so workers never write the same prediction.
void StepPredictions(const HistogramGrower& grower, const BinnedColumns& data, WorkerPool& pool,
                     const double* stepV, double* predictV) {
    const Walker walker(grower.Nodes(), stepV, data, predictV);
    const int numRows = data.NumRows();
    const Chunks chunks = {numRows, kChunkRows};
    if (!grower.SlicesMatchThresholds()) {
        pool.For(chunks.Num(), [&](int chunk, int) {
            walker.WalkByValue(chunks.Begin(chunk), chunks.End(chunk));
        });
        return;
    }
    StepSlices(grower, pool, stepV, predictV);
    if (grower.Rows().size() == static_cast<size_t>(numRows)) return;
    pool.For(chunks.Num(), [&](int chunk, int) {
        walker.WalkUnmarked(chunks.Begin(chunk), chunks.End(chunk), grower.RowMarks());
    });
}

// Rows walk only if their slice does not tell their leaf.
void StepPredictionsByRanks(const HistogramGrower& grower, const Matrix& values, Ranks& ranks,
                            WorkerPool& pool, const double* stepV, double* predictV) {
    const bool fSlices = grower.SlicesMatchThresholds();
    if (fSlices) StepSlices(grower, pool, stepV, predictV);
    LargeArray<int> rowV;
    for (int row = 0; row < values.NumRows(); ++row) {
        if (!fSlices || grower.RowMarks()[static_cast<size_t>(row)] == 0) rowV.push_back(row);
    }
    if (rowV.empty()) return;
    std::vector<WalkSplit> splitV;
    for (const GrownNode& node : grower.Nodes()) {
        splitV.push_back({node.splitFea, node.splitElemFea, node.lson, node.rson});
    }
    WalkByRanks(splitV, values, std::move(rowV), ranks, pool,
                [&](int leaf, const int* row, const int* end) {
                    const double step = stepV[leaf];
                    for (; row < end; ++row) predictV[*row] += step;
                });
}

}  // namespace engine
}  // namespace sylvora

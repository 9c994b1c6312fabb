// Updates the training predictions; see PredictionUpdate.h.
#include "PredictionUpdate.h"

#include <algorithm>
#include <cstring>
#include <numeric>
#include <utility>

#include "base/Chunks.h"
#include "base/Gather.h"
#include "engine/train/RankedWalk.h"
#include "engine/train/RowKernels.h"

namespace sylvora {
namespace engine {
namespace {

constexpr int kChunkRows = 8192;
constexpr int kWalkRows = 16384;  // rows that walk down together
constexpr int kTogether = 8;      // rows that walk side by side, to overlap their loads
constexpr int kFewRows = 32;      // fewer walk on their own
constexpr int kBlockRows = 512;
constexpr int kAhead = 32;  // rows prefetched

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
    WalkNode walk = {};
    walk.childV[0] = fLeaf ? self : node.rson;
    walk.childV[1] = fLeaf ? self : node.lson;
    walk.binOfCodeV = kAnyBins;
    walk.unsureBin = ~uint32_t{0};
    // A column that is constant here belongs to another rank, which marks the rows.
    if (fLeaf || data.At(node.splitFea).IsConstant()) return walk;
    const Column& column = data.At(node.splitFea);
    walk.fWide = !column.fNarrow;
    walk.codeAt = static_cast<uint32_t>(column.codeIndex) << walk.fWide;
    if (column.fNarrow) walk.binOfCodeV = data.BinsOfCodes(column);
    const auto past =
        std::upper_bound(column.binValueV.begin(), column.binValueV.end(), node.splitElemFea);
    // The lowest value is at or below every threshold.
    walk.bin = static_cast<uint32_t>(past - column.binValueV.begin() - 1);
    if (!column.fExact) walk.unsureBin = walk.bin;
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

    // Walks the rows of [begin, end) that are 0 in fInTreeV. They go down together, node by node,
    // as long as there are many: then their codes in a column lie close together, and no row waits
    // for its own last step.
    void WalkUnmarked(int begin, int end, const LargeArray<uint8_t>& fInTreeV) const {
        int rowV[kWalkRows + RowKernels::kSlack];
        std::vector<Slice> sliceV(nodeV.size());  // of rowV, by node
        sliceV[0] = {0, kernels.list(fInTreeV.data() + begin, 0, begin, end - begin, rowV)};
        // Children come after their parents.
        for (size_t k = 0; k < nodeV.size(); ++k) {
            const GrownNode& node = nodeV[k];
            const auto [first, count] = sliceV[k];
            if (node.splitFea < 0) {
                for (int i = first; i < first + count; ++i) predictV[rowV[i]] += stepV[k];
            } else if (count >= kFewRows) {
                const int numLeft = Partition(node, walkV[k], rowV + first, count);
                sliceV[static_cast<size_t>(node.lson)] = {first, numLeft};
                sliceV[static_cast<size_t>(node.rson)] = {first + numLeft, count - numLeft};
            } else {
                WalkFew(static_cast<int>(k), rowV + first, count);
            }
        }
    }

    // Marks which rows of a block go left at a node whose column is not constant. By value, any
    // threshold is right.
    void MarkBlock(int at, bool fByValue, const int* rowV, int num, uint8_t* fLeftV) const {
        const GrownNode& node = nodeV[static_cast<size_t>(at)];
        if (!fByValue) return MarkLeft(node, walkV[static_cast<size_t>(at)], rowV, num, fLeftV);
        for (int i = 0; i < num; ++i) {
            fLeftV[i] = data.Value(rowV[i], node.splitFea) <= node.splitElemFea;
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

    // Rows of a chunk.
    struct Slice {
        int begin = 0;
        int count = 0;
    };

    // Moves the rows that go left to the front, and returns their number. Rows stay in order.
    int Partition(const GrownNode& node, const WalkNode& walk, int* rowV, int count) const {
        int rightV[kWalkRows], sideVV[2][kBlockRows + RowKernels::kSlack];
        uint8_t fLeftV[kBlockRows];
        int numLeft = 0;
        for (int i = 0; i < count; i += kBlockRows) {
            const int num = std::min(kBlockRows, count - i);
            MarkLeft(node, walk, rowV + i, num, fLeftV);
            const int left = kernels.split(rowV + i, fLeftV, num, sideVV[0], sideVV[1]);
            std::copy_n(sideVV[1], num - left, rightV + i - numLeft);
            std::copy_n(sideVV[0], left, rowV + numLeft);
            numLeft += left;
        }
        std::copy_n(rightV, count - numLeft, rowV + numLeft);
        return numLeft;
    }

    // Marks which rows of a block go left. The 8-bit code decides, but of a wide column not the
    // code of the threshold's bin: such rows need their rank, and of that bin their value.
    void MarkLeft(const GrownNode& node, const WalkNode& walk, const int* rowV, int num,
                  uint8_t* fLeftV) const {
        const Column& column = data.At(node.splitFea);
        const uint8_t* codes =
            column.fNarrow ? data.GroupOf(column).codeV.data() : column.code8V.data();
        const int code = column.Code8OfBin(static_cast<int>(walk.bin));
        uint8_t codeV[kBlockRows];
        Gather(codes, rowV, num, codeV);
        if (column.fNarrow) {
            for (int i = 0; i < num; ++i) fLeftV[i] = walk.binOfCodeV[codeV[i]] <= code;
            return;
        }
        uint8_t fUnsureV[kBlockRows];
        for (int i = 0; i < num; ++i) fLeftV[i] = codeV[i] < code;
        for (int i = 0; i < num; ++i) fUnsureV[i] = codeV[i] == code;
        int unsureV[kBlockRows + RowKernels::kSlack];
        const int numUnsure = kernels.list(fUnsureV, 1, 0, num, unsureV);
        const uint32_t first = column.binFirstRankV[walk.bin];
        const uint32_t past = column.binFirstRankV[walk.bin + 1];
        for (int k = 0; k < numUnsure; ++k) {
            const int row = rowV[unsureV[k]];
            const uint32_t rank =
                column.ranks.At(static_cast<size_t>(row), static_cast<size_t>(code));
            const bool fOfBin = rank >= first && rank < past && !column.fExact;
            fLeftV[unsureV[k]] =
                fOfBin ? data.Value(row, node.splitFea) <= node.splitElemFea : rank < past;
        }
    }

    // Walks a few rows from a node on, each on its own.
    void WalkFew(int from, const int* rowV, int num) const {
        for (int i = 0; i < num; i += kTogether) {
            WalkTogether(from, rowV + i, std::min(kTogether, num - i));
        }
    }

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
    void WalkTogether(int from, const int* rowV, int num) const {
        CodedRow codedV[kTogether];
        int atV[kTogether];
        std::fill_n(atV, kTogether, from);
        for (int i = 0; i < num; ++i) {
            codedV[i] = {{data.GroupRows().Row(rowV[i]),
                          reinterpret_cast<const uint8_t*>(data.WideRows().Row(rowV[i]))}};
        }
        for (int level = nodeV[static_cast<size_t>(from)].depth; level < depth; ++level) {
            for (int i = 0; i < num; ++i) atV[i] = Next(atV[i], rowV[i], codedV[i]);
        }
        for (int i = 0; i < num; ++i) predictV[rowV[i]] += stepV[atV[i]];
    }

    const RowKernels& kernels = BestRowKernels();
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
                predictV + indexV[static_cast<size_t>(i + std::min(kAhead, leafChunk.end - 1 - i))],
                1);
            predictV[indexV[static_cast<size_t>(i)]] += leafChunk.step;
        }
    });
}

// The rows that are not in the tree, or all, in ascending order.
LargeArray<int> RowsToWalk(const HistogramGrower& grower, bool fOthersOnly) {
    const LargeArray<uint8_t>& fInTreeV = grower.RowMarks();
    const size_t numRows = fInTreeV.size() - (fOthersOnly ? grower.Rows().size() : 0);
    LargeArray<int> rowV(numRows + RowKernels::kSlack);
    if (fOthersOnly) {
        BestRowKernels().list(fInTreeV.data(), 0, 0, static_cast<int>(fInTreeV.size()),
                              rowV.data());
    } else {
        std::iota(rowV.begin(), rowV.end(), 0);
    }
    rowV.resize(numRows);
    return rowV;
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
    const Chunks walks = {numRows, kWalkRows};
    pool.For(walks.Num(), [&](int chunk, int) {
        walker.WalkUnmarked(walks.Begin(chunk), walks.End(chunk), grower.RowMarks());
    });
}

// Rows walk only if their slice does not tell their leaf.
void StepPredictionsByRanks(const HistogramGrower& grower, const BinnedColumns& data, Ranks& ranks,
                            WorkerPool& pool, const double* stepV, double* predictV) {
    const bool fSlices = grower.SlicesMatchThresholds();
    if (fSlices) StepSlices(grower, pool, stepV, predictV);
    LargeArray<int> rowV = RowsToWalk(grower, fSlices);
    if (rowV.empty()) return;
    std::vector<WalkSplit> splitV;
    for (const GrownNode& node : grower.Nodes()) {
        splitV.push_back({node.splitFea, node.lson, node.rson});
    }
    const Walker walker(grower.Nodes(), stepV, data, predictV);
    WalkSteps steps;
    steps.markLeft = [&](int node, const int* rows, int count, uint8_t* fLeftV) {
        walker.MarkBlock(node, !fSlices, rows, count, fLeftV);
    };
    steps.atLeaf = [&](int leaf, const int* row, const int* end) {
        const double step = stepV[leaf];
        for (; row < end; ++row) predictV[*row] += step;
    };
    WalkByRanks(splitV, std::move(rowV), ranks, pool, steps);
}

}  // namespace engine
}  // namespace sylvora

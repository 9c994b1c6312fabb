// What groups and trees give for the rows of a block; see ModelParts.h.
#include <algorithm>
#include <atomic>
#include <string>
#include <vector>

#include "../TreeLearner.h"
#include "../god/Report.h"
#include "../god/Truncation.h"
#include "CallScope.h"
#include "EnsembleView.h"
#include "ModelParts.h"
#include "base/BlockReader.h"
#include "base/WorkerPool.h"
#include "engine/score/BatchScoring.h"
#include "engine/score/PackedTrees.h"
#include "engine/score/PackedWalk.h"

namespace sylvora {
namespace {

using engine::PackedNode;
using engine::PackedTree;
using engine::PackedTrees;

// Rows are walked in pieces: few rows, so that they stay in the cache while all trees walk them, or
// many, if the trees have so many nodes that these must be fetched again for each piece.
constexpr int kPieceRows = 128;
constexpr int kLongPieceRows = 2048;
constexpr size_t kManyNodes = size_t{1} << 15;
// The most values of a piece.
constexpr int kPieceValues = 1 << 20;
// About how many features are read and coded in the time of one walk.
constexpr size_t kWalkCost = 3;
// For fewer rows, looking for the columns that the trees test takes longer than reading all.
constexpr int kFewRows = 20;

// The trees [begin, end) of an ensemble.
struct TreeRange {
    const PackedTrees& trees;
    size_t begin, end;

    size_t Size() const { return end - begin; }
    size_t NumNodes() const {
        size_t numNodes = 0;
        for (size_t t = begin; t < end; ++t) numNodes += trees.treeV[t].numNodes;
        return numNodes;
    }
    // The columns below `width` that the trees test, ascending.
    VecInt Columns(int width) const {
        std::vector<bool> fTestedV(static_cast<size_t>(width), false);
        for (size_t t = begin; t < end; ++t) {
            const PackedTree& tree = trees.treeV[t];
            std::for_each_n(tree.nodeV.get(), tree.numNodes, [&](const PackedNode& node) {
                const bool fTests = !node.IsLeaf() && node.splitFea >= 0 && node.splitFea < width;
                if (fTests) fTestedV[static_cast<size_t>(node.splitFea)] = true;
            });
        }
        VecInt columnV;
        for (int column = 0; column < width; ++column) {
            if (fTestedV[static_cast<size_t>(column)]) columnV.push_back(column);
        }
        return columnV;
    }
};

// A piece of a block's rows, as rows of doubles.
struct Piece {
    const double* const* rowV;
    size_t first;  // row of the block
    int numRows;
};

// Rows of doubles for one worker, filled piece by piece.
class PieceBuffer {
  public:
    PieceBuffer(int pieceRows, int width) : numColumns(width) {
        const size_t rowValues = static_cast<size_t>(width);
        valueV.resize(static_cast<size_t>(pieceRows) * rowValues);
        for (int i = 0; i < pieceRows; ++i) {
            rowV.push_back(valueV.data() + static_cast<size_t>(i) * rowValues);
        }
    }

    // Reads the given columns, ascending, of the rows [begin, end). Others keep any value.
    Piece Read(const BlockReader& reader, const VecInt& columnV, int begin, int end) {
        const size_t width = static_cast<size_t>(numColumns);
        if (columnV.size() == width) {
            reader.ReadRows(begin, end, numColumns, valueV.data());
        } else {
            for (const int column : columnV) {
                double* const values = valueV.data() + column;
                reader.ForColumn(column, begin, end, [=](int row, double value) {
                    values[static_cast<size_t>(row - begin) * width] = value;
                });
            }
        }
        return {rowV.data(), static_cast<size_t>(begin), end - begin};
    }

  private:
    const int numColumns;
    std::vector<double> valueV;
    std::vector<const double*> rowV;
};

// Calls task(piece) for all rows, in several threads. All memory is allocated before the first
// call. The task must not fail.
template <typename Task>
void ForPieces(const BlockReader& reader, const TreeRange& range, int width, int maxThreads,
               const Task& task) {
    const int numRows = reader.NumRows();
    const int mostRows = range.NumNodes() > kManyNodes ? kLongPieceRows : kPieceRows;
    const int pieceRows = std::clamp(kPieceValues / width, 1, std::min(mostRows, numRows));
    const int numPieces = (numRows - 1) / pieceRows + 1;
    VecInt columnV;
    if (numRows >= kFewRows) columnV = range.Columns(width);
    // Where most columns are needed, reading whole rows is as fast, and faster if they are sparse.
    if (numRows < kFewRows || columnV.size() * 2 > static_cast<size_t>(width)) {
        columnV.resize(static_cast<size_t>(width));
        for (int column = 0; column < width; ++column) {
            columnV[static_cast<size_t>(column)] = column;
        }
    }
    const int numThread =
        std::min(engine::NumScoringThreads(static_cast<size_t>(numRows), range.Size(), maxThreads),
                 numPieces);
    WorkerPool pool;
    // Deliberately ignored: if not all threads start, fewer do the same work.
    static_cast<void>(pool.Start(numThread));
    std::vector<PieceBuffer> bufferV;
    for (int worker = 0; worker < pool.NumWorkers(); ++worker) {
        bufferV.emplace_back(pieceRows, width);
    }
    pool.For(numPieces, [&](int number, int worker) {
        const int begin = number * pieceRows;
        const int end = std::min(numRows - begin, pieceRows) + begin;
        task(bufferV[static_cast<size_t>(worker)].Read(reader, columnV, begin, end));
    });
}

}  // namespace

// A learner and a block that are checked; runs one call.
class ModelParts::Work {
  public:
    // Returns 0, or -1 after a message.
    [[nodiscard]] static int Check(const TreeLearner& learner, const DataBlock& block,
                                   const void* results) {
        if (learner.CheckBlock(block) != 0) return -1;
        if (learner.packedTrees == nullptr) return Fail("ERROR: The model has no packed trees!\n");
        const bool fNull = results == nullptr && block.numRows > 0;
        return fNull ? Fail("ERROR: The results are a null pointer!\n") : 0;
    }

    Work(const TreeLearner& treeLearner, const DataBlock& block, int threads)
        : learner(treeLearner),
          trees(*treeLearner.packedTrees),
          reader(block),
          width(std::max(treeLearner.dimFea, treeLearner.modelDim)),
          maxThreads(threads) {}

    void AddGroups(size_t first, size_t end, double* scores) const;
    void FindLeaves(int* leaves) const;
    int CountVotes(double* shares) const;

  private:
    size_t NumTrees() const { return trees.groupEndV.back(); }
    void AddOneByOne(size_t first, size_t end, double* scores) const;
    void WalkGroups(size_t first, size_t end, double* scores) const;
    int CheckClasses() const;

    const TreeLearner& learner;
    const PackedTrees& trees;
    const BlockReader reader;
    const int width;
    const int maxThreads;
};

// Many groups are worth the work of the compiled ensemble, which reads and codes all features
// before the first tree.
void ModelParts::Work::AddGroups(size_t first, size_t end, double* scores) const {
    const engine::CompiledEnsemble* const compiled = learner.Compiled();
    if (compiled == nullptr) return AddOneByOne(first, end, scores);
    if (reader.NumRows() >= kFewRows) {
        const engine::GroupRange range(*compiled, first, end);
        if (range.numTrees * kWalkCost >= range.numFeatures &&
            range.numTrees * kWalkCost >= static_cast<size_t>(width)) {
            const engine::RowTable rows = {nullptr, static_cast<size_t>(reader.NumRows()),
                                           static_cast<size_t>(width), &reader};
            return engine::AddRows(*compiled, range, rows, scores, maxThreads);
        }
    }
    WalkGroups(first, end, scores);
}

// The reference implementation.
void ModelParts::Work::AddOneByOne(size_t first, size_t end, double* scores) const {
    const EnsembleView view(learner);
    VecDle row(static_cast<size_t>(width));
    for (int i = 0; i < reader.NumRows(); ++i) {
        reader.ReadRows(i, i + 1, width, row.data());
        for (size_t g = first; g < end; ++g) {
            const size_t numTrees = view.GroupSize(g);
            double sum = 0.0;
            for (size_t t = 0; t < numTrees; ++t) sum += view.Tree(g, t).Predict(row.data());
            scores[i] += learner.StepLengthV[g] * (sum / static_cast<double>(numTrees));
        }
    }
}

void ModelParts::Work::WalkGroups(size_t first, size_t end, double* scores) const {
    const TreeRange range = {trees, trees.GroupBegin(first), trees.groupEndV[end - 1]};
    ForPieces(reader, range, width, maxThreads, [&](const Piece& piece) {
        int leafV[kLongPieceRows];
        double sumV[kLongPieceRows];
        double* const results = scores + piece.first;
        for (size_t g = first; g < end; ++g) {
            std::fill_n(sumV, piece.numRows, 0.0);
            for (size_t t = trees.GroupBegin(g); t < trees.groupEndV[g]; ++t) {
                const PackedTree& tree = trees.treeV[t];
                engine::FindLeaves(tree, piece.rowV, piece.numRows, leafV);
                for (int i = 0; i < piece.numRows; ++i) sumV[i] += tree.nodeV[leafV[i]].avgPredict;
            }
            const double shrink = learner.StepLengthV[g];
            const double numTrees = static_cast<double>(trees.GroupSize(g));
            for (int i = 0; i < piece.numRows; ++i) results[i] += shrink * (sumV[i] / numTrees);
        }
    });
}

void ModelParts::Work::FindLeaves(int* leaves) const {
    const size_t numTrees = NumTrees();
    ForPieces(reader, {trees, 0, numTrees}, width, maxThreads, [&](const Piece& piece) {
        int leafV[kLongPieceRows];
        int* const rows = leaves + piece.first * numTrees;
        for (size_t t = 0; t < numTrees; ++t) {
            engine::FindLeaves(trees.treeV[t], piece.rowV, piece.numRows, leafV);
            for (int i = 0; i < piece.numRows; ++i) {
                rows[static_cast<size_t>(i) * numTrees + t] = leafV[i];
            }
        }
    });
}

// A leaf votes for the class that its value truncates to. The shares count first: whole numbers are
// exact.
int ModelParts::Work::CountVotes(double* shares) const {
    const size_t numTrees = NumTrees();
    if (numTrees == 0) return Fail("ERROR: The model has no trees that vote!\n");
    if (learner.Compiled() == nullptr && CheckClasses() != 0) return -1;
    const size_t numClasses = static_cast<size_t>(learner.numClass);
    ForPieces(reader, {trees, 0, numTrees}, width, maxThreads, [&](const Piece& piece) {
        int leafV[kLongPieceRows];
        double* const rows = shares + piece.first * numClasses;
        const size_t numShares = static_cast<size_t>(piece.numRows) * numClasses;
        std::fill_n(rows, numShares, 0.0);
        for (size_t t = 0; t < numTrees; ++t) {
            const PackedTree& tree = trees.treeV[t];
            engine::FindLeaves(tree, piece.rowV, piece.numRows, leafV);
            for (int i = 0; i < piece.numRows; ++i) {
                const size_t cls = static_cast<size_t>(tree.nodeV[leafV[i]].avgPredict);
                rows[static_cast<size_t>(i) * numClasses + cls] += 1.0;
            }
        }
        const double numVotes = static_cast<double>(numTrees);
        for (size_t k = 0; k < numShares; ++k) rows[k] /= numVotes;
    });
    return 0;
}

// Refuses leaves whose output is not a class. A compiled ensemble has none. Nodes that no row can
// reach do not count; children follow their parents.
int ModelParts::Work::CheckClasses() const {
    for (size_t t = 0; t < NumTrees(); ++t) {
        const PackedTree& tree = trees.treeV[t];
        std::vector<bool> fReachedV(tree.numNodes, false);
        fReachedV[0] = true;
        for (size_t k = 0; k < tree.numNodes; ++k) {
            const PackedNode& node = tree.nodeV[k];
            if (!fReachedV[k]) continue;
            if (!node.IsLeaf()) {
                fReachedV[static_cast<size_t>(node.lson)] = true;
                fReachedV[static_cast<size_t>(node.rson)] = true;
                continue;
            }
            const int cls = Truncate<int>(node.avgPredict);
            if (cls >= 0 && cls < learner.numClass) continue;
            return Fail("ERROR: Class label ", node.avgPredict, " of tree ", t, ", node ", k,
                        " is not one of the ", learner.numClass, " classes!\n");
        }
    }
    return 0;
}

int ModelParts::AddGroups(const TreeLearner& learner, const DataBlock& block, Groups groups,
                          double* scores, int maxThreads) {
    const TreeLearner::CallScope scope(learner);
    return Guarded([&] {
        if (Work::Check(learner, block, scores) != 0) return -1;
        if (learner.CfgInfo.fRegCls == "CLS") {
            return Fail("ERROR: The groups of a classification have no outputs to add!\n");
        }
        if (groups.first < 0 || groups.first > groups.end || groups.end > learner.getGroupNum()) {
            return Fail("ERROR: There are no groups ", groups.first, " to ", groups.end,
                        ": the model has ", learner.getGroupNum(), "!\n");
        }
        if (block.numRows == 0 || groups.first == groups.end) return 0;
        Work(learner, block, maxThreads)
            .AddGroups(static_cast<size_t>(groups.first), static_cast<size_t>(groups.end), scores);
        return 0;
    });
}

int ModelParts::FindLeaves(const TreeLearner& learner, const DataBlock& block, int* leaves,
                           int maxThreads) {
    const TreeLearner::CallScope scope(learner);
    return Guarded([&] {
        if (Work::Check(learner, block, leaves) != 0) return -1;
        if (block.numRows > 0) Work(learner, block, maxThreads).FindLeaves(leaves);
        return 0;
    });
}

int ModelParts::CountVotes(const TreeLearner& learner, const DataBlock& block, double* shares,
                           int maxThreads) {
    const TreeLearner::CallScope scope(learner);
    return Guarded([&] {
        if (Work::Check(learner, block, shares) != 0) return -1;
        if (learner.CfgInfo.fRegCls != "CLS") {
            return Fail("ERROR: The trees of a regression do not vote!\n");
        }
        return block.numRows > 0 ? Work(learner, block, maxThreads).CountVotes(shares) : 0;
    });
}

}  // namespace sylvora

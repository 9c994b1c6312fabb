// Batch scoring; see BatchScoring.h.
#include "BatchScoring.h"

#include <algorithm>
#include <vector>

#include "GroupTotals.h"
#include "base/UsableCpus.h"
#include "base/WorkerPool.h"

namespace sylvora {
namespace engine {
namespace {

// Tiles per block. A bundle's trees stay in the L1 cache while they score all tiles of a block, so
// a block is as large as the L2 cache allows.
constexpr int kMaxTiles = 8;
// The most vote counters (rows times classes) of a block; with many classes, blocks are smaller.
constexpr int kMaxCounts = 1 << 16;
// Work, in rows times trees, that is worth starting one more thread.
constexpr size_t kVisitsPerThread = 100000;

// Scores one block at a time. Each worker has its own, since it owns the buffers of a block.
template <typename Totals>
class BlockScorer {
  public:
    // `groups` is null for all groups. `numRead` is the number of values to read from a block at
    // once.
    BlockScorer(const CompiledEnsemble& compiled, const GroupRange* groups, int maxTiles,
                size_t numRead)
        : ensemble(compiled),
          fAdd(groups != nullptr),
          bundleV(fAdd ? groups->bundleV : compiled.bundleV),
          pieceV(fAdd ? groups->pieceV : compiled.pieceV),
          rowV(static_cast<size_t>(maxTiles) * kTileRows),
          readV(numRead),
          totals(compiled.numClass, maxTiles) {
        int maxBands = 0;
        for (const RowQuantiser& quantiser : ensemble.quantiserV) {
            maxBands = std::max(maxBands, quantiser.NumBands());
        }
        codeV.resize(static_cast<size_t>(maxBands) * static_cast<size_t>(maxTiles) * kTileRows);
    }

    void Score(const RowTable& table, double* results) {
        const int numRows = static_cast<int>(table.numRows);
        RowTable rows = table;
        if (table.block != nullptr) {
            const int first = static_cast<int>(table.firstRow);
            table.block->ReadRows(first, first + numRows, static_cast<int>(table.stride),
                                  readV.data());
            rows.values = readV.data();
        }
        numTiles = (numRows + kTileRows - 1) / kTileRows;
        // Kernels take whole tiles, so the last row fills up the last tile. Its extra scores are
        // not copied out.
        for (int r = 0; r < numTiles * kTileRows; ++r) {
            rowV[static_cast<size_t>(r)] = rows.Row(static_cast<size_t>(std::min(r, numRows - 1)));
        }
        totals.Begin(fAdd ? results : nullptr, numRows);
        int quantiser = -1;
        for (const Bundle& bundle : bundleV) {
            if (!bundle.IsCoded()) {
                AddWalked(bundle);
                continue;
            }
            // Coded bundles come in the order of their quantisers, so each quantiser runs once.
            if (quantiser != bundle.quantiser) QuantiseTiles(bundle.quantiser);
            quantiser = bundle.quantiser;
            AddCoded(bundle);
        }
        totals.CopyResults(results, numRows);
    }

  private:
    const double* const* TileRows(int tile) const { return rowV.data() + tile * kTileRows; }
    int8_t* TileCodes(int tile) {
        return codeV.data() + static_cast<size_t>(tile) * static_cast<size_t>(numBands) * kTileRows;
    }

    // Fills codeV with the codes of the block's tiles. Sets numBands, which TileCodes depends on.
    void QuantiseTiles(int index) {
        const RowQuantiser& quantiser = ensemble.quantiserV[static_cast<size_t>(index)];
        numBands = quantiser.NumBands();
        for (int tile = 0; tile < numTiles; ++tile) {
            quantiser.QuantiseTile(TileRows(tile), *ensemble.kernel, TileCodes(tile));
        }
    }

    // Adds a bundle of coded trees to the totals of all tiles. A leaf number indexes the tree's
    // 2^depth values.
    void AddCoded(const Bundle& bundle) {
        alignas(kTileRows) uint8_t leafV[kBundleTrees * kTileRows];
        const double* valueV[kBundleTrees];
        for (int t = 0; t < bundle.numTrees; ++t) {
            valueV[t] = ensemble.leafValueV.data() + bundle.firstLeaf +
                        (static_cast<size_t>(t) << bundle.depth);
        }
        for (int tile = 0; tile < numTiles; ++tile) {
            ensemble.kernel->findLeaves(ensemble.blockTreeV.data() + bundle.firstTree,
                                        bundle.numTrees, TileCodes(tile), leafV);
            AddTile(bundle, tile, leafV, valueV);
        }
    }

    // The same for a bundle of walked trees. A leaf is a node index, and values are indexed by
    // node.
    void AddWalked(const Bundle& bundle) {
        uint32_t leafV[kBundleTrees * kTileRows];
        const double* valueV[kBundleTrees];
        std::fill_n(valueV, kBundleTrees, ensemble.walked.Values().data());
        for (int tile = 0; tile < numTiles; ++tile) {
            for (int t = 0; t < bundle.numTrees; ++t) {
                uint32_t* const at = leafV + t * kTileRows;
                std::fill_n(at, kTileRows,
                            ensemble.rootV[bundle.firstTree + static_cast<size_t>(t)]);
                ensemble.walked.Walk(TileRows(tile), at, kTileRows);
            }
            AddTile(bundle, tile, leafV, valueV);
        }
    }

    // Adds the leaves of one tile to the totals, piece by piece. leafV and valueV are by tree of
    // the bundle, as PieceLeaves describes them.
    template <typename Leaf>
    void AddTile(const Bundle& bundle, int tile, const Leaf* leafV, const double* const* valueV) {
        const double* const shrinkV = ensemble.shrinkV.data() + bundle.firstTree;
        for (size_t k = bundle.firstPiece; k < bundle.endPiece; ++k) {
            const GroupPiece& piece = pieceV[k];
            const int t = piece.firstTree;
            totals.Add(piece, tile,
                       PieceLeaves<Leaf>{leafV + t * kTileRows, valueV + t, shrinkV + t});
        }
    }

    const CompiledEnsemble& ensemble;
    const bool fAdd;  // to the results that there are
    const std::vector<Bundle>& bundleV;
    const std::vector<GroupPiece>& pieceV;
    std::vector<const double*> rowV;  // by row of the block
    std::vector<double> readV;        // its values, if they are read from a borrowed block
    LineVector<int8_t> codeV;         // tile after tile, each numBands * kTileRows
    int numTiles = 0;                 // of the current block
    int numBands = 0;                 // of the current quantiser
    Totals totals;
};

// How the rows are shared out.
struct Sharing {
    int numWorkers;
    int maxTiles;  // of a block
};

// Four blocks per worker or more, where there are enough rows, so that all finish at about the same
// time.
Sharing ShareRows(size_t numRows, size_t numTrees, int numThread) {
    const int numWorkers = NumScoringThreads(numRows, numTrees, numThread);
    const size_t tilesPerWorker = numRows / kTileRows / static_cast<size_t>(numWorkers) / 4;
    const size_t maxTiles = std::clamp(tilesPerWorker, size_t{1}, size_t{kMaxTiles});
    return {numWorkers, static_cast<int>(maxTiles)};
}

// Workers take blocks one by one. Blocks write to disjoint ranges of `results`. All memory is
// allocated before the first block is scored.
template <typename Totals>
void ScoreBlocks(const CompiledEnsemble& ensemble, const GroupRange* groups, const RowTable& rows,
                 double* results, const Sharing& sharing) {
    const int maxTiles = sharing.maxTiles;
    const size_t blockRows = static_cast<size_t>(maxTiles) * kTileRows;
    const size_t numBlocks = (rows.numRows + blockRows - 1) / blockRows;
    WorkerPool pool;
    // Deliberately ignored: if not all threads start, fewer do the same work.
    static_cast<void>(
        pool.Start(static_cast<int>(std::min(static_cast<size_t>(sharing.numWorkers), numBlocks))));
    std::vector<BlockScorer<Totals>> scorerV;
    const size_t numRead = rows.block != nullptr ? blockRows * rows.stride : 0;
    for (int worker = 0; worker < pool.NumWorkers(); ++worker)
        scorerV.emplace_back(ensemble, groups, maxTiles, numRead);
    pool.For(static_cast<int>(numBlocks), [&](int block, int worker) {
        const size_t first = static_cast<size_t>(block) * blockRows;
        scorerV[static_cast<size_t>(worker)].Score(
            rows.Part(first, std::min(blockRows, rows.numRows - first)), results + first);
    });
}

}  // namespace

int NumScoringThreads(size_t numRows, size_t numTrees, int numThread) {
    const size_t maxThreads = 1 + numRows * (numTrees + 1) / kVisitsPerThread;
    // Counting the processors takes as long as scoring some rows, so do so only if it matters.
    const int numAsked = numThread > 0 || maxThreads == 1 ? numThread : NumUsableCpus();
    return static_cast<int>(std::min(static_cast<size_t>(std::max(numAsked, 1)), maxThreads));
}

void ScoreRows(const CompiledEnsemble& ensemble, const RowTable& rows, double* results,
               int numThread) {
    Sharing sharing = ShareRows(rows.numRows, ensemble.shrinkV.size(), numThread);
    if (ensemble.numClass == 0) {
        ScoreBlocks<RegressionTotals>(ensemble, nullptr, rows, results, sharing);
        return;
    }
    sharing.maxTiles =
        std::min(sharing.maxTiles, std::max(kMaxCounts / kTileRows / ensemble.numClass, 1));
    ScoreBlocks<VoteTotals>(ensemble, nullptr, rows, results, sharing);
}

void AddRows(const CompiledEnsemble& ensemble, const GroupRange& range, const RowTable& rows,
             double* scores, int numThread) {
    const Sharing sharing = ShareRows(rows.numRows, range.numTrees, numThread);
    ScoreBlocks<RegressionTotals>(ensemble, &range, rows, scores, sharing);
}

}  // namespace engine
}  // namespace sylvora

// The splits of a batch in a training by several ranks: each rank searches its own columns, and the
// rank that has a node's split tells the others, with the side of each row.
#include <algorithm>
#include <utility>

#include "OpenNode.h"

namespace sylvora {
namespace engine {
namespace {

// What the owner of a split's column sends, before the sides of the rows.
struct SplitRecord {
    SplitPoint split = {};
    Cell left = {};
};

RankBest BestOf(const SearchResult<Candidate>& found) {
    RankBest best;
    best.score = found.bestScore;
    best.error = found.scoreError;
    best.slot = found.winner.slot;
    best.fReferenceScore = found.fReferenceScore;
    return best;
}

}  // namespace

// Finds what other ranks may need to know of the node's best split before they search: without it,
// a rank would look into many columns that lose against those of another rank. Small nodes are
// searched as fast without.
void HistogramGrower::LookAhead(OpenNode& open, Worker& worker) {
    if (open.histogram == nullptr && CountOf(open) <= tuning.smallNode) return;
    const SearchTask task = TaskOf(open, worker);
    if (task.histogram == nullptr) return;
    open.ahead = worker.search.LookAhead(task);
    if (task.histogram != &worker.own) return;
    open.own = std::make_unique<Histogram>();
    open.own->shift = worker.own.shift;
}

void HistogramGrower::ExchangeBounds(OpenNode* batch, size_t numBatch) {
    std::vector<double> leastV;
    for (size_t b = 0; b < numBatch; ++b) {
        leastV.push_back(batch[b].ahead ? batch[b].ahead->leastBest : -1.0);
    }
    leastV = exchange->Highest(leastV);
    for (size_t b = 0; b < numBatch; ++b) batch[b].leastBest = leastV[b];
}

// Agrees on the split of each node of a batch that was searched, and marks the sides of its rows.
void HistogramGrower::ExchangeSplits(OpenNode* batch, size_t numBatch) {
    std::vector<RankBest> ownV(numBatch);
    std::transform(batch, batch + numBatch, ownV.begin(),
                   [](const OpenNode& open) { return BestOf(open.found); });
    const std::vector<int> rankV = exchange->ChooseRanks(
        ownV, [&](const std::vector<size_t>& tieV) { return FindReferenceScores(batch, tieV); });
    std::vector<SplitRecord> recordV(numBatch);
    std::vector<std::vector<uint8_t>> bitVV(numBatch);
    const auto forNodes = [&](const auto& step) {
        pool.For(static_cast<int>(numBatch), [&](int i, int worker) {
            const size_t b = static_cast<size_t>(i);
            const GrownNode& node = nodeV[static_cast<size_t>(batch[b].idxNode)];
            if (rankV[b] != SplitExchange::kNone) {
                step(b, node, rows.fLeftV.data() + node.startDoc,
                     *workerV[static_cast<size_t>(worker)]);
            }
        });
    };
    forNodes([&](size_t b, const GrownNode& node, const uint8_t* fLeftV, Worker& worker) {
        bitVV[b].resize(SplitExchange::NumBytes(node.countDoc));
        if (!exchange->IsOwn(rankV[b])) return;
        MarkSplit(batch[b], worker);
        recordV[b] = {batch[b].split, batch[b].left};
        SplitExchange::Pack(fLeftV, node.countDoc, bitVV[b].data());
    });
    std::vector<uint8_t*> bytesV;
    std::vector<size_t> numBytesV;
    for (std::vector<uint8_t>& bitV : bitVV) {
        bytesV.push_back(bitV.data());
        numBytesV.push_back(bitV.size());
    }
    exchange->Share(rankV, recordV, bytesV, numBytesV);
    forNodes([&](size_t b, const GrownNode& node, uint8_t* fLeftV, Worker&) {
        batch[b].split = recordV[b].split;
        batch[b].left = recordV[b].left;
        if (!exchange->IsOwn(rankV[b])) {
            SplitExchange::Unpack(bitVV[b].data(), node.countDoc, fLeftV);
        }
    });
}

// Decides the near-ties of this rank, and scores the outcome as the reference implementation does.
std::vector<RankBest> HistogramGrower::FindReferenceScores(OpenNode* batch,
                                                           const std::vector<size_t>& tieV) {
    std::vector<RankBest> bestV(tieV.size());
    pool.For(static_cast<int>(tieV.size()), [&](int i, int worker) {
        OpenNode& open = batch[tieV[static_cast<size_t>(i)]];
        SearchResult<Candidate>& found = open.found;
        // The score of a winner is not the reference's yet: it was the only one left.
        if (found.Found() && !found.fReferenceScore) found.tiedV.assign(1, found.winner);
        DecideTie(open, *workerV[static_cast<size_t>(worker)]);
        RankBest& best = bestV[static_cast<size_t>(i)];
        best.fReferenceScore = 1;
        if (found.Found()) {
            best.score = found.winner.score;
            best.slot = found.winner.slot;
        } else if (open.split.column >= 0) {
            best.score = open.split.score;
            const auto at = std::find(open.columnV.begin(), open.columnV.end(), open.split.column);
            best.slot = static_cast<int>(at - open.columnV.begin());
        }
    });
    return bestV;
}

}  // namespace engine
}  // namespace sylvora

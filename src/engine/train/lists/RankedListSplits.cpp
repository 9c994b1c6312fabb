// The splits of a batch in a training by several ranks: each rank searches its own columns, and the
// rank that has a node's split tells the others, with the side of each row.
#include <algorithm>

#include "OpenListNode.h"

namespace sylvora {
namespace engine {
namespace {

RankBest BestOf(const SearchResult<ListCandidate>& found) {
    RankBest best;
    best.score = found.bestScore;
    best.error = found.scoreError;
    best.balance = found.winner.balance;
    best.slot = found.winner.slot;
    best.fReferenceScore = found.fReferenceScore;
    return best;
}

}  // namespace

// Agrees on the split of each node of a batch that was searched, and marks the sides of its rows.
void SortedListGrower::ExchangeSplits(OpenNode* batch, size_t numBatch) {
    std::vector<RankBest> ownV(numBatch);
    std::transform(batch, batch + numBatch, ownV.begin(),
                   [](const OpenNode& open) { return BestOf(open.found); });
    const std::vector<int> rankV = exchange->ChooseRanks(
        ownV, [&](const std::vector<size_t>& tieV) { return FindReferenceScores(batch, tieV); });
    std::vector<SplitPoint> splitV(numBatch);
    std::vector<std::vector<uint8_t>> bitVV(numBatch);
    const auto forNodes = [&](const auto& step) {
        ForNodes(batch, numBatch, [&](OpenNode& open, Worker& worker) {
            const size_t b = static_cast<size_t>(&open - batch);
            const GrownNode& node = nodeV[static_cast<size_t>(open.idxNode)];
            if (rankV[b] != SplitExchange::kNone) {
                step(b, node, fLeftV.data() + node.startDoc, worker);
            }
        });
    };
    forNodes([&](size_t b, const GrownNode& node, const uint8_t* fLeft, Worker& worker) {
        bitVV[b].resize(SplitExchange::NumBytes(node.countDoc));
        if (!exchange->IsOwn(rankV[b])) return;
        OpenNode& open = batch[b];
        if (open.found.Found()) {
            MarkSplit(open, worker);
        } else if (open.split.column < 0) {
            AskReference(open, open.found.undecidedV);
        }
        splitV[b] = open.split;
        SplitExchange::Pack(fLeft, node.countDoc, bitVV[b].data());
    });
    std::vector<uint8_t*> bytesV;
    std::vector<size_t> numBytesV;
    for (std::vector<uint8_t>& bitV : bitVV) {
        bytesV.push_back(bitV.data());
        numBytesV.push_back(bitV.size());
    }
    exchange->Share(rankV, splitV, bytesV, numBytesV);
    forNodes([&](size_t b, const GrownNode& node, uint8_t* fLeft, Worker&) {
        batch[b].split = splitV[b];
        if (!exchange->IsOwn(rankV[b])) {
            SplitExchange::Unpack(bitVV[b].data(), node.countDoc, fLeft);
        }
    });
}

// The reference search finds the split of this rank, and its score. Only a regression gets here.
std::vector<RankBest> SortedListGrower::FindReferenceScores(OpenNode* batch,
                                                            const std::vector<size_t>& tieV) {
    std::vector<RankBest> bestV(tieV.size());
    pool.For(static_cast<int>(tieV.size()), [&](int i, int) {
        OpenNode& open = batch[tieV[static_cast<size_t>(i)]];
        RankBest& best = bestV[static_cast<size_t>(i)];
        if (open.found.fReferenceScore) {
            best = BestOf(open.found);
            return;
        }
        if (open.found.Found()) open.found.undecidedV.assign(1, open.found.winner.slot);
        open.found.winner = ListCandidate();
        AskReference(open, open.found.undecidedV);
        if (open.split.column < 0) return;
        best.score = open.split.score;
        best.fReferenceScore = 1;
        const int* const at =
            std::find(open.columnV, open.columnV + limits.numSelFea, open.split.column);
        best.slot = static_cast<int>(at - open.columnV);
    });
    return bestV;
}

}  // namespace engine
}  // namespace sylvora

// Agreement on splits; see SplitExchange.h.
#include "SplitExchange.h"

#include <algorithm>
#include <cstring>
#include <numeric>

namespace sylvora {
namespace engine {
namespace {

// The bests of all ranks: of rank r for node b of the batch at r * numNodes + b.
struct AllBests {
    const std::vector<RankBest>& allV;
    size_t numNodes;

    size_t NumRanks() const { return allV.size() / numNodes; }
    const RankBest& Of(size_t rank, size_t node) const { return allV[rank * numNodes + node]; }
};

// What is known of a node's split.
struct Choice {
    int rank = SplitExchange::kNone;
    bool fTie = false;  // several ranks may have the split, by scores that are not the reference's
    bool fOwnContends = false;  // the asking rank may have it
};

// A rank whose best may score as much as the lowest that the best of all ranks may score is a
// contender: the errors bound both. If only one is left, it has the split.
Choice ChooseRank(const AllBests& bests, size_t node, int ownRank) {
    double leastBest = -1.0;
    double mostError = 0.0;
    for (size_t r = 0; r < bests.NumRanks(); ++r) {
        const RankBest& best = bests.Of(r, node);
        if (!best.Found()) continue;
        leastBest = std::max(leastBest, best.score - best.error);
        mostError = std::max(mostError, best.error);
    }
    Choice choice;
    int numContenders = 0;
    bool fReference = true;
    for (size_t r = 0; r < bests.NumRanks(); ++r) {
        const RankBest& best = bests.Of(r, node);
        if (!best.Found() || !(best.score + mostError >= leastBest)) continue;
        ++numContenders;
        choice.fOwnContends = choice.fOwnContends || static_cast<int>(r) == ownRank;
        fReference = fReference && best.fReferenceScore != 0;
        const bool fFirst = choice.rank < 0;
        if (fFirst || best.IsBefore(bests.Of(static_cast<size_t>(choice.rank), node))) {
            choice.rank = static_cast<int>(r);
        }
    }
    choice.fTie = numContenders > 1 && !fReference;
    return choice;
}

}  // namespace

std::vector<double> SplitExchange::Highest(const std::vector<double>& ownV) {
    const std::vector<double> allV = ranks.GatherEach(ownV);
    std::vector<double> highestV = ownV;
    for (size_t i = 0; i < allV.size(); ++i) {
        double& highest = highestV[i % ownV.size()];
        highest = std::max(highest, allV[i]);
    }
    return highestV;
}

std::vector<int> SplitExchange::ChooseRanks(const std::vector<RankBest>& ownV,
                                            const FindScores& findReferenceScores) {
    std::vector<int> rankV(ownV.size(), kNone);
    if (ownV.empty()) return rankV;
    const std::vector<RankBest> allV = ranks.GatherEach(ownV);
    std::vector<size_t> tieV, ownTieV;
    for (size_t b = 0; b < ownV.size(); ++b) {
        const Choice choice = ChooseRank({allV, ownV.size()}, b, ranks.Rank());
        rankV[b] = choice.rank;
        if (choice.fTie) tieV.push_back(b);
        if (choice.fTie && choice.fOwnContends) ownTieV.push_back(b);
    }
    if (tieV.empty()) return rankV;
    std::vector<RankBest> bestV(tieV.size());
    if (!ownTieV.empty()) {
        const std::vector<RankBest> foundV = findReferenceScores(ownTieV);
        for (size_t i = 0; i < foundV.size(); ++i) {
            const auto at = std::lower_bound(tieV.begin(), tieV.end(), ownTieV[i]);
            bestV[static_cast<size_t>(at - tieV.begin())] = foundV[i];
        }
    }
    const std::vector<RankBest> referenceV = ranks.GatherEach(bestV);
    for (size_t i = 0; i < tieV.size(); ++i) {
        rankV[tieV[i]] = ChooseRank({referenceV, tieV.size()}, i, ranks.Rank()).rank;
    }
    return rankV;
}

// Eight rows at a time, as the bytes of a word, the first of which is the lowest. The product moves
// bit 0 of byte i to bit 56 + i.
void SplitExchange::Pack(const uint8_t* fLeftV, int numRows, uint8_t* bits) {
    for (int i = 0; i < numRows; i += 8) {
        uint64_t marks = 0;
        std::memcpy(&marks, fLeftV + i, static_cast<size_t>(std::min(numRows - i, 8)));
        bits[i / 8] = static_cast<uint8_t>((marks * 0x0102040810204080) >> 56);
    }
}

// Byte i of a word gets bit i of the eight; what is not 0 then carries into the byte's highest bit.
void SplitExchange::Unpack(const uint8_t* bits, int numRows, uint8_t* fLeftV) {
    for (int i = 0; i < numRows; i += 8) {
        const uint64_t copies = uint64_t{bits[i / 8]} * 0x0101010101010101;
        const uint64_t set = copies & 0x8040201008040201;
        const uint64_t marks = (set + 0x7f7f7f7f7f7f7f7f) >> 7 & 0x0101010101010101;
        std::memcpy(fLeftV + i, &marks, static_cast<size_t>(std::min(numRows - i, 8)));
    }
}

// The bits behind the last row are 0.
int SplitExchange::CountLeft(const uint8_t* bits, int numRows) {
    int numLeft = 0;
    for (size_t i = 0; i < NumBytes(numRows); ++i) numLeft += __builtin_popcount(bits[i]);
    return numLeft;
}

// One broadcast per rank that has a node: its records, each with its bytes. If little is lost by
// making the messages equally long, then one exchange for all.
void SplitExchange::ShareBytes(const std::vector<int>& rankV, uint8_t* records, size_t recordBytes,
                               const std::vector<uint8_t*>& bytesV,
                               const std::vector<size_t>& numBytesV) {
    constexpr size_t kFewBytes = 4096;  // such a message takes hardly longer than an empty one
    const size_t numRanks = static_cast<size_t>(ranks.Size());
    std::vector<size_t> sizeV(numRanks);
    for (size_t b = 0; b < rankV.size(); ++b) {
        if (rankV[b] != kNone) sizeV[static_cast<size_t>(rankV[b])] += recordBytes + numBytesV[b];
    }
    // Calls copy(place in the message of a rank, place of the node, size) for all parts in order.
    const auto forParts = [&](int rank, uint8_t* message, const auto& copy) {
        for (size_t b = 0; b < rankV.size(); ++b) {
            if (rankV[b] != rank) continue;
            copy(message, records + b * recordBytes, recordBytes);
            copy(message + recordBytes, bytesV[b], numBytesV[b]);
            message += recordBytes + numBytesV[b];
        }
    };
    const auto write = [&](uint8_t* message) {
        forParts(ranks.Rank(), message, [](uint8_t* at, const uint8_t* own, size_t size) {
            if (size > 0) std::memcpy(at, own, size);
        });
    };
    const auto read = [&](int rank, uint8_t* message) {
        if (IsOwn(rank)) return;
        forParts(rank, message, [](const uint8_t* at, uint8_t* own, size_t size) {
            if (size > 0) std::memcpy(own, at, size);
        });
    };
    const size_t most = *std::max_element(sizeV.begin(), sizeV.end());
    const size_t total = std::accumulate(sizeV.begin(), sizeV.end(), size_t{0});
    const bool fTogether = total > most && (most <= kFewBytes || most * numRanks <= 2 * total);
    std::vector<uint8_t> messageV(most);
    if (fTogether) {
        write(messageV.data());
        std::vector<uint8_t> allV = ranks.GatherEach(messageV);
        for (int rank = 0; rank < ranks.Size(); ++rank) {
            read(rank, allV.data() + static_cast<size_t>(rank) * most);
        }
        return;
    }
    for (int rank = 0; rank < ranks.Size(); ++rank) {
        const size_t size = sizeV[static_cast<size_t>(rank)];
        if (size == 0) continue;
        if (IsOwn(rank)) write(messageV.data());
        ranks.Broadcast(messageV.data(), size, rank);
        read(rank, messageV.data());
    }
}

}  // namespace engine
}  // namespace sylvora

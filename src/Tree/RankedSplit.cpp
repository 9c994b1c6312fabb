// The split of a node in a training by several ranks, without the engine.
#include <algorithm>
#include <vector>

#include "Growth.h"
#include "engine/train/SplitExchange.h"

using sylvora::engine::RankBest;
using sylvora::engine::SplitExchange;

namespace {

// What the owner of a split's column sends, before the sides of the rows.
struct NodeSplit {
    double score = -1.0;
    double threshold = -1.0;
    double balance = 0.0;
    int column = -1;
    int countL = 0;
    int fNarrow = 0;
};

}  // namespace

// The node was searched in this rank's columns: takes the best split of all ranks, and partitions
// the node's rows by it. `criteria` is the score of the split, before and after.
int TreeCR::SplitByRanks(Growth& growth, NodeCR& node, double& criteria) {
    SplitExchange exchange(*ranks);
    RankBest own;
    own.fReferenceScore = 1;
    if (node.splitFea >= 0) {
        own.score = criteria;
        own.balance = node.imbr;
        const auto at = std::find(growth.selFeaV.begin(), growth.selFeaV.end(), node.splitFea);
        own.slot = static_cast<int>(at - growth.selFeaV.begin());
    }
    const std::vector<int> rankV = exchange.ChooseRanks({own}, {});
    std::vector<uint8_t> fLeftV(static_cast<size_t>(node.countDoc));
    std::vector<uint8_t> bitV(SplitExchange::NumBytes(node.countDoc));
    std::vector<NodeSplit> splitV(1);
    if (exchange.IsOwn(rankV[0])) {
        splitV[0] = {criteria,      node.splitElemFea, node.imbr,
                     node.splitFea, node.countL,       node.fNarrowSplit};
        node.SidesOfRows(growth.featureVV, growth.indexV, fLeftV.data());
        SplitExchange::Pack(fLeftV.data(), node.countDoc, bitV.data());
    }
    exchange.Share(rankV, splitV, {bitV.data()}, {bitV.size()});
    const NodeSplit& split = splitV[0];
    criteria = split.score;
    node.splitElemFea = split.threshold;
    node.imbr = split.balance;
    node.splitFea = split.column;
    node.countL = split.countL;
    node.fNarrowSplit = split.fNarrow != 0;
    SplitExchange::Unpack(bitV.data(), node.countDoc, fLeftV.data());
    node.SplitBySides(fLeftV.data(), growth.indexV);
    return 0;
}

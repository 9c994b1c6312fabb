// Padded trees and the forms made of them; see PaddedTree.h.
#include "PaddedTree.h"

#include <algorithm>
#include <cmath>

namespace sylvora {
namespace engine {
namespace {

constexpr int kChunkLevels = 3;

}  // namespace

PaddedTree::PaddedTree(const PackedNode* nodes, int treeDepth)
    : depth(treeDepth), nodeV(size_t{2} << treeDepth, nullptr) {
    nodeV[1] = nodes;
    for (size_t i = 1; i < nodeV.size(); ++i) {
        const PackedNode*& node = nodeV[i];
        if (node == nullptr) continue;
        // No value is at most NaN: such a test is none.
        while (!node->IsLeaf() && std::isnan(node->splitElemFea)) node = nodes + node->rson;
        if (i >= End()) continue;
        nodeV[2 * i] = node->IsLeaf() ? node : nodes + node->lson;
        nodeV[2 * i + 1] = node->IsLeaf() ? nullptr : nodes + node->rson;
    }
}

void PaddedTree::FillRowTests(const ThresholdCodes& codes, int lane, RowTests* testsV) const {
    for (size_t i = 1; i < End(); ++i) {
        if (!IsTest(i)) continue;
        const auto place = codes.Find(nodeV[i]->splitFea, nodeV[i]->splitElemFea);
        testsV[i].bandV[lane] = static_cast<uint8_t>(codes.Band(place));
        testsV[i].testV[lane] = CountByte(ThresholdCodes::Test(place));
    }
}

void PaddedTree::AppendValues(LineVector<double>& valueV) const {
    for (size_t i = End(); i < nodeV.size(); ++i) {
        valueV.push_back(nodeV[i] != nullptr ? nodeV[i]->avgPredict : 0.0);
    }
}

// The tests of the levels below position `top`, padded to three levels.
ChunkTests PaddedTree::Tests(const ThresholdCodes& codes, size_t top, int numLevels) const {
    ChunkTests tests;
    int k = 0;
    for (int level = 0; level < kChunkLevels; ++level) {
        for (size_t i = top << level; i < (top + 1) << level; ++i, ++k) {
            tests.codeAtV[k] = 0;
            tests.testV[k] = ChunkTests::Spread(kAlwaysLeft);
            if (level >= numLevels || !IsTest(i)) continue;
            const auto place = codes.Find(nodeV[i]->splitFea, nodeV[i]->splitElemFea);
            tests.codeAtV[k] = codes.CodeAt(place);
            tests.testV[k] = ChunkTests::Spread(ThresholdCodes::Test(place));
        }
    }
    return tests;
}

void PaddedTree::AppendChunks(const ThresholdCodes& codes, std::vector<LeafChunk>& leafChunkV,
                              std::vector<JoinChunk>& joinV) const {
    std::vector<uint8_t> chunkV(End(), 0);  // of a position: the chunk that finds its leaf numbers
    uint8_t numChunks = 0;
    int level = depth - kChunkLevels;
    const size_t firstTop = size_t{1} << level;
    for (size_t top = firstTop; top < 2 * firstTop; ++top) {
        if (nodeV[top] == nullptr) continue;
        const size_t secondLeaf = ((top - firstTop) << kChunkLevels) + 1;
        chunkV[top] = numChunks++;
        leafChunkV.push_back({Tests(codes, top, kChunkLevels), static_cast<uint8_t>(secondLeaf)});
    }
    while (level > 0) {
        const int numLevels = std::min(level, kChunkLevels);
        const int numUnused = kChunkLevels - numLevels;
        level -= numLevels;
        for (size_t top = size_t{1} << level; top < size_t{2} << level; ++top) {
            if (nodeV[top] == nullptr) continue;
            const size_t firstEnd = top << numLevels;
            chunkV[top] = chunkV[firstEnd];
            if (!IsTest(top)) continue;
            JoinChunk join = {Tests(codes, top, numLevels), {}};
            for (size_t k = 0; k < 8; ++k) {
                const int son = chunkV[firstEnd + (k >> numUnused)];
                join.sonAtV[k] = static_cast<uint16_t>(son * kTileRows);
            }
            chunkV[top] = numChunks++;
            joinV.push_back(join);
        }
    }
}

}  // namespace engine
}  // namespace sylvora

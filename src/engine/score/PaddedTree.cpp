// Padded trees and the forms that the kernels take; see PaddedTree.h.
#include "PaddedTree.h"

#include <algorithm>
#include <cmath>

namespace sylvora {
namespace engine {
namespace {

constexpr int kSubtreeLevels = 3;

}  // namespace

PaddedTree::PaddedTree(const PackedNode* nodes, int treeDepth)
    : depth(treeDepth), nodeV(size_t{2} << treeDepth, nullptr) {
    nodeV[1] = nodes;
    for (size_t i = 1; i < nodeV.size(); ++i) {
        const PackedNode*& node = nodeV[i];
        if (node == nullptr) continue;
        // No value is at most NaN, so every row goes right.
        while (!node->IsLeaf() && std::isnan(node->splitElemFea)) node = nodes + node->rson;
        if (i >= End()) continue;
        nodeV[2 * i] = node->IsLeaf() ? node : nodes + node->lson;
        nodeV[2 * i + 1] = node->IsLeaf() ? nullptr : nodes + node->rson;
    }
}

void PaddedTree::FillRowTests(const RowQuantiser& quantiser, int lane, RowTests* testsV) const {
    for (size_t i = 1; i < End(); ++i) {
        if (!IsTest(i)) continue;
        const auto at = quantiser.Find(nodeV[i]->splitFea, nodeV[i]->splitElemFea);
        testsV[i].bandV[lane] = static_cast<uint8_t>(quantiser.Band(at));
        testsV[i].testV[lane] = CountByte(RowQuantiser::Test(at));
    }
}

void PaddedTree::AppendValues(LineVector<double>& valueV) const {
    for (size_t i = End(); i < nodeV.size(); ++i) {
        valueV.push_back(nodeV[i] != nullptr ? nodeV[i]->avgPredict : 0.0);
    }
}

// The tests of numLevels levels from position `top` down, padded to three levels.
SubtreeTests PaddedTree::Tests(const RowQuantiser& quantiser, size_t top, int numLevels) const {
    SubtreeTests tests;
    int k = 0;
    for (int level = 0; level < kSubtreeLevels; ++level) {
        for (size_t i = top << level; i < (top + 1) << level; ++i, ++k) {
            tests.codeAtV[k] = 0;
            tests.testV[k] = SubtreeTests::Spread(kAlwaysLeft);
            if (level >= numLevels || !IsTest(i)) continue;
            const auto at = quantiser.Find(nodeV[i]->splitFea, nodeV[i]->splitElemFea);
            tests.codeAtV[k] = quantiser.CodeAt(at);
            tests.testV[k] = SubtreeTests::Spread(RowQuantiser::Test(at));
        }
    }
    return tests;
}

// Works bottom up: the lowest three levels first, then three levels at a time; the subtree of the
// root has the one to three levels that remain. If there are fewer than three, padding tests fill
// it up, and each of its ends is repeated 2^numUnused times.
//
// A subtree whose root is no test is left out: every row goes left there, so the leaf numbers are
// those of its first end.
void PaddedTree::AppendSubtrees(const RowQuantiser& quantiser,
                                std::vector<LeafSubtree>& leafSubtreeV,
                                std::vector<InnerSubtree>& innerSubtreeV) const {
    std::vector<uint8_t> subtreeV(End(), 0);  // by position: the subtree that finds its leaf
    uint8_t numSubtrees = 0;
    int level = depth - kSubtreeLevels;
    const size_t firstTop = size_t{1} << level;
    for (size_t top = firstTop; top < 2 * firstTop; ++top) {
        if (nodeV[top] == nullptr) continue;
        const size_t secondLeaf = ((top - firstTop) << kSubtreeLevels) + 1;
        subtreeV[top] = numSubtrees++;
        leafSubtreeV.push_back(
            {Tests(quantiser, top, kSubtreeLevels), static_cast<uint8_t>(secondLeaf)});
    }
    while (level > 0) {
        const int numLevels = std::min(level, kSubtreeLevels);
        const int numUnused = kSubtreeLevels - numLevels;
        level -= numLevels;
        for (size_t top = size_t{1} << level; top < size_t{2} << level; ++top) {
            if (nodeV[top] == nullptr) continue;
            const size_t firstEnd = top << numLevels;
            subtreeV[top] = subtreeV[firstEnd];
            if (!IsTest(top)) continue;
            InnerSubtree subtree = {Tests(quantiser, top, numLevels), {}};
            for (size_t k = 0; k < 8; ++k) {
                const int child = subtreeV[firstEnd + (k >> numUnused)];
                subtree.childAtV[k] = static_cast<uint16_t>(child * kTileRows);
            }
            subtreeV[top] = numSubtrees++;
            innerSubtreeV.push_back(subtree);
        }
    }
}

}  // namespace engine
}  // namespace sylvora

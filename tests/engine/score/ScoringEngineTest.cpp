// Compiled ensembles against the naive scorer, bit for bit: every leaf that single rows reach, and
// every score of a batch, with each kernel that this machine can run.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>

#include "RandomEnsemble.h"
#include "engine/score/BatchScoring.h"
#include "engine/score/KernelChoice.h"
#include "engine/score/RowLeaves.h"
#include "engine/score/RowScoring.h"

namespace sylvora::tests {
namespace {

using engine::BlockKernel;
using engine::CompiledEnsemble;
using engine::EnsembleSource;
using engine::PackedNode;

std::vector<const BlockKernel*> Kernels() {
    std::vector<const BlockKernel*> kernelV;
    for (const char* name : {"baseline", "avx2", "avx512"}) {
        const BlockKernel* kernel = engine::FindKernel(name);
        if (kernel != nullptr) kernelV.push_back(kernel);
    }
    return kernelV;
}

bool SameBits(double a, double b) {
    return std::memcmp(&a, &b, sizeof a) == 0;
}

std::vector<Shape> Shapes() {
    std::vector<Shape> shapeV;
    for (int depth = 0; depth <= 9; ++depth) shapeV.push_back({"one depth", 37, depth, 0.0});
    for (int depth : {2, 5, 7, 8, 10}) shapeV.push_back({"ragged", 50, depth, 0.3, 5, 40});
    const std::vector<size_t> allSizes = {0, 3, 1, 1, 0, 40, 1, 16, 17, 2, 0};
    shapeV.insert(shapeV.end(),
                  {{"extreme numbers", 60, 6, 0.2, 5, 0, {1}, 0, true},
                   {"groups of all sizes", 33, 4, 0.2, 5, 1000, allSizes},
                   {"no trees", 20, 6, 0.2, 5, 1000, {0}},
                   {"chains", 19, 700, 0.2, 5, 1000, {1}, 0, false, false, true},
                   {"ragged around the limit of depth", 120, 12, 0.45},
                   {"more features than trees", 20, 6, 0.2, 300},
                   {"many features, several quantisers", 900, 5, 0.1, 90},
                   {"one feature with very many thresholds", 300, 8, 0.0, 1, 1000000},
                   {"nearly all in one bucket", 300, 8, 0.0, 1, 1000000, {1}, 0, false, true},
                   {"some features in one bucket", 60, 6, 0.1, 40, 1000000, {1}, 0, false, true},
                   {"more features than a quantiser holds", 1200, 1, 0.0, 400}});
    for (const auto& groupV : {std::vector<size_t>{1}, {7}, {100, 0, 1, 3}}) {
        for (const int numClass : {1, 2, 5, 300}) {
            const int depth = numClass == 5 ? 10 : 4;
            shapeV.push_back({"votes", 9, depth, 0.2, 5, 1000, groupV, numClass});
        }
    }
    return shapeV;
}

void CheckRow(const EnsembleSource& source, const CompiledEnsemble& compiled, const double* row) {
    // Skip trees: some within a pair of bundles, some beyond the pair that comes next.
    for (const size_t period : {size_t{4}, size_t{23}, size_t{67}, size_t{83}}) {
        engine::RowLeaves leaves(compiled, row);
        for (size_t tree = 0; tree < source.NumTrees(); ++tree) {
            if (tree % period >= 4) continue;
            ASSERT_TRUE(SameBits(leaves.Value(tree), LeafValueOf(source, tree, row)))
                << "tree " << tree << ", of every " << period << " four";
        }
    }
    if (source.numClass > 0) return;
    std::vector<double> meanV(source.shrinkV.size() + 1, 12.5);
    ASSERT_TRUE(SameBits(engine::ScoreRow(compiled, row, nullptr), ScoreOf(source, row)));
    ASSERT_TRUE(SameBits(engine::ScoreRow(compiled, row, meanV.data()), ScoreOf(source, row)));
    size_t tree = 0;
    for (size_t g = 0; g < source.shrinkV.size(); ++g) {
        double sum = 0.0;
        for (size_t j = 0; j < source.trees->GroupSize(g); ++j) {
            sum += LeafValueOf(source, tree++, row);
        }
        const double mean = sum / static_cast<double>(source.trees->GroupSize(g));
        ASSERT_TRUE(SameBits(meanV[g], mean)) << "group " << g;
    }
    ASSERT_EQ(meanV.back(), 12.5);
}

void CheckBatch(const EnsembleSource& source, const CompiledEnsemble& compiled,
                const std::vector<double>& rowV, size_t stride) {
    const size_t numRows = rowV.size() / stride;
    std::vector<double> expectedV;
    for (size_t r = 0; r < numRows; ++r) {
        expectedV.push_back(ScoreOf(source, rowV.data() + r * stride));
    }
    for (const size_t num : {size_t{1}, size_t{63}, size_t{64}, size_t{65}, numRows}) {
        for (const int numThread : {1, 3}) {
            std::vector<double> resultV(num + 1, 12.5);
            engine::ScoreRows(compiled, {rowV.data(), num, stride}, resultV.data(), numThread);
            for (size_t r = 0; r < num; ++r) {
                ASSERT_TRUE(SameBits(resultV[r], expectedV[r]))
                    << "row " << r << " of " << num << ", " << numThread
                    << " threads: " << resultV[r] << ", not " << expectedV[r];
            }
            ASSERT_EQ(resultV[num], 12.5);
        }
    }
}

TEST(ScoringEngine, EqualsTheReferenceBitForBit) {
    unsigned seed = 1;
    for (const Shape& shape : Shapes()) {
        SCOPED_TRACE(shape.name);
        SCOPED_TRACE("seed " + std::to_string(seed));
        RandomEnsemble ensemble(shape, seed++);
        const size_t stride = static_cast<size_t>(shape.dimFea) + seed % 2;
        const std::vector<double> rowV = ensemble.Rows(600, stride);
        for (const BlockKernel* kernel : Kernels()) {
            SCOPED_TRACE(kernel->name);
            const auto compiled = CompiledEnsemble::Compile(ensemble.source, *kernel);
            ASSERT_NE(compiled, nullptr);
            for (size_t r = 0; r < 100; ++r) {
                CheckRow(ensemble.source, *compiled, rowV.data() + r * stride);
            }
            CheckBatch(ensemble.source, *compiled, rowV, stride);
            if (HasFatalFailure()) return;
        }
    }
}

// The test above must have covered coded and walked trees.
TEST(ScoringEngine, CodesShallowTreesAndWalksTheOthers) {
    Shape shape;
    shape.maxDepth = 8;
    shape.leafShare = 0.0;
    const auto isCoded = [](const Shape& wanted) {
        const auto compiled = CompiledEnsemble::Compile(RandomEnsemble(wanted, 1).source,
                                                        *engine::FindKernel("baseline"));
        return compiled->bundleV[0].IsCoded();
    };
    EXPECT_TRUE(isCoded(shape));
    shape.dimFea = 1000;
    EXPECT_FALSE(isCoded(shape)) << "quantising 1000 features costs more than walking 20 trees";
    shape.dimFea = 5;
    shape.maxDepth = 9;
    EXPECT_FALSE(isCoded(shape));
}

TEST(ScoringEngine, RefusesEnsemblesThatItCannotCompile) {
    const double kOtherNan = -std::nan("1");
    const auto leaf = [](double value) {
        PackedNode node;
        node.avgPredict = value;
        return node;
    };
    const auto inner = [](int column, int lson, int rson) {
        PackedNode node;
        node.fLeaf = false;
        node.splitFea = column;
        node.lson = lson;
        node.rson = rson;
        return node;
    };
    const struct {
        const char* fault;
        int numClass;
        std::vector<PackedNode> nodeV;
    } cases[] = {
        {"no nodes", 0, {}},
        {"child outside", 0, {inner(0, 1, 3), leaf(1), leaf(1)}},
        {"negative child", 0, {inner(0, -1, 2), leaf(1), leaf(1)}},
        {"cycle", 0, {inner(0, 1, 2), inner(0, 0, 2), leaf(1)}},
        {"shared child", 0, {inner(0, 1, 1), leaf(1)}},
        {"feature outside", 0, {inner(2, 1, 2), leaf(1), leaf(1)}},
        {"no feature", 0, {inner(-1, 1, 2), leaf(1), leaf(1)}},
        {"class too high", 2, {leaf(2)}},
        {"class too low", 2, {leaf(-1)}},
        {"class is NaN", 2, {leaf(std::nan(""))}},
        {"a NaN with which sums depend on the order of operands", 0, {leaf(kOtherNan)}},
    };
    for (const auto& c : cases) {
        EnsembleSource source;
        source.dimFea = 2;
        source.numClass = c.numClass;
        source.shrinkV = {0.1f};
        auto trees = std::make_shared<engine::PackedTrees>();
        trees->treeV.emplace_back(c.nodeV.data(), c.nodeV.size(), 0);
        trees->EndGroup();
        source.trees = trees;
        EXPECT_EQ(CompiledEnsemble::Compile(source, *engine::FindKernel("baseline")), nullptr)
            << c.fault;
    }
    EnsembleSource source = RandomEnsemble(Shape(), 1).source;
    source.shrinkV[1] = std::nanf("1");
    EXPECT_EQ(CompiledEnsemble::Compile(source, *engine::FindKernel("baseline")), nullptr);
}

}  // namespace
}  // namespace sylvora::tests

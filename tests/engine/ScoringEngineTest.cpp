// Compiled ensembles against their description, bit by bit: every leaf that single rows reach, and
// every score of a batch, with each kernel that this machine can run.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>

#include "RandomEnsemble.h"
#include "engine/BatchScoring.h"
#include "engine/KernelChoice.h"
#include "engine/RowLeaves.h"
#include "engine/RowScoring.h"

namespace sylvora::tests {
namespace {

using engine::BlockKernel;
using engine::CompiledEnsemble;
using engine::EnsembleSource;
using engine::SourceNode;

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
    const auto add = [&](const char* name) -> Shape& {
        shapeV.push_back({});
        shapeV.back().name = name;
        return shapeV.back();
    };
    for (int depth = 0; depth <= 9; ++depth) {
        Shape& shape = add("one depth");
        shape.maxDepth = depth;
        shape.numGroups = 37;
        shape.leafShare = 0.0;
    }
    for (int depth : {2, 5, 7, 8, 10}) {
        Shape& shape = add("ragged");
        shape.maxDepth = depth;
        shape.numGroups = 50;
        shape.leafShare = 0.3;
        shape.numValues = 40;
    }
    Shape& hostile = add("hostile numbers");
    hostile.numValues = 0;
    hostile.fOddNumbers = true;
    hostile.numGroups = 60;
    Shape& groups = add("groups of all sizes");
    groups.groupV = {0, 3, 1, 1, 0, 40, 1, 16, 17, 2, 0};
    groups.numGroups = 33;
    groups.maxDepth = 4;
    Shape& empty = add("no trees");
    empty.groupV = {0};
    Shape& chain = add("chains");
    chain.fChain = true;
    chain.maxDepth = 700;
    chain.numGroups = 19;
    Shape& mixed = add("ragged around the limit of depth");
    mixed.maxDepth = 12;
    mixed.leafShare = 0.45;
    mixed.numGroups = 120;
    Shape& wide = add("more features than trees");
    wide.dimFea = 300;
    Shape& sections = add("many features, several sections");
    sections.dimFea = 90;
    sections.numGroups = 900;
    sections.maxDepth = 5;
    sections.leafShare = 0.1;
    Shape& fine = add("one feature with very many thresholds");
    fine.dimFea = 1;
    fine.maxDepth = 8;
    fine.leafShare = 0.0;
    fine.numGroups = 300;
    fine.numValues = 1000000;
    Shape crowded = fine;
    crowded.name = "the same, nearly all in one bucket";
    crowded.fOutliers = true;
    shapeV.push_back(crowded);
    Shape& stumps = add("more features than a section holds");
    stumps.dimFea = 400;
    stumps.maxDepth = 1;
    stumps.leafShare = 0.0;
    stumps.numGroups = 1200;
    for (const auto& groupV : {std::vector<size_t>{1}, {7}, {100, 0, 1, 3}}) {
        for (const int numClass : {1, 2, 5, 300}) {
            Shape& votes = add("votes");
            votes.numClass = numClass;
            votes.groupV = groupV;
            votes.numGroups = 9;
            votes.maxDepth = numClass == 5 ? 10 : 4;
        }
    }
    return shapeV;
}

void CheckRow(const EnsembleSource& source, const CompiledEnsemble& compiled, const double* row) {
    engine::RowLeaves all(compiled, row);
    engine::RowLeaves some(compiled, row);
    for (size_t tree = 0; tree < source.NumTrees(); ++tree) {
        const double expected = LeafValueOf(source, tree, row);
        ASSERT_TRUE(SameBits(all.Value(tree), expected)) << "tree " << tree;
        if (tree % 23 >= 4) continue;
        ASSERT_TRUE(SameBits(some.Value(tree), expected)) << "tree " << tree << " after a gap";
    }
    if (source.numClass > 0) return;
    std::vector<double> meanV(source.groupV.size() + 1, 12.5);
    ASSERT_TRUE(SameBits(engine::ScoreRow(compiled, row, nullptr), ScoreOf(source, row)));
    ASSERT_TRUE(SameBits(engine::ScoreRow(compiled, row, meanV.data()), ScoreOf(source, row)));
    size_t tree = 0;
    for (size_t g = 0; g < source.groupV.size(); ++g) {
        double sum = 0.0;
        for (size_t j = 0; j < source.groupV[g].numTrees; ++j) {
            sum += LeafValueOf(source, tree++, row);
        }
        const double mean = sum / static_cast<double>(source.groupV[g].numTrees);
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

TEST(ScoringEngine, EqualsTheDescriptionInEveryBit) {
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

// Both forms must have been at work above.
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
    EXPECT_FALSE(isCoded(shape)) << "to look up 1000 features for 20 trees is dearer than to walk";
    shape.dimFea = 5;
    shape.maxDepth = 9;
    EXPECT_FALSE(isCoded(shape));
}

TEST(ScoringEngine, LeavesWhatIsNoTreeToThePlainForm) {
    const double kOtherNan = -std::nan("1");
    const SourceNode leaf = {-1, -1, -1, 0.0, 1.0};
    const struct {
        const char* fault;
        int numClass;
        std::vector<SourceNode> nodeV;
    } cases[] = {
        {"no nodes", 0, {}},
        {"son outside", 0, {{0, 1, 3, 0.5, 0.0}, leaf, leaf}},
        {"negative son", 0, {{0, -1, 2, 0.5, 0.0}, leaf, leaf}},
        {"circle", 0, {{0, 1, 2, 0.5, 0.0}, {0, 0, 2, 0.5, 0.0}, leaf}},
        {"shared son", 0, {{0, 1, 1, 0.5, 0.0}, leaf}},
        {"feature outside", 0, {{2, 1, 2, 0.5, 0.0}, leaf, leaf}},
        {"class too high", 2, {{-1, -1, -1, 0.0, 2.0}}},
        {"class too low", 2, {{-1, -1, -1, 0.0, -1.0}}},
        {"class is no number", 2, {{-1, -1, -1, 0.0, std::nan("")}}},
        {"a NaN that tells operands apart", 0, {{-1, -1, -1, 0.0, kOtherNan}}},
    };
    for (const auto& c : cases) {
        EnsembleSource source;
        source.dimFea = 2;
        source.numClass = c.numClass;
        source.groupV = {{1, 0.1}};
        source.firstNodeV = {0};
        source.nodeV = c.nodeV;
        EXPECT_EQ(CompiledEnsemble::Compile(source, *engine::FindKernel("baseline")), nullptr)
            << c.fault;
    }
    EnsembleSource source = RandomEnsemble(Shape(), 1).source;
    source.groupV[1].shrink = kOtherNan;
    EXPECT_EQ(CompiledEnsemble::Compile(source, *engine::FindKernel("baseline")), nullptr);
}

}  // namespace
}  // namespace sylvora::tests

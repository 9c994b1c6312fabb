// Times the parts of the scoring engine with each kernel: quantising rows, finding leaves, and
// whole scores of batches and single rows. The trees are random, because training would take longer
// than all the rest; rows spread over their leaves more evenly than over those of trained ones. An
// item is a row unless stated otherwise.
#include <benchmark/benchmark.h>

#include <random>
#include <string>
#include <vector>

#include "base/CacheLines.h"
#include "engine/score/BatchScoring.h"
#include "engine/score/KernelChoice.h"
#include "engine/score/RowScoring.h"

namespace {

using sylvora::LineVector;
using namespace sylvora::engine;

constexpr int kFeatures = 28;
constexpr size_t kRows = 4096;

// An ensemble of `numGroups` groups of one full tree each.
EnsembleSource MakeEnsemble(size_t numGroups, int depth) {
    std::mt19937 random(1);
    std::normal_distribution<double> normal;
    const auto trees = std::make_shared<PackedTrees>();
    for (size_t tree = 0; tree < numGroups; ++tree) {
        const int numTests = (1 << depth) - 1;
        std::vector<PackedNode> nodeV(static_cast<size_t>(2 * numTests + 1));
        for (int k = 0; k < 2 * numTests + 1; ++k) {
            PackedNode& node = nodeV[static_cast<size_t>(k)];
            node.fLeaf = k >= numTests;
            node.splitFea = node.fLeaf ? -1 : static_cast<int>(random() % kFeatures);
            node.lson = 2 * k + 1;
            node.rson = 2 * k + 2;
            node.splitElemFea = normal(random);
            node.avgPredict = normal(random);
        }
        trees->treeV.emplace_back(nodeV.data(), nodeV.size(), depth);
        trees->EndGroup();
    }
    EnsembleSource source;
    source.trees = trees;
    source.shrinkV.assign(numGroups, 0.1f);
    source.dimFea = kFeatures;
    return source;
}

const std::vector<double>& Rows() {
    static const std::vector<double> rowV = [] {
        std::mt19937 random(2);
        std::normal_distribution<double> normal;
        std::vector<double> valueV(kRows * kFeatures);
        for (double& value : valueV) value = normal(random);
        return valueV;
    }();
    return rowV;
}

std::vector<const double*> TileRows() {
    std::vector<const double*> rowV;
    for (int r = 0; r < kTileRows; ++r) rowV.push_back(Rows().data() + r * kFeatures);
    return rowV;
}

void QuantiseTile(benchmark::State& state, const BlockKernel* kernel) {
    const auto compiled = CompiledEnsemble::Compile(MakeEnsemble(500, 6), *kernel);
    const RowQuantiser& quantiser = compiled->quantiserV[0];
    const std::vector<const double*> rowV = TileRows();
    LineVector<int8_t> tileV(static_cast<size_t>(quantiser.NumBands()) * kTileRows);
    for (auto _ : state) {
        quantiser.QuantiseTile(rowV.data(), *kernel, tileV.data());
        benchmark::DoNotOptimize(tileV.data());
    }
    state.SetItemsProcessed(state.iterations() * kTileRows);
}

// An item is a row in a tree.
void FindLeaves(benchmark::State& state, const BlockKernel* kernel) {
    const int depth = static_cast<int>(state.range(0));
    const auto compiled = CompiledEnsemble::Compile(MakeEnsemble(64, depth), *kernel);
    const RowQuantiser& quantiser = compiled->quantiserV[0];
    LineVector<int8_t> tileV(static_cast<size_t>(quantiser.NumBands()) * kTileRows);
    quantiser.QuantiseTile(TileRows().data(), *kernel, tileV.data());
    LineVector<uint8_t> leafV(kBundleTrees * kTileRows);
    for (auto _ : state) {
        kernel->findLeaves(compiled->blockTreeV.data(), kBundleTrees, tileV.data(), leafV.data());
        benchmark::DoNotOptimize(leafV.data());
    }
    state.SetItemsProcessed(state.iterations() * kTileRows * kBundleTrees);
}

void Batch(benchmark::State& state, const BlockKernel* kernel) {
    const auto compiled = CompiledEnsemble::Compile(
        MakeEnsemble(static_cast<size_t>(state.range(0)), static_cast<int>(state.range(1))),
        *kernel);
    std::vector<double> resultV(kRows);
    for (auto _ : state) {
        ScoreRows(*compiled, {Rows().data(), kRows, kFeatures}, resultV.data(), 1);
        benchmark::DoNotOptimize(resultV.data());
    }
    state.SetItemsProcessed(state.iterations() * static_cast<int64_t>(kRows));
}

void OneRow(benchmark::State& state, const BlockKernel* kernel) {
    const auto compiled = CompiledEnsemble::Compile(
        MakeEnsemble(static_cast<size_t>(state.range(0)), static_cast<int>(state.range(1))),
        *kernel);
    size_t row = 0;
    for (auto _ : state) {
        const double* values = Rows().data() + row++ % kRows * kFeatures;
        benchmark::DoNotOptimize(ScoreRow(*compiled, values, nullptr));
    }
    state.SetItemsProcessed(state.iterations());
}

}  // namespace

int main(int argc, char** argv) {
    for (const char* name : {"baseline", "avx2", "avx512"}) {
        const BlockKernel* kernel = FindKernel(name);
        if (kernel == nullptr) continue;
        const auto title = [&](const char* what) { return std::string(what) + "/" + name; };
        benchmark::RegisterBenchmark(title("QuantiseTile").c_str(), QuantiseTile, kernel);
        benchmark::RegisterBenchmark(title("FindLeaves").c_str(), FindLeaves, kernel)
            ->Arg(3)
            ->Arg(6)
            ->Arg(8);
        benchmark::RegisterBenchmark(title("Batch").c_str(), Batch, kernel)
            ->Args({500, 6})
            ->Args({500, 8})
            ->Args({2000, 6})
            ->Args({500, 9})
            ->Args({50, 14});
        benchmark::RegisterBenchmark(title("OneRow").c_str(), OneRow, kernel)
            ->Args({500, 6})
            ->Args({500, 8})
            ->Args({500, 9});
    }
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
}

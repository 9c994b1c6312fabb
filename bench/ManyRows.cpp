// Trees of very many rows, run by hand; see docs/scale-out.md.
//
//   many-rows cells rows           the integers and the histogram of a tree of so many rows
//   many-rows train rows weight    a training on one column, of rows with about this weight
//
// `cells` needs little memory: the rows repeat, and so do the pages of memory that they are in.
// `train` prints a checksum of the trees and the predictions, which must be the same with
// SYLVORA_PLAIN=1 in the environment. It needs about 100 bytes a row.
#include <sys/mman.h>
#include <sys/resource.h>
#include <unistd.h>

#include <chrono>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <iostream>
#include <numeric>
#include <string>
#include <vector>

#include "TreeLearner.h"
#include "engine/train/histogram/BinnedColumns.h"
#include "engine/train/histogram/HistogramFiller.h"

namespace {

using namespace sylvora;
using namespace sylvora::engine;

double Now() {
    const auto time = std::chrono::steady_clock::now().time_since_epoch();
    return std::chrono::duration<double>(time).count();
}

// Random bits of a row.
uint64_t BitsOf(size_t row) {
    uint64_t bits = (row + 1) * 0x9e3779b97f4a7c15u;
    bits = (bits ^ (bits >> 32)) * 0xd6e8feb86659fd93u;
    return bits ^ (bits >> 29);
}

// An array that repeats the given values, whose number is that of whole pages. Never freed.
template <typename Value>
Value* Repeat(const std::vector<Value>& valueV, size_t count) {
    const size_t bytes = valueV.size() * sizeof(Value);
    const size_t numParts = (count + valueV.size() - 1) / valueV.size();
    const int file = memfd_create("values", 0);
    if (file < 0 || write(file, valueV.data(), bytes) != static_cast<ssize_t>(bytes))
        return nullptr;
    void* const all =
        mmap(nullptr, numParts * bytes, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (all == MAP_FAILED) return nullptr;
    for (size_t part = 0; part < numParts; ++part) {
        char* const at = static_cast<char*>(all) + part * bytes;
        if (mmap(at, bytes, PROT_READ, MAP_SHARED | MAP_FIXED, file, 0) != at) return nullptr;
    }
    return static_cast<Value*>(all);
}

// Whether `all` is `times` the cell `one`, and the cell `rest`.
bool IsMultiple(const Cell& all, const Cell& one, uint64_t times, const Cell& rest) {
    __extension__ typedef __int128 Wide;
    return all.q == Wide{one.q} * static_cast<Wide>(times) + rest.q &&
           all.packed == static_cast<Wide>(one.packed) * static_cast<Wide>(times) + rest.packed;
}

int CountCells(int numRows) {
    constexpr int kRows = 1 << 20;
    std::vector<double> gradV(kRows), valueV(kRows);
    std::vector<int> indexV(kRows);
    std::iota(indexV.begin(), indexV.end(), 0);
    std::vector<const double*> rowV;
    for (size_t row = 0; row < kRows; ++row) {
        gradV[row] = std::ldexp(static_cast<double>(BitsOf(row) >> 11), -53) - 0.3;
        valueV[row] = static_cast<double>(BitsOf(row) % 200);
        rowV.push_back(&valueV[row]);
    }
    WorkerPool pool;
    if (pool.Start(static_cast<int>(sysconf(_SC_NPROCESSORS_ONLN))) != 0) return 1;
    const BinnedColumns data({rowV.data(), kRows, 1}, Tuning(), pool);
    const size_t count = static_cast<size_t>(numRows);
    const double* const manyGradV = Repeat(gradV, count);
    const int* const manyIndexV = Repeat(indexV, count);
    if (manyGradV == nullptr || manyIndexV == nullptr) return 1;
    const double begin = Now();
    const FixedPoint fixed = FixedPoint::Fit(manyGradV, nullptr, numRows, pool);
    const double fitted = Now();
    const auto histogramOf = [&](int num) {
        Histogram histogram;
        histogram.cellV.resize(data.NumCells(0));
        const RowSet rows = {manyIndexV, num, gradV.data(), nullptr, manyGradV, nullptr};
        HistogramFiller(data).Add(rows, fixed, {0}, histogram);
        return histogram.cellV;
    };
    if (!fixed.fUsable) {
        std::cout << numRows << " rows: left to the reference implementation\n";
        return 1;
    }
    const auto allV = histogramOf(numRows);
    const double counted = Now();
    const auto oneV = histogramOf(kRows);
    const auto restV = histogramOf(numRows % kRows);
    bool fSame = true;
    Cell total;
    for (size_t i = 0; i < allV.size(); ++i) {
        const uint64_t times = count / kRows;
        fSame = fSame && IsMultiple(allV[i], oneV[i], times, restV[i]);
        total += allV[i];
    }
    double sizes = 0.0;
    for (size_t row = 0; row < count; ++row) sizes += std::fabs(manyGradV[row]);
    const double bound = fixed.AbsBound(total);
    std::cout << numRows << " rows: fitted in " << fitted - begin << " s, counted in "
              << counted - fitted << " s; the histogram is " << (fSame ? "right" : "WRONG")
              << ", weight " << fixed.Weight(total) << ", bound of the sizes " << bound / sizes
              << " of their sum\n";
    return fSame && fixed.Weight(total) == numRows && bound >= sizes ? 0 : 1;
}

struct Checksum {
    uint64_t value = 1469598103934665603u;

    template <typename Value>
    void Add(Value added) {
        uint64_t bits = 0;
        std::memcpy(&bits, &added, sizeof added);
        value = (value ^ bits) * 1099511628211u;
    }
};

int Train(int numRows, int weight) {
    const size_t count = static_cast<size_t>(numRows);
    std::vector<uint8_t> valueV(count);
    std::vector<double> labelV(count);
    std::vector<int> weightV(count);
    for (size_t row = 0; row < count; ++row) {
        const uint64_t bits = BitsOf(row);
        valueV[row] = static_cast<uint8_t>(bits % 200);
        labelV[row] =
            std::sin(valueV[row] * 0.05) + std::ldexp(static_cast<double>(bits >> 11), -54);
        weightV[row] = 1 + static_cast<int>((bits >> 40) % static_cast<unsigned>(2 * weight - 1));
    }
    CheckCfgCLS cfg;
    cfg.modelType = "GBDT";
    cfg.lossFunc = "Square";
    cfg.numTree = 2;
    cfg.maxDepth = 2;
    cfg.valSmpRt = 1.0;
    cfg.numThread = static_cast<int>(sysconf(_SC_NPROCESSORS_ONLN));
    cfg.fSetThread = true;
    if (cfg.CheckCfg() != 0) return 1;
    DataColumn column;
    column.values = valueV.data();
    column.type = ValueType::kUInt8;
    DataBlock block;
    block.layout = DataBlock::Layout::kColumns;
    block.numRows = numRows;
    block.numColumns = 1;
    block.columns = &column;
    TreeLearner learner(cfg);
    const auto data = DataSet::Make(block);
    if (data == nullptr || learner.DataBorrow(data, labelV.data(), numRows, nullptr, 0) != 0 ||
        learner.ParamInit() != 0 || learner.setWeights(weightV.data(), numRows) != 0) {
        return 1;
    }
    std::vector<double>().swap(labelV);
    std::vector<int>().swap(weightV);
    const double begin = Now();
    if (learner.Boosting() != 0) return 1;
    const double seconds = Now() - begin;
    Checksum checksum;
    size_t numNodes = 0;
    int weightOfRoot = 0;
    for (const auto& group : learner.TreeVV) {
        for (const TreeCR* tree : group) {
            for (const NodeCR* node : tree->NodeV) {
                checksum.Add(node->splitElemFea), checksum.Add(node->avgPredict);
                checksum.Add(node->countDoc), checksum.Add(node->wgtAll);
            }
            numNodes += tree->NodeV.size();
            weightOfRoot = tree->NodeV.front()->wgtAll;
        }
    }
    for (size_t row = 0; row < count; ++row) checksum.Add(learner.predictV[row]);
    rusage usage = {};
    getrusage(RUSAGE_SELF, &usage);
    std::cout << numRows << " rows of weight " << weightOfRoot << ": " << seconds << " s, "
              << numNodes << " nodes, checksum " << checksum.value << ", peak "
              << 1024.0 * static_cast<double>(usage.ru_maxrss) / static_cast<double>(count)
              << " bytes a row\n";
    return 0;
}

}  // namespace

int main(int argc, char** argv) {
    const std::string what = argc > 2 ? argv[1] : "";
    if (what == "cells" && argc == 3) return CountCells(std::atoi(argv[2]));
    if (what == "train" && argc == 4) return Train(std::atoi(argv[2]), std::atoi(argv[3]));
    std::cerr << "usage: many-rows cells rows | many-rows train rows weight\n";
    return 2;
}

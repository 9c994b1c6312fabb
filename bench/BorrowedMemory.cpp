// Peak memory of a training on a borrowed block, beside the block itself; see docs/performance.md.
//
//   borrowed-memory rows columns float32|float64 RandomForest|CART REG|CLS threads
//   borrowed-memory rows columns float32|float64 GBDT LOSS threads
//
// Prints bytes per cell that remain after 80 bytes per row, and the peak in MB.
#include <sys/resource.h>

#include <cstdlib>
#include <iostream>
#include <random>
#include <string>
#include <vector>

#include "TreeLearner.h"

namespace {

double PeakBytes() {
    rusage usage = {};
    getrusage(RUSAGE_SELF, &usage);
    return 1024.0 * static_cast<double>(usage.ru_maxrss);
}

template <typename Value>
int Run(int numRows, int numColumns, CheckCfgCLS& cfg) {
    const size_t rows = static_cast<size_t>(numRows);
    const size_t columns = static_cast<size_t>(numColumns);
    std::vector<Value> valueV(rows * columns);
    std::vector<double> labelV(rows);
    std::mt19937 random(1);
    std::normal_distribution<double> normal;
    for (Value& value : valueV) value = static_cast<Value>(normal(random));
    for (size_t i = 0; i < rows; ++i) {
        const Value* const row = valueV.data() + i * columns;
        const bool fNoisy = std::getenv("SEPARABLE") == nullptr;
        const double score = fNoisy ? row[0] * row[1] + row[2] + normal(random) : row[0];
        const bool fTwoClasses = cfg.fRegCls == "CLS" || cfg.lossFunc == "LogLoss";
        labelV[i] = fTwoClasses ? (score > 0) : score;
    }
    const double before = PeakBytes();
    const auto data =
        sylvora::DataSet::Make(sylvora::RowsOf(valueV.data(), numRows, numColumns, numColumns));
    TreeLearner learner(cfg);
    learner.setPackedTrees(true);
    if (data == nullptr || learner.DataBorrow(data, labelV.data(), numRows, nullptr, 0) != 0 ||
        learner.ParamInit() != 0 || learner.Boosting() != 0) {
        return 1;
    }
    const double used = PeakBytes() - before;
    const double cells = static_cast<double>(rows) * static_cast<double>(columns);
    std::cout << (used - 80.0 * static_cast<double>(rows)) / cells << " bytes per cell, "
              << used / 1e6 << " MB\n";
    return 0;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 7) {
        std::cerr << "usage: borrowed-memory rows columns float32|float64 type task|loss threads\n";
        return 2;
    }
    CheckCfgCLS cfg;
    cfg.modelType = argv[4];
    (cfg.modelType == "GBDT" ? cfg.lossFunc : cfg.fRegCls) = argv[5];
    cfg.numThread = std::atoi(argv[6]);
    cfg.fSetThread = true;
    cfg.numTree = cfg.modelType == "GBDT" ? 10 : cfg.modelType == "CART" ? 1 : 3;
    if (cfg.CheckCfg() != 0) return 2;
    const int numRows = std::atoi(argv[1]);
    const int numColumns = std::atoi(argv[2]);
    return std::string(argv[3]) == "float32" ? Run<float>(numRows, numColumns, cfg)
                                             : Run<double>(numRows, numColumns, cfg);
}

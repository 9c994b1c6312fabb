// Peak memory of ranks that read a training file together; see docs/scale-out.md.
//
//   rank-memory rows columns float32|float64 ranks [train]
//
// Writes a file of random values, which it removes again. The ranks are threads of one process, so
// the peak is that of all ranks together. Prints bytes per cell of the matrix, after 80 bytes per
// row and rank. With `train`, each rank also trains on its own columns.
#include <sys/resource.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <iostream>
#include <random>
#include <string>
#include <vector>

#include "TreeLearner.h"
#include "frontend/reading/RankedSets.h"
#include "tests/ranks/ThreadRanks.h"

namespace {

using namespace sylvora;
using namespace sylvora::frontend;

double PeakBytes() {
    rusage usage = {};
    getrusage(RUSAGE_SELF, &usage);
    return 1024.0 * static_cast<double>(usage.ru_maxrss);
}

bool WriteRows(const std::string& path, int numRows, int numColumns, bool fFloats) {
    std::FILE* const file = std::fopen(path.c_str(), "w");
    if (file == nullptr) return false;
    std::mt19937 random(1);
    std::normal_distribution<double> normal;
    for (int i = 0; i < numRows; ++i) {
        std::fprintf(file, "%.3f", normal(random));
        for (int c = 1; c <= numColumns; ++c) {
            if (fFloats) {
                std::fprintf(file, " %d:%d", c, static_cast<int>(random() % 100000));
            } else {
                std::fprintf(file, " %d:%.7f", c, normal(random));
            }
        }
        std::fputc('\n', file);
    }
    return std::fclose(file) == 0;
}

int Read(const CheckCfgCLS& settings, Communicator& peers, bool fTrain) {
    CheckCfgCLS cfg = settings;
    ReadingThreads threads(1);
    std::vector<RunSet> setV = NameSets(cfg);
    RankedSet training;
    if (ReadSets(setV, cfg, threads, peers, training) != 0) return -1;
    if (!fTrain) return 0;
    TreeLearner learner(cfg);
    learner.setPackedTrees(true);
    RandomStream stream(1);
    learner.trainingOptions.stream = &stream;
    if (HandOver(training, setV.front().file, learner) != 0) return -1;
    return learner.ParamInit() == 0 && learner.Boosting() == 0 ? 0 : -1;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 5 && argc != 6) {
        std::cerr << "usage: rank-memory rows columns float32|float64 ranks [train]\n";
        return 2;
    }
    const int numRows = std::atoi(argv[1]), numColumns = std::atoi(argv[2]);
    const int numRanks = std::atoi(argv[4]);
    CheckCfgCLS cfg;
    cfg.modelType = "GBDT";
    cfg.lossFunc = "Square";
    cfg.numTree = 3;
    cfg.numThread = 1;
    cfg.fSetThread = true;
    cfg.fileTrain = "rank-memory." + std::to_string(getpid()) + ".txt";
    const bool fFloats = std::string(argv[3]) == "float32";
    int status = cfg.CheckCfg();
    if (status == 0 && WriteRows(cfg.fileTrain, numRows, numColumns, fFloats)) {
        const double before = PeakBytes();
        for (const int ofRank : tests::RunRanks(
                 numRanks, [&](Communicator& peers) { return Read(cfg, peers, argc == 6); })) {
            status |= ofRank;
        }
        const double used = PeakBytes() - before;
        const double rows = static_cast<double>(numRows);
        std::cout << (used - 80.0 * rows * numRanks) / (rows * numColumns) << " bytes per cell, "
                  << used / 1e6 << " MB\n";
    }
    std::remove(cfg.fileTrain.c_str());
    return status == 0 ? 0 : 1;
}

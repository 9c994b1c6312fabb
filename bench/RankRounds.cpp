// Time of a round by several ranks, beside one process with as many threads; see docs/scale-out.md.
//
//   rank-rounds rows columns rounds ranks [turns]
//
// The ranks are threads of one process with one thread each, so nothing is sent over a network.
// Trains in turns, and prints the medians of the milliseconds per round, the CPU milliseconds, and
// the bytes that all ranks together send in a round. Columns are uniform floats, the label depends
// on ten of them; depth 6. Columns are dealt out in turn.
#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <ctime>
#include <iostream>
#include <random>
#include <string>
#include <vector>

#include "DataSet.h"
#include "Ranks.h"
#include "TreeLearner.h"
#include "tests/ranks/ThreadRanks.h"

namespace {

using namespace sylvora;

struct Table {
    size_t numRows, numColumns;
    std::vector<float> valueV;  // column by column
    std::vector<double> labelV;
    std::vector<std::uint8_t> zeroV;

    Table(size_t rows, size_t columns)
        : numRows(rows), numColumns(columns), valueV(rows * columns), labelV(rows), zeroV(rows) {
        std::mt19937 random(1);
        for (float& value : valueV) value = static_cast<float>(random() >> 8);
        for (size_t row = 0; row < rows; ++row) {
            for (size_t c = 0; c < std::min<size_t>(columns, 10); ++c) {
                labelV[row] += 0x1p-24 * static_cast<double>(valueV[c * rows + row]);
            }
            labelV[row] += 0x1p-32 * static_cast<double>(random());
        }
    }
    // All columns; those that `ranks` does not own are zeros.
    std::vector<DataColumn> Columns(const Ranks* ranks) const {
        std::vector<DataColumn> columnV(numColumns);
        for (size_t c = 0; c < numColumns; ++c) {
            const bool fOwn = ranks == nullptr || ranks->Owns(static_cast<int>(c));
            columnV[c].values = fOwn ? static_cast<const void*>(&valueV[c * numRows])
                                     : static_cast<const void*>(zeroV.data());
            columnV[c].type = fOwn ? ValueType::kFloat32 : ValueType::kUInt8;
        }
        return columnV;
    }
};

double WallMs() {
    return std::chrono::duration<double, std::milli>(
               std::chrono::steady_clock::now().time_since_epoch())
        .count();
}

double CpuMs() {
    timespec now = {};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &now);
    return 1e3 * static_cast<double>(now.tv_sec) + 1e-6 * static_cast<double>(now.tv_nsec);
}

// The time from the end of the first round to that of the last one.
struct Clock {
    double wall = 0.0, cpu = 0.0, bytes = 0.0;
    tests::MeetingPlace* place = nullptr;

    static int Report(void* context, int done, int total) {
        Clock& clock = *static_cast<Clock*>(context);
        const double sign = done == 1 ? -1.0 : done == total ? 1.0 : 0.0;
        clock.wall += sign * WallMs();
        clock.cpu += sign * CpuMs();
        if (clock.place != nullptr) {
            clock.bytes += sign * static_cast<double>(clock.place->NumBytes());
        }
        return 0;
    }
};

int Train(const Table& table, int numRounds, int numThread, Ranks* ranks, Clock* clock) {
    CheckCfgCLS cfg;
    cfg.modelType = "GBDT";
    cfg.lossFunc = "Square";
    cfg.numTree = numRounds;
    cfg.numThread = numThread;
    cfg.fSetThread = true;
    cfg.maxDepth = 6;
    cfg.maxLeaf = 64;
    if (cfg.CheckCfg() != 0) return -1;
    TreeLearner learner(cfg);
    learner.setPackedTrees(true);
    RandomStream stream(1);
    learner.trainingOptions.stream = &stream;
    learner.trainingOptions.ranks = ranks;
    if (clock != nullptr) learner.setProgress(Clock::Report, clock);
    const std::vector<DataColumn> columnV = table.Columns(ranks);
    DataBlock block;
    block.layout = DataBlock::Layout::kColumns;
    block.numRows = static_cast<std::int64_t>(table.numRows);
    block.numColumns = static_cast<std::int64_t>(table.numColumns);
    block.columns = columnV.data();
    if (learner.DataBorrow(DataSet::Make(block), table.labelV.data(),
                           static_cast<int>(table.numRows), nullptr, 0) != 0) {
        return -1;
    }
    return learner.ParamInit() == 0 && learner.Boosting() == 0 ? 0 : -1;
}

Clock TrainByRanks(const Table& table, int numRounds, int numRanks) {
    std::vector<int> ownerV(table.numColumns);
    for (size_t c = 0; c < ownerV.size(); ++c) {
        ownerV[c] = static_cast<int>(c % static_cast<size_t>(numRanks));
    }
    tests::MeetingPlace place(numRanks);
    Clock clock;
    clock.place = &place;
    std::vector<std::thread> threadV;
    for (int rank = 0; rank < numRanks; ++rank) {
        threadV.emplace_back([&, rank] {
            tests::ThreadRank communicator(place, rank);
            Ranks ranks(communicator, ownerV);
            if (Train(table, numRounds, 1, &ranks, rank == 0 ? &clock : nullptr) != 0) {
                place.Cancel();
            }
        });
    }
    for (std::thread& thread : threadV) thread.join();
    return clock;
}

double Median(std::vector<double> valueV) {
    std::sort(valueV.begin(), valueV.end());
    return valueV[valueV.size() / 2];
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 5 && argc != 6) {
        std::cerr << "usage: rank-rounds rows columns rounds ranks [turns]\n";
        return 2;
    }
    const Table table(std::strtoul(argv[1], nullptr, 10), std::strtoul(argv[2], nullptr, 10));
    const int numRounds = std::atoi(argv[3]), numRanks = std::atoi(argv[4]);
    const int numTurns = argc == 6 ? std::atoi(argv[5]) : 3;
    if (numRounds < 2 || numRanks < 1 || numTurns < 1) return 2;
    std::vector<double> wallVV[2], cpuVV[2], byteV;
    for (int turn = 0; turn < numTurns; ++turn) {
        Clock alone;
        if (Train(table, numRounds, numRanks, nullptr, &alone) != 0) return 1;
        const Clock together = TrainByRanks(table, numRounds, numRanks);
        for (const Clock* clock : {static_cast<const Clock*>(&alone), &together}) {
            const size_t kind = clock == &together;
            wallVV[kind].push_back(clock->wall / (numRounds - 1));
            cpuVV[kind].push_back(clock->cpu / (numRounds - 1));
        }
        byteV.push_back(together.bytes / (numRounds - 1));
    }
    std::cout << numRanks << " threads: " << Median(wallVV[0]) << " ms, CPU " << Median(cpuVV[0])
              << " ms; " << numRanks << " ranks: " << Median(wallVV[1]) << " ms, CPU "
              << Median(cpuVV[1]) << " ms, " << Median(byteV) / 1e3 << " kB\n";
    return 0;
}

// Trainings for measurements; see RankTraining.h.
#include "RankTraining.h"

#include <algorithm>
#include <chrono>
#include <ctime>
#include <iostream>
#include <memory>
#include <random>

#include "TreeLearner.h"

namespace sylvora::bench {
namespace {

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
    RoundFigures& figures;
    TimedCommunicator* communicator;

    static int Report(void* context, int done, int total) {
        Clock& clock = *static_cast<Clock*>(context);
        if (done != 1 && done != total) return 0;
        const double sign = done == 1 ? -1.0 : 1.0;
        clock.figures.wall += sign * WallMs();
        clock.figures.cpu += sign * CpuMs();
        if (clock.communicator != nullptr) clock.communicator->MarkRounds();
        return 0;
    }
};

void Divide(RoundFigures& figures, double numRounds) {
    for (double* sum : {&figures.wall, &figures.cpu, &figures.exchange, &figures.waiting,
                        &figures.calls, &figures.bytes}) {
        *sum /= numRounds;
    }
}

}  // namespace

Table::Table(size_t rows, const std::vector<int>& ownerV, int rank)
    : columnV(ownerV.size()), labelV(rows), zeroV(rows) {
    constexpr size_t kLabelColumns = 10;
    std::mt19937 random(1);
    for (size_t c = 0; c < columnV.size(); ++c) {
        std::vector<float> valueV(rows);
        for (float& value : valueV) value = static_cast<float>(random() >> 8);
        for (size_t row = 0; row < rows && c < kLabelColumns; ++row) {
            labelV[row] += 0x1p-24 * static_cast<double>(valueV[row]);
        }
        if (rank < 0 || ownerV[c] == rank) columnV[c].swap(valueV);
    }
    for (double& label : labelV) label += 0x1p-32 * static_cast<double>(random());
}

std::vector<DataColumn> Table::Columns(const Ranks* ranks) const {
    std::vector<DataColumn> dataV(columnV.size());
    for (size_t c = 0; c < dataV.size(); ++c) {
        const bool fOwn = ranks == nullptr || ranks->Owns(static_cast<int>(c));
        dataV[c].values = fOwn ? static_cast<const void*>(columnV[c].data())
                               : static_cast<const void*>(zeroV.data());
        dataV[c].type = fOwn ? ValueType::kFloat32 : ValueType::kUInt8;
    }
    return dataV;
}

std::vector<int> OwnersInTurn(size_t columns, int numRanks) {
    std::vector<int> ownerV(columns);
    for (size_t c = 0; c < columns; ++c) ownerV[c] = static_cast<int>(c) % numRanks;
    return ownerV;
}

template <typename Exchange>
int TimedCommunicator::Note(size_t bytes, const Exchange& exchange) {
    const double begin = WallMs();
    const int status = exchange();
    callV.push_back({begin, WallMs(), static_cast<double>(bytes)});
    return status;
}

int TimedCommunicator::AllGather(const void* mine, size_t bytes, void* all) {
    return Note(bytes, [&] { return ranks.AllGather(mine, bytes, all); });
}

int TimedCommunicator::Broadcast(void* data, size_t bytes, int root) {
    return Note(root == Rank() ? bytes : 0, [&] { return ranks.Broadcast(data, bytes, root); });
}

int TimedCommunicator::AllToAll(const void* mine, size_t bytes, void* all) {
    return Note(bytes * static_cast<size_t>(Size()),
                [&] { return ranks.AllToAll(mine, bytes, all); });
}

bool TimedCommunicator::AddUp(RoundFigures& sums) {
    const std::vector<Call> mineV(callV.begin() + static_cast<std::ptrdiff_t>(markV.front()),
                                  callV.begin() + static_cast<std::ptrdiff_t>(markV.back()));
    const size_t numRanks = static_cast<size_t>(Size());
    std::vector<Call> allV(mineV.size() * numRanks);
    if (ranks.AllGather(mineV.data(), mineV.size() * sizeof(Call), allV.data()) != 0) return false;
    for (size_t i = 0; i < mineV.size(); ++i) {
        double begin = 0.0, end = 0.0;
        for (size_t r = 0; r < numRanks; ++r) {
            const Call& call = allV[r * mineV.size() + i];
            begin = std::max(begin, call.begin);
            end = std::max(end, call.end);
            sums.bytes += call.bytes;
            sums.waiting -= call.begin / static_cast<double>(numRanks);
        }
        sums.waiting += begin;
        sums.exchange += end - begin;
        sums.calls += 1.0;
    }
    return true;
}

bool Train(const Table& table, int numRounds, int numThread, const std::vector<int>& ownerV,
           TimedCommunicator* communicator, RoundFigures& figures) {
    CheckCfgCLS cfg;
    cfg.modelType = "GBDT";
    cfg.lossFunc = "Square";
    cfg.numTree = numRounds;
    cfg.numThread = numThread;
    cfg.fSetThread = true;
    cfg.maxDepth = 6;
    cfg.maxLeaf = 64;
    if (cfg.CheckCfg() != 0) return false;
    TreeLearner learner(cfg);
    learner.setPackedTrees(true);
    RandomStream stream(1);
    learner.trainingOptions.stream = &stream;
    std::unique_ptr<Ranks> ranks;
    if (communicator != nullptr) ranks = std::make_unique<Ranks>(*communicator, ownerV);
    learner.trainingOptions.ranks = ranks.get();
    Clock clock = {figures, communicator};
    learner.setProgress(Clock::Report, &clock);
    const std::vector<DataColumn> columnV = table.Columns(ranks.get());
    DataBlock block;
    block.layout = DataBlock::Layout::kColumns;
    block.numRows = static_cast<std::int64_t>(table.NumRows());
    block.numColumns = static_cast<std::int64_t>(columnV.size());
    block.columns = columnV.data();
    if (learner.DataBorrow(DataSet::Make(block), table.Labels().data(),
                           static_cast<int>(table.NumRows()), nullptr, 0) != 0) {
        return false;
    }
    if (learner.ParamInit() != 0 || learner.Boosting() != 0) return false;
    if (communicator != nullptr && !communicator->AddUp(figures)) return false;
    Divide(figures, numRounds - 1.0);
    return true;
}

void Print(const RoundFigures& figures, bool fRanks) {
    std::cout << ' ' << figures.wall << " ms, CPU " << figures.cpu << " ms";
    if (!fRanks) return;
    std::cout << ", " << figures.calls << " exchanges of " << figures.bytes / 1e3 << " kB in "
              << figures.exchange << " ms (" << 100.0 * figures.exchange / figures.wall
              << " %), waiting " << figures.waiting << " ms";
}

}  // namespace sylvora::bench

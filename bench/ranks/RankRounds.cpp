// Time of a round by several ranks, beside one process with as many threads; see docs/scale-out.md.
//
//   rank-rounds rows columns rounds ranks [turns]
//
// The ranks are threads of one process with one thread each, so nothing is sent over a network; for
// processes see MpiRounds.cpp. Trains in turns, and prints the medians.
#include <algorithm>
#include <cstdlib>
#include <iostream>
#include <thread>
#include <vector>

#include "RankTraining.h"
#include "tests/ranks/ThreadRanks.h"

namespace {

using namespace sylvora;
using bench::RoundFigures;

// The figures of rank 0, whose CPU time is that of all ranks.
bool TrainByRanks(const bench::Table& table, int numRounds, const std::vector<int>& ownerV,
                  int numRanks, RoundFigures& figures) {
    const std::vector<int> statusV = tests::RunRanks(numRanks, [&](Communicator& communicator) {
        bench::TimedCommunicator timed(communicator);
        RoundFigures own;
        const bool fTrained = bench::Train(table, numRounds, 1, ownerV, &timed, own);
        if (communicator.Rank() == 0) figures = own;
        return fTrained ? 0 : -1;
    });
    return std::count(statusV.begin(), statusV.end(), 0) == numRanks;
}

double Median(std::vector<double> valueV) {
    std::sort(valueV.begin(), valueV.end());
    return valueV[valueV.size() / 2];
}

// Each figure by itself.
RoundFigures Medians(const std::vector<RoundFigures>& turnV) {
    RoundFigures medians;
    for (double RoundFigures::*figure :
         {&RoundFigures::wall, &RoundFigures::cpu, &RoundFigures::exchange, &RoundFigures::waiting,
          &RoundFigures::calls, &RoundFigures::bytes}) {
        std::vector<double> valueV;
        for (const RoundFigures& turn : turnV) valueV.push_back(turn.*figure);
        medians.*figure = Median(valueV);
    }
    return medians;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 5 && argc != 6) {
        std::cerr << "usage: rank-rounds rows columns rounds ranks [turns]\n";
        return 2;
    }
    const int numRounds = std::atoi(argv[3]), numRanks = std::atoi(argv[4]);
    const int numTurns = argc == 6 ? std::atoi(argv[5]) : 3;
    if (numRounds < 2 || numRanks < 1 || numTurns < 1) return 2;
    const std::vector<int> ownerV =
        bench::OwnersInTurn(std::strtoul(argv[2], nullptr, 10), numRanks);
    const bench::Table table(std::strtoul(argv[1], nullptr, 10), ownerV, -1);
    std::vector<RoundFigures> aloneV, togetherV;
    for (int turn = 0; turn < numTurns; ++turn) {
        RoundFigures alone, together;
        if (!bench::Train(table, numRounds, numRanks, ownerV, nullptr, alone) ||
            !TrainByRanks(table, numRounds, ownerV, numRanks, together)) {
            return 1;
        }
        aloneV.push_back(alone);
        togetherV.push_back(together);
    }
    std::cout << numRanks << " threads:";
    bench::Print(Medians(aloneV), false);
    std::cout << '\n' << numRanks << " ranks:";
    bench::Print(Medians(togetherV), true);
    std::cout << '\n';
    return 0;
}

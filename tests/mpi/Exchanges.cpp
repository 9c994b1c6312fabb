// Exchanges between the ranks of an MPI job, for test_exchanges.py:
//
//   pieces      exchanges of many sizes, in pieces of many sizes, give all bytes
//   slow        rank 1 computes for 9 s; the others wait for it
//   leave       rank 1 ends with status 1; the exchanges of the others fail, in this and any other
//               call
//   ends-late   rank 1 ends with status 1, rank 0 computes on for a minute
#include <chrono>
#include <cstddef>
#include <iostream>
#include <string>
#include <thread>
#include <vector>

#include "Job.h"
#include "MpiCommunicator.h"
#include "RankLink.h"

namespace {

using sylvora::mpi::MpiCommunicator;
using sylvora::mpi::RankLink;

// A byte that depends on who sends it, to whom, and where it stands.
char Byte(int from, int to, std::size_t i) {
    return static_cast<char>(static_cast<std::size_t>(from * 59 + to * 31) + i * 7 + i / 251);
}

std::vector<char> Bytes(int from, int to, std::size_t count) {
    std::vector<char> byteV(count);
    for (std::size_t i = 0; i < count; ++i) byteV[i] = Byte(from, to, i);
    return byteV;
}

void Append(std::vector<char>& to, const std::vector<char>& more) {
    to.insert(to.end(), more.begin(), more.end());
}

bool ExchangesAll(MpiCommunicator& ranks, std::size_t bytes) {
    const int me = ranks.Rank();
    const int count = ranks.Size();
    std::vector<char> gathered, toAll, fromAll;
    for (int r = 0; r < count; ++r) {
        Append(gathered, Bytes(r, 0, bytes));
        Append(toAll, Bytes(me, r, bytes));
        Append(fromAll, Bytes(r, me, bytes));
    }
    std::vector<char> all(bytes * static_cast<std::size_t>(count));
    const std::vector<char> mine = Bytes(me, 0, bytes);
    if (ranks.AllGather(mine.data(), bytes, all.data()) != 0 || all != gathered) return false;
    if (ranks.AllToAll(toAll.data(), bytes, all.data()) != 0 || all != fromAll) return false;
    for (int root = 0; root < count; ++root) {
        std::vector<char> data = Bytes(me, 9, bytes);
        if (ranks.Broadcast(data.data(), bytes, root) != 0) return false;
        if (data != Bytes(root, 9, bytes)) return false;
    }
    return true;
}

int ExchangePieces(RankLink& link) {
    for (const std::size_t piece :
         {std::size_t{1}, std::size_t{10}, std::size_t{4096}, MpiCommunicator::kPieceBytes}) {
        MpiCommunicator ranks(link, piece);
        for (const std::size_t bytes : {0, 1, 3, 10, 1000, 100003}) {
            if (piece < 100 && bytes > 1000) continue;  // too many exchanges
            if (ExchangesAll(ranks, bytes)) continue;
            std::cerr << "ERROR: " << bytes << " bytes in pieces of " << piece << "\n";
            return 1;
        }
    }
    std::cout << "as they should be\n";
    return 0;
}

void Compute(std::chrono::seconds duration) {
    const auto end = std::chrono::steady_clock::now() + duration;
    while (std::chrono::steady_clock::now() < end) {
    }
}

int WaitForSlow(RankLink& link) {
    MpiCommunicator ranks(link);
    if (link.Rank() == 1) Compute(std::chrono::seconds(9));
    return ExchangesAll(ranks, 10) ? 0 : 1;
}

int Leave(RankLink& link) {
    MpiCommunicator ranks(link);
    if (!ExchangesAll(ranks, 10)) return 1;
    if (link.Rank() == 1) {
        std::cerr << "ERROR: the cause\n";
        return 1;
    }
    char byte = 0;
    const bool fBothFail = ranks.Broadcast(&byte, 1, 1) == -1 && ranks.Broadcast(&byte, 1, 0) == -1;
    std::cerr << (fBothFail && ranks.Cancelled() ? "noticed\n" : "ERROR: not noticed\n");
    return 1;
}

int EndLate(RankLink& link) {
    if (link.Rank() == 1) {
        std::cerr << "ERROR: the cause\n";
        return 1;
    }
    if (link.Rank() == 0) std::this_thread::sleep_for(std::chrono::minutes(1));
    return 0;
}

}  // namespace

int main(int argc, char** argv) {
    const std::string mode = argc == 2 ? argv[1] : "";
    return sylvora::mpi::RunJob(argc, argv, [&](RankLink& link) {
        if (mode == "pieces") return ExchangePieces(link);
        if (mode == "slow") return WaitForSlow(link);
        if (mode == "leave") return Leave(link);
        return mode == "ends-late" ? EndLate(link) : 2;
    });
}

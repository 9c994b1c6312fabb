// Ranks that are processes of one machine, for tests: they exchange bytes over pairs of sockets.
#ifndef SYLVORA_TESTS_RANKS_SOCKETRANK_H
#define SYLVORA_TESTS_RANKS_SOCKETRANK_H

#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstddef>
#include <cstring>
#include <functional>
#include <system_error>
#include <utility>
#include <vector>

#include "Communicator.h"

namespace sylvora::tests {

// A connection between each two of the ranks, made before they are forked. Each process keeps the
// ends of its own rank.
class Sockets {
  public:
    explicit Sockets(int numRanks) : size(static_cast<size_t>(numRanks)), endV(size * size, -1) {
        for (size_t a = 0; a < size; ++a) {
            for (size_t b = a + 1; b < size; ++b) {
                std::array<int, 2> pair;
                if (::socketpair(AF_UNIX, SOCK_STREAM, 0, pair.data()) != 0) {
                    throw std::system_error(errno, std::generic_category(), "socketpair");
                }
                endV[a * size + b] = pair[0];
                endV[b * size + a] = pair[1];
            }
        }
    }

    int NumRanks() const { return static_cast<int>(size); }
    int End(int own, int other) const {
        return endV[static_cast<size_t>(own) * size + static_cast<size_t>(other)];
    }
    // Closes the ends of the other ranks (of all, for -1), so that a rank's end is noticed.
    void KeepOnly(int rank) {
        for (size_t i = 0; i < endV.size(); ++i) {
            if (endV[i] < 0 || (rank >= 0 && i / size == static_cast<size_t>(rank))) continue;
            ::close(std::exchange(endV[i], -1));
        }
    }

  private:
    size_t size;
    std::vector<int> endV;  // by own rank, then by other rank; -1: none
};

class SocketRank : public Communicator {
  public:
    // Calls atExchange(n) before the n-th exchange, from 0.
    SocketRank(const Sockets& ends, int number, std::function<void(int)> beforeExchange)
        : sockets(ends), rank(number), atExchange(std::move(beforeExchange)) {}

    int Rank() const override { return rank; }
    int Size() const override { return sockets.NumRanks(); }
    int AllGather(const void* mine, size_t bytes, void* all) override {
        return WithEach([&](int other) { return Swap(other, mine, At(all, bytes, other), bytes); },
                        [&] { Copy(At(all, bytes, rank), mine, bytes); });
    }
    int Broadcast(void* data, size_t bytes, int root) override {
        return WithEach(
            [&](int other) {
                if (rank == root) return Send(other, data, bytes);
                return other != root || Receive(other, data, bytes);
            },
            [] {});
    }
    int AllToAll(const void* mine, size_t bytes, void* all) override {
        const auto part = [&](int r) { return static_cast<const char*>(mine) + Offset(bytes, r); };
        return WithEach(
            [&](int other) { return Swap(other, part(other), At(all, bytes, other), bytes); },
            [&] { Copy(At(all, bytes, rank), part(rank), bytes); });
    }
    bool Cancelled() override { return fLost; }

  private:
    static size_t Offset(size_t bytes, int r) { return bytes * static_cast<size_t>(r); }
    static char* At(void* all, size_t bytes, int r) {
        return static_cast<char*>(all) + Offset(bytes, r);
    }
    static void Copy(void* to, const void* from, size_t bytes) {
        if (bytes > 0) std::memcpy(to, from, bytes);
    }

    // Calls meet(other rank), which returns whether that rank is still there, and then finish().
    // Pairs of ranks meet in the order of (lower rank, higher rank), so none waits for another in a
    // circle.
    template <typename MeetOther, typename Finish>
    int WithEach(const MeetOther& meet, const Finish& finish) {
        atExchange(numExchanges++);
        for (int other = 0; other < Size() && !fLost; ++other) {
            if (other != rank && !meet(other)) fLost = true;
        }
        if (fLost) return -1;
        finish();
        return 0;
    }

    // The lower rank of a pair sends first.
    bool Swap(int other, const void* mine, void* theirs, size_t bytes) const {
        if (rank < other) return Send(other, mine, bytes) && Receive(other, theirs, bytes);
        return Receive(other, theirs, bytes) && Send(other, mine, bytes);
    }
    bool Send(int other, const void* from, size_t bytes) const {
        const char* at = static_cast<const char*>(from);
        return InPieces(bytes, [&](size_t done) {
            return ::send(sockets.End(rank, other), at + done, bytes - done, MSG_NOSIGNAL);
        });
    }
    bool Receive(int other, void* to, size_t bytes) const {
        char* at = static_cast<char*>(to);
        return InPieces(bytes, [&](size_t done) {
            return ::recv(sockets.End(rank, other), at + done, bytes - done, 0);
        });
    }
    // Calls move(bytes done) until all are; it returns how many it moved, as send and recv do.
    template <typename Move>
    static bool InPieces(size_t bytes, const Move& move) {
        for (size_t done = 0; done < bytes;) {
            const ssize_t moved = move(done);
            if (moved < 0 && errno == EINTR) continue;
            if (moved <= 0) return false;
            done += static_cast<size_t>(moved);
        }
        return true;
    }

    const Sockets& sockets;
    const int rank;
    const std::function<void(int)> atExchange;
    int numExchanges = 0;
    bool fLost = false;
};

}  // namespace sylvora::tests

#endif  // SYLVORA_TESTS_RANKS_SOCKETRANK_H

// Ranks that are threads of one process, for tests.
#ifndef SYLVORA_TESTS_RANKS_THREADRANKS_H
#define SYLVORA_TESTS_RANKS_THREADRANKS_H

#include <atomic>
#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <mutex>
#include <thread>
#include <tuple>
#include <vector>

#include "Communicator.h"

namespace sylvora::tests {

// What the ranks share: a meeting place where each leaves the address of its bytes.
class MeetingPlace {
  public:
    typedef std::tuple<char, size_t, int> Call;  // the kind of the exchange, bytes, root

    explicit MeetingPlace(int numRanks)
        : offeredV(static_cast<size_t>(numRanks)), callV(static_cast<size_t>(numRanks)) {}

    // Waits until all ranks have offered their bytes, calls copy(offers by rank), and waits until
    // all have copied. Returns 0, or -1 once Cancel was called. `call` says what is exchanged;
    // ranks that do not agree about it are a fault of the program, which ends.
    int Meet(int rank, const Call& call, const void* offered,
             const std::function<void(const void* const*)>& copy) {
        offeredV[static_cast<size_t>(rank)] = offered;
        callV[static_cast<size_t>(rank)] = call;
        if (!Wait()) return -1;
        if (callV[static_cast<size_t>(rank)] != callV[0]) {
            std::fputs("The ranks make different calls.\n", stderr);
            std::abort();
        }
        copy(offeredV.data());
        return Wait() ? 0 : -1;
    }
    void Cancel() {
        const std::lock_guard<std::mutex> lock(mutex);
        fCancelled = true;
        changed.notify_all();
    }
    bool IsCancelled() const { return fCancelled; }
    int NumRanks() const { return static_cast<int>(offeredV.size()); }
    long NumBytes() const { return numBytes; }
    void CountBytes(size_t bytes) { numBytes += static_cast<long>(bytes); }

  private:
    bool Wait() {
        std::unique_lock<std::mutex> lock(mutex);
        if (fCancelled) return false;
        const long meeting = numMeetings;
        if (++numWaiting == NumRanks()) {
            numWaiting = 0;
            ++numMeetings;
            changed.notify_all();
            return true;
        }
        changed.wait(lock, [&] { return fCancelled || numMeetings != meeting; });
        return numMeetings != meeting;
    }

    std::vector<const void*> offeredV;
    std::vector<Call> callV;
    std::mutex mutex;  // guards the members below, except the atomic ones
    std::condition_variable changed;
    int numWaiting = 0;
    long numMeetings = 0;
    std::atomic<bool> fCancelled{false};
    std::atomic<long> numBytes{0};
};

class ThreadRank : public Communicator {
  public:
    ThreadRank(MeetingPlace& meetingPlace, int number) : place(meetingPlace), rank(number) {}

    int Rank() const override { return rank; }
    int Size() const override { return place.NumRanks(); }
    int AllGather(const void* mine, size_t bytes, void* all) override {
        return Meet({'g', bytes, 0}, mine, bytes, [&](const void* const* offers) {
            for (int r = 0; r < Size(); ++r) Copy(At(all, bytes, r), offers[r], bytes);
        });
    }
    int Broadcast(void* data, size_t bytes, int root) override {
        return Meet({'b', bytes, root}, data, rank == root ? bytes : 0,
                    [&](const void* const* offers) {
                        if (rank != root) Copy(data, offers[root], bytes);
                    });
    }
    int AllToAll(const void* mine, size_t bytes, void* all) override {
        return Meet({'a', bytes, 0}, mine, bytes * static_cast<size_t>(Size()),
                    [&](const void* const* offers) {
                        for (int r = 0; r < Size(); ++r) {
                            Copy(At(all, bytes, r),
                                 static_cast<const char*>(offers[r]) + Offset(bytes, rank), bytes);
                        }
                    });
    }
    bool Cancelled() override { return place.IsCancelled(); }

  private:
    static size_t Offset(size_t bytes, int r) { return bytes * static_cast<size_t>(r); }
    static char* At(void* all, size_t bytes, int r) {
        return static_cast<char*>(all) + Offset(bytes, r);
    }
    static void Copy(void* to, const void* from, size_t bytes) {
        if (bytes > 0) std::memcpy(to, from, bytes);
    }
    template <typename Copying>
    int Meet(const MeetingPlace::Call& call, const void* offered, size_t bytes,
             const Copying& copy) {
        place.CountBytes(bytes);
        return place.Meet(rank, call, offered, copy);
    }

    MeetingPlace& place;
    const int rank;
};

// Calls task(communicator) in a thread for each of the ranks, and waits for all of them. A rank
// whose task returns other than 0 has failed, and the exchanges of the others then end. Returns the
// statuses by rank.
inline std::vector<int> RunRanks(int numRanks, const std::function<int(Communicator&)>& task,
                                 long* numBytes = nullptr) {
    MeetingPlace place(numRanks);
    std::vector<int> statusV(static_cast<size_t>(numRanks));
    std::vector<std::thread> threadV;
    for (int rank = 0; rank < numRanks; ++rank) {
        threadV.emplace_back([&, rank] {
            ThreadRank communicator(place, rank);
            int& status = statusV[static_cast<size_t>(rank)];
            status = task(communicator);
            if (status != 0) place.Cancel();
        });
    }
    for (std::thread& thread : threadV) thread.join();
    if (numBytes != nullptr) *numBytes = place.NumBytes();
    return statusV;
}

}  // namespace sylvora::tests

#endif  // SYLVORA_TESTS_RANKS_THREADRANKS_H

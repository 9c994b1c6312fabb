// Keeps the ranks of an MPI job aware of each other: which ones live, and which have ended.
#ifndef SYLVORA_MPI_RANKLINK_H
#define SYLVORA_MPI_RANKLINK_H

#include <mpi.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "Farewell.h"
#include "Recorder.h"

namespace sylvora::mpi {

// Grows the longer a loop waits: no sleep at first, then a twentieth of the time waited so far, at
// most half a millisecond. Ranks that share a processor leave it to each other this way.
class Pause {
  public:
    void operator()() const;
    std::chrono::nanoseconds Waited() const { return Clock::now() - begin; }

  private:
    typedef std::chrono::steady_clock Clock;
    const Clock::time_point begin = Clock::now();
};

// A thread of its own sends a sign of life to the next rank four times a second, and listens to the
// rank before, rank 0 after the last one. So a rank that computes for long is alive, and one that
// is stopped, or whose machine is lost, is not: after kSilence without a sign, the rank that
// listens names it on standard error and ends all ranks with MPI_Abort, status 1. (mpirun itself
// notices a process that dies.) A rank counts only the time in which it runs itself, so that a job
// that is stopped as a whole and goes on is not ended.
//
// A rank that fails by itself tells all others, whose exchanges then fail, so that all of them end
// in order. If that takes longer than kGrace, rank 0 ends all ranks.
//
// Thread safety: MPI is called by one thread at a time, under Mutex().
class RankLink {
  public:
    static constexpr std::chrono::milliseconds kTick{250};
    static constexpr std::chrono::milliseconds kSilence{6000};
    static constexpr std::chrono::milliseconds kGrace{5000};

    // Collective; after MPI_Init_thread with at least MPI_THREAD_SERIALIZED. Borrows the recorder
    // of this rank's messages. Throws std::system_error if the thread cannot be started.
    explicit RankLink(const Recorder& recorder);
    // Ends all ranks with MPI_Abort if End was not called.
    ~RankLink();
    RankLink(const RankLink&) = delete;
    RankLink& operator=(const RankLink&) = delete;

    int Rank() const { return rank; }
    int Size() const { return size; }
    // Held around every call of MPI, none of which may wait for another rank.
    std::mutex& Mutex() { return mutex; }

    // Whether this rank knows that another one has failed. Any thread may ask.
    bool IsLost() const { return fLost; }
    // Makes IsLost true, because MPI failed.
    void Lose() { fLost = true; }
    // An exchange of this rank failed because another one has failed. If it was begun already, MPI
    // cannot end in order.
    void NoteRefusal(bool fBegun) {
        fRefused = true;
        if (fBegun) fAbandoned = true;
    }

    // The last call of each rank, with its exit status; waits for all ranks. Rank 0 prints the
    // messages of ranks that failed. Returns the exit status of the run, which is the largest one.
    // Does not return if some rank left an exchange: the run then ends with MPI_Abort.
    int End(int status);

  private:
    int RankBefore() const { return (rank + size - 1) % size; }
    void Watch();
    // These need the mutex.
    void Beat();
    void CountSilence();
    void ExpectBeat();
    void ReceiveFarewells();
    void ExpectFarewell();
    void Say(const Farewell& farewell);
    bool HaveAllEnded() const;
    bool HasAnyFailed() const;
    [[noreturn]] void AbortAfterFailure();
    void PrintOthers() const;
    int StatusOfAll() const;
    int LetGo();
    bool IsFree(MPI_Request& request);
    void StopListening();

    int rank = 0;
    int size = 1;
    const Recorder& messages;
    std::atomic<bool> fLost{false};
    std::atomic<bool> fRefused{false}, fAbandoned{false};

    std::mutex mutex;                 // guards MPI and the members below
    std::condition_variable changed;  // fOver was set
    bool fOver = false;
    char beatSent = 0, beatReceived = 0;
    MPI_Request beatOut = MPI_REQUEST_NULL, beatIn = MPI_REQUEST_NULL;
    int numSilent = 0;     // ticks since the last sign of life
    int numDisturbed = 0;  // ticks since the first failure
    Farewell received;
    MPI_Request farewellIn = MPI_REQUEST_NULL;
    std::vector<MPI_Request> farewellOutV;
    Farewell mine;
    std::vector<Farewell> farewellV;  // by rank; rank 0 has those of all ranks
    std::thread watcher;
};

}  // namespace sylvora::mpi

#endif  // SYLVORA_MPI_RANKLINK_H

// Signs of life, farewells, and the end of a job; see RankLink.h.
#include "RankLink.h"

#include <sched.h>
#include <unistd.h>

#include <algorithm>
#include <iostream>

namespace sylvora::mpi {
namespace {

constexpr int kBeatTag = 0, kFarewellTag = 1, kGoTag = 2;
constexpr int kAbortStatus = 1;

[[noreturn]] void AbortAll(int status) {
    MPI_Abort(MPI_COMM_WORLD, status);
    ::_exit(status);
}

// For a rank whose messages are hidden.
void WriteNow(const std::string& line) {
    static_cast<void>(!::write(STDERR_FILENO, line.data(), line.size()));
}

}  // namespace

void Pause::operator()() const {
    constexpr std::chrono::microseconds kWithoutSleep{200};
    constexpr std::chrono::nanoseconds kLongestSleep{500000};
    constexpr int kShare = 20;
    const std::chrono::nanoseconds waited = Waited();
    if (waited < kWithoutSleep) {
        ::sched_yield();
    } else {
        std::this_thread::sleep_for(std::min(waited / kShare, kLongestSleep));
    }
}

RankLink::RankLink(const Recorder& recorder) : messages(recorder) {
    MPI_Comm_rank(MPI_COMM_WORLD, &rank);
    MPI_Comm_size(MPI_COMM_WORLD, &size);
    MPI_Comm_set_errhandler(MPI_COMM_WORLD, MPI_ERRORS_RETURN);
    farewellV.resize(static_cast<std::size_t>(size));
    if (size == 1) return;
    ExpectBeat();
    ExpectFarewell();
    watcher = std::thread([this] { Watch(); });
}

RankLink::~RankLink() {
    if (!watcher.joinable()) return;
    WriteNow("ERROR: rank " + std::to_string(rank) + ": could not be started\n");
    AbortAll(kAbortStatus);
}

void RankLink::Watch() {
    std::unique_lock<std::mutex> lock(mutex);
    while (!fOver) {
        Beat();
        CountSilence();
        ReceiveFarewells();
        if (rank == 0 && HasAnyFailed() && ++numDisturbed * kTick > kGrace) AbortAfterFailure();
        changed.wait_for(lock, kTick);
    }
}

// Sends no sign while the one before is still on its way.
void RankLink::Beat() {
    if (!IsFree(beatOut)) return;
    MPI_Isend(&beatSent, 1, MPI_CHAR, (rank + 1) % size, kBeatTag, MPI_COMM_WORLD, &beatOut);
}

void RankLink::CountSilence() {
    ++numSilent;
    while (IsFree(beatIn)) {
        numSilent = 0;
        ExpectBeat();
    }
    if (numSilent * kTick <= kSilence) return;
    WriteNow("ERROR: rank " + std::to_string(RankBefore()) + ": has given no sign of life for " +
             std::to_string(kSilence / std::chrono::seconds(1)) +
             " s: it is stopped, or its machine is lost; the run ends\n");
    AbortAll(kAbortStatus);
}

// Whether the request has ended, or there is none.
bool RankLink::IsFree(MPI_Request& request) {
    int fEnded = 0;
    return MPI_Test(&request, &fEnded, MPI_STATUS_IGNORE) == MPI_SUCCESS && fEnded != 0;
}

void RankLink::ExpectBeat() {
    MPI_Irecv(&beatReceived, 1, MPI_CHAR, RankBefore(), kBeatTag, MPI_COMM_WORLD, &beatIn);
}

void RankLink::ExpectFarewell() {
    MPI_Irecv(&received, sizeof received, MPI_BYTE, MPI_ANY_SOURCE, kFarewellTag, MPI_COMM_WORLD,
              &farewellIn);
}

void RankLink::ReceiveFarewells() {
    for (;;) {
        int fReceived = 0;
        MPI_Status status;
        if (MPI_Test(&farewellIn, &fReceived, &status) != MPI_SUCCESS || fReceived == 0) return;
        farewellV[static_cast<std::size_t>(status.MPI_SOURCE)] = received;
        if (received.status != 0) fLost = true;
        ExpectFarewell();
    }
}

// Every rank is told of a failure, but only rank 0 of a success.
void RankLink::Say(const Farewell& farewell) {
    mine = farewell;
    farewellV[static_cast<std::size_t>(rank)] = farewell;
    for (int to = 0; to < (farewell.status != 0 ? size : 1); ++to) {
        if (to == rank) continue;
        farewellOutV.push_back(MPI_REQUEST_NULL);
        MPI_Isend(&mine, sizeof mine, MPI_BYTE, to, kFarewellTag, MPI_COMM_WORLD,
                  &farewellOutV.back());
    }
}

bool RankLink::HaveAllEnded() const {
    return std::all_of(farewellV.begin(), farewellV.end(),
                       [](const Farewell& farewell) { return farewell.fSaid != 0; });
}

// Ranks that are stopped by a signal end together, and may take time to write a checkpoint.
bool RankLink::HasAnyFailed() const {
    constexpr int kStoppedBySignal = 128;
    return std::any_of(farewellV.begin(), farewellV.end(), [](const Farewell& farewell) {
        return farewell.status != 0 && farewell.status < kStoppedBySignal;
    });
}

int RankLink::StatusOfAll() const {
    int status = 0;
    for (const Farewell& farewell : farewellV) status = std::max(status, farewell.status);
    return status;
}

void RankLink::PrintOthers() const {
    std::cerr << LinesOfOthers(farewellV, messages.Text()) << std::flush;
}

void RankLink::AbortAfterFailure() {
    PrintOthers();
    AbortAll(std::max(StatusOfAll(), kAbortStatus));
}

// A rank that failed because an exchange did has nothing of its own to say.
int RankLink::End(int status) {
    if (size == 1) return status;
    std::unique_lock<std::mutex> lock(mutex);
    Farewell farewell;
    farewell.fSaid = 1;
    farewell.status = status;
    farewell.fAbandoned = fAbandoned ? 1 : 0;
    if (status != 0 && !fRefused) farewell.SetMessages(messages.Text());
    Say(farewell);
    int agreed = 0;
    if (rank == 0) {
        for (const Pause pause; ReceiveFarewells(), !HaveAllEnded();) {
            lock.unlock();
            pause();
            lock.lock();
        }
        agreed = LetGo();
    } else {
        MPI_Request go = MPI_REQUEST_NULL;
        MPI_Irecv(&agreed, 1, MPI_INT, 0, kGoTag, MPI_COMM_WORLD, &go);
        for (const Pause pause; !IsFree(go);) {
            lock.unlock();
            pause();
            lock.lock();
        }
    }
    StopListening();
    lock.unlock();
    changed.notify_all();
    watcher.join();
    return agreed;
}

// Rank 0 tells the others the status of the run.
int RankLink::LetGo() {
    if (std::any_of(farewellV.begin(), farewellV.end(),
                    [](const Farewell& farewell) { return farewell.fAbandoned != 0; })) {
        AbortAfterFailure();
    }
    PrintOthers();
    const int status = StatusOfAll();
    for (int to = 1; to < size; ++to) MPI_Send(&status, 1, MPI_INT, to, kGoTag, MPI_COMM_WORLD);
    return status;
}

void RankLink::StopListening() {
    fOver = true;
    MPI_Waitall(static_cast<int>(farewellOutV.size()), farewellOutV.data(), MPI_STATUSES_IGNORE);
    for (MPI_Request* const request : {&beatIn, &farewellIn}) {
        MPI_Cancel(request);
        MPI_Request_free(request);
    }
    if (beatOut != MPI_REQUEST_NULL) MPI_Request_free(&beatOut);
}

}  // namespace sylvora::mpi

// What each rank tells the others at its end, and how rank 0 prints it.
#ifndef SYLVORA_MPI_FAREWELL_H
#define SYLVORA_MPI_FAREWELL_H

#include <string>
#include <vector>

namespace sylvora::mpi {

// Sent as bytes; small, so that MPI sends it without waiting for the receiver.
struct Farewell {
    int fSaid = 0;       // 0: the rank has not ended yet
    int status = 0;      // its exit status
    int fAbandoned = 0;  // it left an exchange that had not ended
    char messages[1012] = {};

    // Keeps the last lines of `text`, as many as there is room for.
    void SetMessages(const std::string& text);
};

// The lines of the farewells, given by rank, that are not among the lines of `shown`. Each names
// its ranks: "ERROR: rank 2: ...", "Notice: ranks 1 and 3: ...".
std::string LinesOfOthers(const std::vector<Farewell>& farewellV, const std::string& shown);

}  // namespace sylvora::mpi

#endif  // SYLVORA_MPI_FAREWELL_H

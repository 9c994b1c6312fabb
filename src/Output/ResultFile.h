// What the exported writers of result files and the learner share; see Output.h for the format.
#ifndef SYLVORA_OUTPUT_RESULTFILE_H
#define SYLVORA_OUTPUT_RESULTFILE_H

#include <string>

#include "../Output.h"
#include "DirectOutput.h"

namespace sylvora {

// The rows of one result file; borrowed.
struct ResultRows {
    const double* scoreV;
    const double* labelV;
    int count;
    const std::string& base;  // of the file's name
    int round;
    const VecVecInt* classCountVV;  // null: a file without class counts
};

// A result file that was opened but could not be written in full; an empty path: there is none.
struct LostResult {
    std::string path;
    int error = 0;  // why, as in errno

    std::string Message() const;
};

// Writes a result file. One that could not be opened is not lost. `isStopped`: see OpenDirectly.
// Throws std::bad_alloc.
[[nodiscard]] LostResult WriteResult(const ResultRows& rows, const StopQuestion& isStopped = {});

}  // namespace sylvora

#endif  // SYLVORA_OUTPUT_RESULTFILE_H

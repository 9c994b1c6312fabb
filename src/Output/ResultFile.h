// The writer of result files, used by the exported functions and by the learner. Output.h has the
// format.
#ifndef SYLVORA_OUTPUT_RESULTFILE_H
#define SYLVORA_OUTPUT_RESULTFILE_H

#include <string>

#include "../Output.h"
#include "DirectOutput.h"

namespace sylvora {

// The content of one result file. All arrays and the name are borrowed.
struct ResultRows {
    const double* scoreV;
    const double* labelV;
    int count;
    const std::string& base;  // base name of the file
    int round;
    const VecVecInt* classCountVV;  // null: a file without class counts
};

// A result file that was opened but could not be written in full. An empty path means no failure.
struct WriteFailure {
    std::string path;
    int error = 0;  // the reason, an errno value

    std::string Message() const;
};

// Writes a result file. A file that cannot be opened does not count as a failure. `isStopped` is
// that of OpenDirectly. Throws std::bad_alloc.
[[nodiscard]] WriteFailure WriteResult(const ResultRows& rows, const StopCondition& isStopped = {});

}  // namespace sylvora

#endif  // SYLVORA_OUTPUT_RESULTFILE_H

// What the exported writers of result files and the learner share; see Output.h for the format.
#ifndef SYLVORA_OUTPUT_RESULTFILE_H
#define SYLVORA_OUTPUT_RESULTFILE_H

#include <string>

#include "../Output.h"

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

// Writes a result file. Returns the path of one that was opened but could not be written in full;
// empty otherwise, also when it could not be opened. Throws std::bad_alloc.
[[nodiscard]] std::string WriteResult(const ResultRows& rows);

}  // namespace sylvora

#endif  // SYLVORA_OUTPUT_RESULTFILE_H

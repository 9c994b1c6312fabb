// Result files: the scores and labels of all rows after a boosting round.
//
//   file  = base name ".txt." round          (created, or truncated)
//   row   = score TAB label LF                            (Output)
//   row   = score TAB label TAB { class ":" count TAB } LF  (OutputCls)
//
// Numbers have six significant digits.
#ifndef SYLVORA_OUTPUT_H
#define SYLVORA_OUTPUT_H

#include <string>

#include "Libdef.h"

// Writes one row for each of the `n` scores `ResV` and labels `labV`. `file` is the base name and
// `idx` the round. Always returns 0, because a result file never stops a run: a file that cannot be
// opened is skipped silently, and one that cannot be written in full is reported. The arrays stay
// the caller's. Safe to call from any thread on distinct files.
SYLVORA_API int Output(double* ResV, std::string file, int idx, double* labV, int n);

// The same with the class counts of each row: distClsVV[i] has one count per class. Rows beyond the
// end of `distClsVV` are written without counts.
SYLVORA_API int OutputCls(double* ResV, VecVecInt distClsVV, std::string file, int idx,
                          double* labV, int n);

#endif  // SYLVORA_OUTPUT_H
